#ifndef TESTS_HOST_TEST_FOLDER_H
#define TESTS_HOST_TEST_FOLDER_H

#include <string>

#include "temporary_folder.h"

/// A temporary folder that can hold SQLite databases.
class TestFolder : public TemporaryFolder {
public:
    /// Makes a SQLite database with a script and returns its path.
    [[nodiscard]] std::string makeDatabase(const std::string& fileName, const std::string& script) const;
};

#endif
