#include "test_folder.h"

#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

TestFolder::TestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "kai-host-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary directory");
    }
    m_path = name;
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(m_path, ignored);
}

std::string TestFolder::write(const std::string& fileName, std::string_view content) const {
    std::ofstream file(name(fileName), std::ios::binary);
    file << content;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + fileName);
    }
    return name(fileName);
}

std::string TestFolder::makeDatabase(const std::string& fileName, const std::string& script) const {
    sqlite3* handle = nullptr;
    const int code = sqlite3_open(name(fileName).c_str(), &handle);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(handle, &sqlite3_close);
    if (code != SQLITE_OK ||
        sqlite3_exec(handle, ("PRAGMA synchronous = OFF;" + script).c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(handle));
    }
    return name(fileName);
}

std::vector<std::string> TestFolder::list() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const std::string& fileName) {
    std::ifstream file(fileName, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
