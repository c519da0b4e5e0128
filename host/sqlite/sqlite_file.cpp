#include "sqlite/sqlite_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// The part of a database file on which SQLite's own locks are: pending, reserved and shared.
constexpr off_t kLockStart = 0x40000000;
constexpr off_t kLockBytes = 2 + 510;

bool isInWriteAheadMode(const std::string& fileName) {
    std::array<char, 20> head{};
    const int descriptor = open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool isWhole = pread(descriptor, head.data(), head.size(), 0) == static_cast<ssize_t>(head.size());
    close(descriptor);
    constexpr std::string_view kMagic{"SQLite format 3\0", 16};
    return isWhole && std::string_view(head.data(), kMagic.size()) == kMagic && head[18] == 2 && head[19] == 2;
}

bool exists(const std::string& fileName) {
    return access(fileName.c_str(), F_OK) == 0;
}

bool isFilled(const std::string& fileName) {
    struct stat status {};
    return stat(fileName.c_str(), &status) == 0 && status.st_size > 0;
}

/// Removes the index of a log unless somebody uses the database: every user holds one of SQLite's locks.
void removeIndex(const std::string& fileName) {
    const int descriptor = open(fileName.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        return;
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = kLockStart;
    lock.l_len = kLockBytes;
    if (fcntl(descriptor, F_SETLK, &lock) == 0) {
        unlink((fileName + "-shm").c_str());
    }
    close(descriptor);
}

}  // namespace

void failToOpen(const std::string& fileName, const std::string& reason) {
    throw HostError(ExitCode::Database, "cannot open the database '" + makeOneLine(fileName) + "': " + reason);
}

SqliteFile::SqliteFile(const std::string& fileName) : m_fileName(fileName) {
    if (stat(fileName.c_str(), &m_status) != 0) {
        if (errno == ENOENT) {
            failToOpen(fileName, "there is no such file; check the name given with --db");
        }
        failToOpen(fileName, std::string(std::strerror(errno)) + "; check the name and its permissions");
    }
    if (S_ISDIR(m_status.st_mode)) {
        failToOpen(fileName, "it is a directory; name a SQLite file with --db");
    }
    if (!S_ISREG(m_status.st_mode)) {
        failToOpen(fileName, "it is a pipe, a socket or a device; name a SQLite file with --db");
    }
    if (isInWriteAheadMode(fileName)) {
        const bool hasIndex = exists(fileName + "-shm");
        // A program that uses the database has both files; an empty log without an index was left behind.
        m_isReadAlone = !exists(fileName + "-wal") || (!isFilled(fileName + "-wal") && !hasIndex);
        m_isIndexOwn = !m_isReadAlone && !hasIndex;
    }
}

SqliteFile::~SqliteFile() {
    if (m_isIndexOwn) {
        removeIndex(m_fileName);
    }
}

std::string SqliteFile::makeUri() const {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    // An absolute path follows an empty authority, because it may begin with several slashes.
    std::string uri = m_fileName.starts_with('/') ? "file://" : "file:./";
    for (const char character : m_fileName) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '%' || character == '?' || character == '#') {
            uri += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
        } else {
            uri += character;
        }
    }
    return uri + (m_isReadAlone ? "?immutable=1" : "");
}

bool SqliteFile::isChanged() const {
    struct stat now {};
    return stat(m_fileName.c_str(), &now) != 0 || now.st_ino != m_status.st_ino || now.st_size != m_status.st_size ||
           now.st_mtim.tv_sec != m_status.st_mtim.tv_sec || now.st_mtim.tv_nsec != m_status.st_mtim.tv_nsec ||
           isFilled(m_fileName + "-wal");
}

}  // namespace host
