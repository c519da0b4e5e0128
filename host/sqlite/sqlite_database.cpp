#include "sqlite/sqlite_database.h"

#include <new>

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// How long to wait for a lock of another program.
constexpr int kBusyMilliseconds = 2000;

/// Longer values are not read, and no statement can create them. Bytes.
constexpr int kMaxValueBytes = 16 * 1024 * 1024;

void lockDown(sqlite3* handle) {
    sqlite3_busy_timeout(handle, kBusyMilliseconds);
    sqlite3_extended_result_codes(handle, 1);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_FTS3_TOKENIZER, 0, nullptr);
    sqlite3_limit(handle, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, kMaxValueBytes);
    sqlite3_limit(handle, SQLITE_LIMIT_SQL_LENGTH, kMaxValueBytes);
    sqlite3_limit(handle, SQLITE_LIMIT_WORKER_THREADS, 0);
}

std::string describeCode(int code, const char* engineText) {
    switch (code & 0xFF) {
        case SQLITE_NOTADB:
            return "it is not a SQLite database (or it is encrypted); name a SQLite file with --db";
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return "it is locked by another program; close that program or its transaction and try again";
        case SQLITE_CORRUPT:
            return "it is damaged (" + makeOneLine(engineText) + "); restore it from a backup";
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return "it cannot be read; check the permissions of the file and of its directory";
        case SQLITE_IOERR:
            return "it cannot be read as a file; name a SQLite file with --db, or check the disk";
        case SQLITE_READONLY:
            return "it has an unfinished transaction that a read-only program cannot clear; open it once with a "
                   "program "
                   "that may write to it";
        default:
            return makeOneLine(engineText);
    }
}

}  // namespace

SqliteDatabase::SqliteDatabase(const std::string& fileName) : m_fileName(fileName), m_file(fileName) {
    open();
    lockDown(m_handle.get());
    const SqliteStatementHandle queryOnly = prepare("PRAGMA query_only = 1");
    step(queryOnly);
    // The first read shows whether the file is a database at all, and whether it is locked.
    const SqliteStatementHandle firstRead = prepare("SELECT count(*) FROM sqlite_schema");
    step(firstRead);
}

void SqliteDatabase::open() {
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(
        m_file.makeUri().c_str(), &handle,
        SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE, nullptr);
    m_handle.reset(handle);
    if (handle == nullptr) {
        throw std::bad_alloc();
    }
    if (code != SQLITE_OK) {
        failToOpen(m_fileName, describeCode(code, sqlite3_errmsg(handle)));
    }
}

std::vector<std::string> SqliteDatabase::listVirtualTables(const std::string& schema) const {
    // Only virtual tables have no page of their own.
    const SqliteStatementHandle statement =
        prepare("SELECT name FROM " + quoteIdentifier(schema) + ".sqlite_schema WHERE type = 'table' AND rootpage = 0");
    std::vector<std::string> names;
    while (step(statement)) {
        names.push_back(readColumnText(statement.get(), 0));
    }
    return names;
}

void SqliteDatabase::checkUnchanged() const {
    if (m_file.isReadAlone() && m_file.isChanged()) {
        throw HostError(ExitCode::Database, "the database '" + makeOneLine(m_fileName) +
                                                "' was changed by another program while it was read; try again");
    }
}

SqliteStatementHandle SqliteDatabase::prepare(const std::string& sql) const {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(m_handle.get(), sql.c_str(), static_cast<int>(sql.size()) + 1, &statement, nullptr) !=
        SQLITE_OK) {
        throw HostError(ExitCode::Database, describeFailure());
    }
    return SqliteStatementHandle(statement);
}

bool SqliteDatabase::step(const SqliteStatementHandle& statement) const {
    const int code = sqlite3_step(statement.get());
    if (code != SQLITE_ROW && code != SQLITE_DONE) {
        throw HostError(ExitCode::Database, describeFailure());
    }
    return code == SQLITE_ROW;
}

std::string SqliteDatabase::describeFailure() const {
    return "cannot read the database '" + makeOneLine(m_fileName) +
           "': " + describeCode(sqlite3_extended_errcode(m_handle.get()), sqlite3_errmsg(m_handle.get()));
}

bool isDatabaseFailure(int resultCode) noexcept {
    switch (resultCode & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_IOERR:
        case SQLITE_CORRUPT:
        case SQLITE_CANTOPEN:
        case SQLITE_NOTADB:
        case SQLITE_PERM:
        case SQLITE_PROTOCOL:
            return true;
        default:
            return false;
    }
}

std::string readColumnText(sqlite3_stmt* statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    if (text == nullptr) {
        return {};
    }
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

std::string quoteIdentifier(std::string_view name) {
    std::string quoted = "\"";
    for (const char character : name) {
        quoted += character;
        if (character == '"') {
            quoted += '"';
        }
    }
    return quoted + '"';
}

}  // namespace host
