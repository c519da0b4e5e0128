#include "debian_package.h"

#include <zlib.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

bool runInShell(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

std::string readCompressed(const std::string& fileName) {
    const std::unique_ptr<gzFile_s, int (*)(gzFile)> file(gzopen(fileName.c_str(), "rb"), &gzclose);
    if (file == nullptr) {
        throw std::runtime_error("cannot read " + fileName);
    }
    std::string content;
    std::array<char, 65536> part{};
    int count = 0;
    while ((count = gzread(file.get(), part.data(), part.size())) > 0) {
        content.append(part.data(), static_cast<std::size_t>(count));
    }
    return content;
}

}  // namespace

DebianPackage::DebianPackage(const std::string& name) {
    const std::string download =
        "cd '" + m_folder.name("") + "' && apt-get -qq -o APT::Sandbox::User=root download " + name + " >log 2>&1";
    // One update at a time: apt-get does not wait for another one, and tests run beside each other.
    const std::string update = "flock /tmp/kai-apt-lists.lock apt-get -qq update >/dev/null 2>&1";
    if (!runInShell(download) && !(runInShell(update) && runInShell(download))) {
        throw std::runtime_error("cannot download the package " + name + ": " + readFile(m_folder.name("log")));
    }
}

std::string DebianPackage::read(const std::string& path) const {
    const std::string fileName = m_folder.name(path);
    if (!runInShell("cd '" + m_folder.name("") + "' && dpkg-deb --fsys-tarfile *.deb | tar -x ./" + path)) {
        throw std::runtime_error("the package has no file " + path);
    }
    return fileName.ends_with(".gz") ? readCompressed(fileName) : readFile(fileName);
}
