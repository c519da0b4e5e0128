#ifndef CF_TESTING_TEMPORARY_FOLDER_H
#define CF_TESTING_TEMPORARY_FOLDER_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// A temporary directory that only this user can read; the destructor removes it with its content.
class TemporaryFolder {
public:
    /// Throws std::runtime_error if it cannot be made.
    /// @param parent  the directory in which it is made
    explicit TemporaryFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path());
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The path of a file inside, whether it exists or not.
    [[nodiscard]] std::string name(const std::string& fileName) const { return (m_path / fileName).string(); }
    /// Writes a file and returns its path. Throws std::runtime_error if it cannot be written.
    std::string write(const std::string& fileName, std::string_view content) const;
    /// The names of the files inside, sorted.
    [[nodiscard]] std::vector<std::string> list() const;
    [[nodiscard]] const std::filesystem::path& obtainPath() const noexcept { return m_path; }

private:
    std::filesystem::path m_path;
};

/// The content of a file; empty if there is none.
[[nodiscard]] std::string readFile(const std::string& fileName);

#endif
