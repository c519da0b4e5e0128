#ifndef HOST_SQLITE_SQLITE_DATABASE_H
#define HOST_SQLITE_SQLITE_DATABASE_H

#include <sqlite3.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sqlite/sqlite_file.h"

namespace host {

struct SqliteCloser {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
};

struct SqliteFinalizer {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};

using SqliteStatementHandle = std::unique_ptr<sqlite3_stmt, SqliteFinalizer>;

/// A SQLite file, opened so that nothing done through it can change the file, or any other.
///
/// The connection is read-only by the engine's own means: it is opened read-only, `query_only` is on, nothing can be
/// attached, extensions and the two-argument fts3_tokenizer are off, and the schema's own expressions are not trusted.
/// Statements that come from outside run through a QueryRunner, which also asks an authorizer about each action.
/// It leaves no file behind that was not there before. One thread at a time.
class SqliteDatabase {
public:
    /// Opens a file and reads its header.
    /// @param fileName  a path; it is never read as a URI or as a name with a meaning of its own
    /// Throws HostError (Database) with what is wrong and what to do.
    explicit SqliteDatabase(const std::string& fileName);

    [[nodiscard]] sqlite3* obtainHandle() const noexcept { return m_handle.get(); }

    /// The names of a schema's virtual tables.
    [[nodiscard]] std::vector<std::string> listVirtualTables(const std::string& schema) const;

    /// To be called after reading. Throws HostError (Database) when another program may have changed the file meanwhile
    /// without this connection noticing.
    void checkUnchanged() const;

    /// Prepares one of the program's own statements. Throws HostError (Database).
    [[nodiscard]] SqliteStatementHandle prepare(const std::string& sql) const;

    /// Moves to the next row of one of the program's own statements.
    /// @return whether there is one. Throws HostError (Database) on a failure.
    bool step(const SqliteStatementHandle& statement) const;

    /// What the last failure of this connection means for the user, as one line that names the file.
    [[nodiscard]] std::string describeFailure() const;

private:
    void open();

    std::string m_fileName;
    SqliteFile m_file;
    std::unique_ptr<sqlite3, SqliteCloser> m_handle;
};

/// Whether a result code speaks of the file (locked, damaged, unreadable) rather than of the statement.
[[nodiscard]] bool isDatabaseFailure(int resultCode) noexcept;

/// A column of the current row as text; empty for NULL. NUL bytes inside it are kept.
[[nodiscard]] std::string readColumnText(sqlite3_stmt* statement, int column);

/// A name in double quotes, a double quote inside it doubled.
[[nodiscard]] std::string quoteIdentifier(std::string_view name);

}  // namespace host

#endif
