#ifndef CF_TESTING_TEMPORARY_FOLDER_H
#define CF_TESTING_TEMPORARY_FOLDER_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// A directory of its own that only this user can read, removed with everything in it at the end.
class TemporaryFolder {
public:
    /// Throws std::runtime_error when it cannot be made.
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The path of a file inside, whether it exists or not.
    [[nodiscard]] std::string name(const std::string& fileName) const { return (m_path / fileName).string(); }
    /// Writes a file and returns its path. Throws std::runtime_error when it cannot be written.
    std::string write(const std::string& fileName, std::string_view content) const;
    /// The names of the files inside, sorted.
    [[nodiscard]] std::vector<std::string> list() const;
    [[nodiscard]] const std::filesystem::path& obtainPath() const noexcept { return m_path; }

private:
    std::filesystem::path m_path;
};

/// The content of a file; empty when there is none.
[[nodiscard]] std::string readFile(const std::string& fileName);

#endif
