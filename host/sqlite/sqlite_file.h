#ifndef HOST_SQLITE_SQLITE_FILE_H
#define HOST_SQLITE_SQLITE_FILE_H

#include <sys/stat.h>

#include <string>

namespace host {

/// A SQLite file in the file system: how to open it so that no new file remains, and how to clean up afterwards.
///
/// A file in write-ahead mode has a log ("-wal") and an index of it in shared memory ("-shm") next to it while it is in
/// use. A reader would create both. If there is no log, the file is complete, and it is opened as immutable. If there
/// is a log, its index is removed afterwards if it did not exist before and nobody uses it.
class SqliteFile {
public:
    /// Examines the file without opening it. Throws HostError (Database) if it is not a file.
    explicit SqliteFile(const std::string& fileName);
    ~SqliteFile();
    SqliteFile(const SqliteFile&) = delete;
    SqliteFile& operator=(const SqliteFile&) = delete;

    /// Whether the file is read without a log, as immutable.
    [[nodiscard]] bool isReadAlone() const noexcept { return m_isReadAlone; }
    /// The name for sqlite3_open_v2() with SQLITE_OPEN_URI.
    [[nodiscard]] std::string makeUri() const;
    /// Whether the file or its log has changed.
    [[nodiscard]] bool isChanged() const;

private:
    std::string m_fileName;
    struct stat m_status {};
    bool m_isReadAlone = false;
    bool m_isIndexOwn = false;  ///< whether a "-shm" file that exists at the end is this program's
};

/// Throws HostError (Database): why a file cannot be opened.
[[noreturn]] void failToOpen(const std::string& fileName, const std::string& reason);

}  // namespace host

#endif
