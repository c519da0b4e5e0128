#ifndef TESTS_HOST_DEBIAN_PACKAGE_H
#define TESTS_HOST_DEBIAN_PACKAGE_H

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

#endif
