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

/// A SQLite file, opened so that nothing done with it can change it, or any other file.
///
/// The engine itself makes the connection read-only: the file is opened read-only, `query_only` is on, nothing can be
/// attached, extensions and the two-argument fts3_tokenizer are off, and expressions in the schema are not trusted.
/// Statements from outside run in a QueryRunner, which also sets an authorizer for each action. It leaves no new file
/// behind. One thread at a time.
class SqliteDatabase {
public:
    /// Opens a file and reads its header.
    /// @param fileName  a path; it is never used as a URI or a special name
    /// Throws HostError (Database) with what is wrong and what to do.
    explicit SqliteDatabase(const std::string& fileName);

    [[nodiscard]] sqlite3* obtainHandle() const noexcept { return m_handle.get(); }

    /// The names of a schema's virtual tables.
    [[nodiscard]] std::vector<std::string> listVirtualTables(const std::string& schema) const;

    /// Must be called after reading. Throws HostError (Database) if another program may have changed the file without
    /// this connection noticing.
    void checkUnchanged() const;

    /// Prepares one of the program's own statements. Throws HostError (Database).
    [[nodiscard]] SqliteStatementHandle prepare(const std::string& sql) const;

    /// Moves to the next row of one of the program's own statements.
    /// @return whether there is one. Throws HostError (Database) on a failure.
    bool step(const SqliteStatementHandle& statement) const;

    /// The last failure of this connection in one line for the user, with the file's name.
    [[nodiscard]] std::string describeFailure() const;

private:
    void open();

    std::string m_fileName;
    SqliteFile m_file;
    std::unique_ptr<sqlite3, SqliteCloser> m_handle;
};

/// Whether a result code is about the file (locked, damaged, unreadable) and not about the statement.
[[nodiscard]] bool isDatabaseFailure(int resultCode) noexcept;

/// A column of the current row as text; empty for NULL. NUL bytes inside it are kept.
[[nodiscard]] std::string readColumnText(sqlite3_stmt* statement, int column);

/// A name in double quotes, with double quotes in it doubled.
[[nodiscard]] std::string quoteIdentifier(std::string_view name);

}  // namespace host

#endif
