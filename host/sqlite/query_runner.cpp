#include "sqlite/query_runner.h"

#include <chrono>
#include <utility>

#include "engine/failures.h"
#include "host_error.h"
#include "sqlite/query_guard.h"

namespace host {
namespace {

/// The most that the engine may allocate while statements from outside run. Bytes.
constexpr sqlite3_int64 kMaxHeapBytes = sqlite3_int64{512} * 1024 * 1024;

/// Makes the engine connect every virtual table. Some modules then prepare their writing statements; a guard would
/// refuse these, and with them all reading of the table.
const SqliteDatabase& connectVirtualTables(const SqliteDatabase& database) {
    for (const std::string& name : database.listVirtualTables("main")) {
        const std::string sql = "SELECT 1 FROM main." + quoteIdentifier(name);
        sqlite3_stmt* statement = nullptr;
        // A table of a missing module fails here, and again in the statement that uses it.
        sqlite3_prepare_v2(database.obtainHandle(), sql.c_str(), -1, &statement, nullptr);
        sqlite3_finalize(statement);
    }
    return database;
}

Cell::Kind chooseKind(int type) {
    switch (type) {
        case SQLITE_NULL:
            return Cell::Kind::Null;
        case SQLITE_INTEGER:
        case SQLITE_FLOAT:
            return Cell::Kind::Number;
        case SQLITE_BLOB:
            return Cell::Kind::Blob;
        default:
            return Cell::Kind::Text;
    }
}

class ScriptRun {
public:
    ScriptRun(const SqliteDatabase& database, const QueryLimits& limits, RowReceiver& receiver)
        : m_database(connectVirtualTables(database)),
          m_limits(limits),
          m_rows(limits, receiver),
          m_guard(database.obtainHandle(), limits.maxTime) {}

    std::size_t run(const std::string& script) {
        if (script.find('\0') != std::string::npos) {
            failSql("it contains a NUL character");
        }
        std::size_t count = 0;
        const char* rest = script.c_str();
        while (*rest != '\0') {
            if (const SqliteStatementHandle statement = prepareNext(rest)) {
                runStatement(statement.get());
                ++count;
            }
        }
        return count;
    }

private:
    [[nodiscard]] SqliteStatementHandle prepareNext(const char*& rest) {
        sqlite3_stmt* statement = nullptr;
        const int code = sqlite3_prepare_v2(m_database.obtainHandle(), rest, -1, &statement, &rest);
        SqliteStatementHandle handle(statement);
        if (code != SQLITE_OK) {
            fail(code);
        }
        // The engine does not ask the authorizer about VACUUM and similar statements.
        if (statement != nullptr && sqlite3_stmt_readonly(statement) == 0) {
            failRefused("the statement would write");
        }
        if (statement != nullptr && sqlite3_bind_parameter_count(statement) > 0) {
            failSql("it has a parameter without a value; ask for SQL without parameters");
        }
        return handle;
    }

    void runStatement(sqlite3_stmt* statement) {
        const int columnCount = sqlite3_column_count(statement);
        std::vector<std::string> columns;
        for (int i = 0; i < columnCount; ++i) {
            const char* name = sqlite3_column_name(statement, i);
            columns.emplace_back(name != nullptr ? name : "");
        }
        m_rows.beginResult(columns);
        int code = SQLITE_DONE;
        while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
            if (!passOn(readRow(statement, columnCount))) {
                break;
            }
        }
        if (code != SQLITE_ROW && code != SQLITE_DONE) {
            fail(code);
        }
        m_rows.endResult();
    }

    /// Passes a row on; the receiver's time does not count as the statement's time.
    [[nodiscard]] bool passOn(std::vector<Cell> row) {
        const auto start = std::chrono::steady_clock::now();
        const bool isMoreWanted = m_rows.addRow(std::move(row));
        m_guard.extendTime(std::chrono::steady_clock::now() - start);
        return isMoreWanted;
    }

    [[nodiscard]] std::vector<Cell> readRow(sqlite3_stmt* statement, int columnCount) const {
        std::vector<Cell> row;
        row.reserve(static_cast<std::size_t>(columnCount));
        for (int i = 0; i < columnCount; ++i) {
            row.push_back(readCell(statement, i));
        }
        return row;
    }

    [[nodiscard]] Cell readCell(sqlite3_stmt* statement, int column) const {
        const Cell::Kind kind = chooseKind(sqlite3_column_type(statement, column));
        if (kind == Cell::Kind::Null) {
            return {};
        }
        const void* bytes =
            kind == Cell::Kind::Blob ? sqlite3_column_blob(statement, column) : sqlite3_column_text(statement, column);
        if (bytes == nullptr && sqlite3_errcode(m_database.obtainHandle()) == SQLITE_NOMEM) {
            fail(SQLITE_NOMEM);
        }
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        return makeCell(kind, {bytes != nullptr ? static_cast<const char*>(bytes) : "", bytes != nullptr ? size : 0},
                        m_limits);
    }

    [[noreturn]] void fail(int code) const {
        if (m_guard.isTimeOver()) {
            failTimeout(m_limits.maxTime);
        }
        if (!m_guard.obtainRefusal().empty()) {
            failRefused(m_guard.obtainRefusal());
        }
        if (isDatabaseFailure(code)) {
            throw HostError(ExitCode::Database, m_database.describeFailure());
        }
        failSql(sqlite3_errmsg(m_database.obtainHandle()));
    }

    const SqliteDatabase& m_database;
    const QueryLimits& m_limits;
    LimitedReceiver m_rows;
    QueryGuard m_guard;
};

}  // namespace

QueryRunner::QueryRunner(const SqliteDatabase& database, QueryLimits limits) : m_database(database), m_limits(limits) {
    sqlite3_hard_heap_limit64(kMaxHeapBytes);
}

std::size_t QueryRunner::run(const std::string& script, RowReceiver& receiver) const {
    return ScriptRun(m_database, m_limits, receiver).run(script);
}

}  // namespace host
