#include "test_folder.h"

#include <sqlite3.h>

#include <memory>
#include <stdexcept>

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
