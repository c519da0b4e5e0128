#ifndef HOST_SQLITE_SQLITE_FILE_H
#define HOST_SQLITE_SQLITE_FILE_H

#include <sys/stat.h>

#include <string>

namespace host {

/// A SQLite file as the system sees it: how it is to be opened so that nothing is left beside it, and what has to be
/// cleared away afterwards.
///
/// A file in write-ahead mode has a log ("-wal") and an index of it in shared memory ("-shm") beside it while it is in
/// use. A reader would make both. Where there is no log, the file is complete and is read alone, as one that nobody
/// changes; where there is one, its index is removed again if it was not there before and nobody uses it.
class SqliteFile {
public:
    /// Looks at the file without opening it. Throws HostError (Database) where it is no file.
    explicit SqliteFile(const std::string& fileName);
    ~SqliteFile();
    SqliteFile(const SqliteFile&) = delete;
    SqliteFile& operator=(const SqliteFile&) = delete;

    /// Whether the file is read alone.
    [[nodiscard]] bool isReadAlone() const noexcept { return m_isReadAlone; }
    /// The name for sqlite3_open_v2() with SQLITE_OPEN_URI.
    [[nodiscard]] std::string makeUri() const;
    /// Whether the file, or its log, is another than it was.
    [[nodiscard]] bool isChanged() const;

private:
    std::string m_fileName;
    struct stat m_status {};
    bool m_isReadAlone = false;
    bool m_isIndexOwn = false;  ///< the "-shm" file, if there is one in the end, is this program's
};

/// Throws HostError (Database): a file cannot be opened, and why.
[[noreturn]] void failToOpen(const std::string& fileName, const std::string& reason);

}  // namespace host

#endif
