#ifndef TESTS_HOST_DEBIAN_PACKAGE_H
#define TESTS_HOST_DEBIAN_PACKAGE_H

#include <cstddef>
#include <ostream>
#include <string>

#include "test_folder.h"

/// A Debian package, downloaded, not installed: the schemas in it were written by nobody here.
class DebianPackage {
public:
    /// Downloads it with apt-get, whose lists are brought up to date where they do not know it. Throws
    /// std::runtime_error.
    explicit DebianPackage(const std::string& name);

    /// The content of a file of the package; one that ends in ".gz" is decompressed.
    /// @param path  without a slash in front ("usr/share/...")
    [[nodiscard]] std::string read(const std::string& path) const;

private:
    TestFolder m_folder;
};

/// Where a package keeps its schema, and what is in it at least.
struct PackagedSchema {
    const char* package;
    const char* path;
    std::size_t tables;
    std::size_t foreignKeys;
};

/// Names a test's parameter by its package.
inline void PrintTo(const PackagedSchema& schema, std::ostream* output) {
    *output << schema.package;
}

#endif
