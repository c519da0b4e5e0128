#ifndef TESTS_HOST_TEST_FOLDER_H
#define TESTS_HOST_TEST_FOLDER_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// A directory of one test, removed with it.
class TestFolder {
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    /// A path inside.
    [[nodiscard]] std::string name(const std::string& fileName) const { return (m_path / fileName).string(); }
    /// Writes a file and gives its path.
    std::string write(const std::string& fileName, std::string_view content) const;
    /// Makes a SQLite database with a script and gives its path.
    [[nodiscard]] std::string makeDatabase(const std::string& fileName, const std::string& script) const;
    /// The names of the files inside, in order.
    [[nodiscard]] std::vector<std::string> list() const;

private:
    std::filesystem::path m_path;
};

[[nodiscard]] std::string readFile(const std::string& fileName);

#endif
