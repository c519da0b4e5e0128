// Makes a SQLite database from a script: kai-sample-database SCRIPT DATABASE
// The database appears whole or not at all; an existing file is replaced.

#include <sqlite3.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

namespace {

bool readFile(const std::string& fileName, std::string& content) {
    std::ifstream file(fileName, std::ios::binary);
    content.assign(std::istreambuf_iterator<char>(file), {});
    return file.good();
}

/// Runs the script on a new database file.
/// @return the error; empty on success
std::string makeDatabase(const std::string& script, const std::string& fileName) {
    sqlite3* handle = nullptr;
    const int openCode =
        sqlite3_open_v2(fileName.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(handle, &sqlite3_close);
    if (openCode != SQLITE_OK || sqlite3_exec(handle, script.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        return sqlite3_errmsg(handle);
    }
    return {};
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 3) {
        std::cerr << "usage: kai-sample-database SCRIPT DATABASE\n";
        return 2;
    }
    std::string script;
    if (!readFile(arguments[1], script)) {
        std::cerr << "kai-sample-database: cannot read the script '" << arguments[1] << "'\n";
        return 1;
    }
    const std::string target = arguments[2];
    const std::string unfinished = target + ".unfinished";
    std::remove(unfinished.c_str());
    if (const std::string error = makeDatabase(script, unfinished); !error.empty()) {
        std::cerr << "kai-sample-database: " << error << '\n';
        std::remove(unfinished.c_str());
        return 1;
    }
    if (std::rename(unfinished.c_str(), target.c_str()) != 0) {
        std::cerr << "kai-sample-database: cannot write '" << target << "'\n";
        return 1;
    }
    return 0;
}
