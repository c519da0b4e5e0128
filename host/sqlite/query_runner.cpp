#include "sqlite/query_runner.h"

#include <algorithm>
#include <utility>

#include "host_error.h"
#include "sqlite/query_guard.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// What the engine may allocate in all while statements from outside run. Bytes.
constexpr sqlite3_int64 kMaxHeapBytes = sqlite3_int64{512} * 1024 * 1024;

[[noreturn]] void failSql(const std::string& reason) {
    throw HostError(ExitCode::SqlFailed, "the model's SQL failed: " + reason);
}

[[noreturn]] void failRefused(const std::string& what) {
    throw HostError(ExitCode::SqlFailed,
                    "the model's SQL was refused: " + makeOneLine(what) + " (kai runs SQL for reading only)");
}

/// Has the engine connect every virtual table, as the list of all tables needs it. Some modules prepare their writing
/// statements on that occasion, which a guard would refuse, and with them all reading of the table.
const SqliteDatabase& connectVirtualTables(const SqliteDatabase& database) {
    const SqliteStatementHandle statement = database.prepare("PRAGMA table_list");
    while (database.step(statement)) {
    }
    return database;
}

class ScriptRun {
public:
    ScriptRun(const SqliteDatabase& database, const QueryLimits& limits, const std::function<bool()>& isStopped)
        : m_database(connectVirtualTables(database)),
          m_limits(limits),
          m_guard(database.obtainHandle(), limits.maxTime, isStopped) {}

    std::size_t run(const std::string& script, const std::function<void(const ResultTable&)>& receive) {
        if (script.find('\0') != std::string::npos) {
            failSql("it contains a NUL character");
        }
        std::size_t count = 0;
        const char* rest = script.c_str();
        while (*rest != '\0') {
            if (const SqliteStatementHandle statement = prepareNext(rest)) {
                receive(runStatement(statement.get()));
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
        // VACUUM and the like are nothing that the authorizer is asked about.
        if (statement != nullptr && sqlite3_stmt_readonly(statement) == 0) {
            failRefused("the statement would write");
        }
        if (statement != nullptr && sqlite3_bind_parameter_count(statement) > 0) {
            failSql("it has a parameter without a value; ask for SQL without parameters");
        }
        return handle;
    }

    [[nodiscard]] ResultTable runStatement(sqlite3_stmt* statement) {
        ResultTable table;
        const int columnCount = sqlite3_column_count(statement);
        for (int i = 0; i < columnCount; ++i) {
            const char* name = sqlite3_column_name(statement, i);
            table.columns.emplace_back(name != nullptr ? name : "");
        }
        int code = SQLITE_ROW;
        while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
            if (table.rows.size() == m_limits.maxRows) {
                table.hasMoreRows = true;
                return table;
            }
            table.rows.push_back(readRow(statement, columnCount));
        }
        if (code != SQLITE_DONE) {
            fail(code);
        }
        return table;
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
        Cell cell;
        switch (sqlite3_column_type(statement, column)) {
            case SQLITE_NULL:
                return cell;
            case SQLITE_INTEGER:
            case SQLITE_FLOAT:
                cell.kind = Cell::Kind::Number;
                break;
            case SQLITE_BLOB:
                cell.kind = Cell::Kind::Blob;
                break;
            default:
                cell.kind = Cell::Kind::Text;
        }
        const void* bytes = cell.kind == Cell::Kind::Blob ? sqlite3_column_blob(statement, column)
                                                          : sqlite3_column_text(statement, column);
        if (bytes == nullptr && sqlite3_errcode(m_database.obtainHandle()) == SQLITE_NOMEM) {
            fail(SQLITE_NOMEM);
        }
        cell.size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        cell.bytes.assign(bytes != nullptr ? static_cast<const char*>(bytes) : "",
                          bytes != nullptr ? std::min(cell.size, m_limits.maxCellBytes) : 0);
        return cell;
    }

    [[noreturn]] void fail(int code) const {
        if (m_guard.wasStopped()) {
            throw HostError(ExitCode::Cancelled, "the SQL was cancelled");
        }
        if (m_guard.isTimeOver()) {
            failSql("it ran longer than the limit of " + std::to_string(m_limits.maxTime.count() / 1000) +
                    " s; ask for a simpler statement or raise --sql-timeout");
        }
        if (!m_guard.obtainRefusal().empty()) {
            failRefused(m_guard.obtainRefusal());
        }
        if (isDatabaseFailure(code)) {
            throw HostError(ExitCode::Database, m_database.describeFailure());
        }
        failSql(makeOneLine(sqlite3_errmsg(m_database.obtainHandle())));
    }

    const SqliteDatabase& m_database;
    const QueryLimits& m_limits;
    QueryGuard m_guard;
};

}  // namespace

QueryRunner::QueryRunner(const SqliteDatabase& database, QueryLimits limits, std::function<bool()> isStopped)
    : m_database(database), m_limits(limits), m_isStopped(std::move(isStopped)) {
    sqlite3_hard_heap_limit64(kMaxHeapBytes);
}

std::size_t QueryRunner::run(const std::string& script, const std::function<void(const ResultTable&)>& receive) const {
    return ScriptRun(m_database, m_limits, m_isStopped).run(script, receive);
}

}  // namespace host
