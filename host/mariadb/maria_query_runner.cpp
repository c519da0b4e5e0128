#include "mariadb/maria_query_runner.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <vector>

#include "engine/failures.h"
#include "engine/run_clock.h"
#include "engine/script_splitter.h"

namespace host {
namespace {

constexpr ScriptSyntax kSyntax{.hasBackslashEscapes = true,
                               .hasEscapeTexts = false,
                               .hasBackquotes = true,
                               .hasDollarQuotes = false,
                               .hasHashComments = true,
                               .hasNestedComments = false};

/// Functions that act outside the transaction: on other sessions, files or the server. "*" stands for any rest.
constexpr auto kRefusedFunctions = std::to_array<std::string_view>(
    {"LOAD_FILE", "GET_LOCK", "RELEASE_LOCK", "RELEASE_ALL_LOCKS", "MASTER_POS_WAIT", "MASTER_GTID_WAIT",
     "SOURCE_POS_WAIT", "WAIT_FOR_EXECUTED_GTID_SET", "SETVAL", "NEXTVAL", "LASTVAL", "sys_exec", "sys_eval", "sys_set",
     "service_get_*", "service_release_locks", "asynchronous_connection_failover_*", "group_replication_*"});

constexpr unsigned int kReadOnlyTransaction = 1792;
constexpr unsigned int kReadOnlyServer = 1290;
constexpr unsigned int kStatementTimeOver = 1969;  ///< MariaDB's
constexpr unsigned int kQueryTimeOver = 3024;      ///< MySQL's
constexpr unsigned int kQueryInterrupted = 1317;
/// Errors from this number on are the client library's: the connection is lost.
constexpr unsigned int kFirstClientError = 2000;
constexpr unsigned int kLastClientError = 2999;

constexpr unsigned int kBinaryCharset = 63;

Cell::Kind chooseKind(const MYSQL_FIELD& field) {
    switch (field.type) {
        case MYSQL_TYPE_TINY:
        case MYSQL_TYPE_SHORT:
        case MYSQL_TYPE_LONG:
        case MYSQL_TYPE_LONGLONG:
        case MYSQL_TYPE_INT24:
        case MYSQL_TYPE_FLOAT:
        case MYSQL_TYPE_DOUBLE:
        case MYSQL_TYPE_DECIMAL:
        case MYSQL_TYPE_NEWDECIMAL:
            return Cell::Kind::Number;
        case MYSQL_TYPE_BIT:
        case MYSQL_TYPE_GEOMETRY:
            return Cell::Kind::Blob;
        case MYSQL_TYPE_TINY_BLOB:
        case MYSQL_TYPE_MEDIUM_BLOB:
        case MYSQL_TYPE_LONG_BLOB:
        case MYSQL_TYPE_BLOB:
        case MYSQL_TYPE_VARCHAR:
        case MYSQL_TYPE_VAR_STRING:
        case MYSQL_TYPE_STRING:
            return field.charsetnr == kBinaryCharset ? Cell::Kind::Blob : Cell::Kind::Text;
        default:
            return Cell::Kind::Text;
    }
}

struct StatementCloser {
    void operator()(MYSQL_STMT* statement) const noexcept { mysql_stmt_close(statement); }
};

class MariaScriptRun {
public:
    MariaScriptRun(MariaConnection& connection, const QueryLimits& limits, RowReceiver& receiver)
        : m_connection(connection), m_limits(limits), m_clock(limits.maxTime), m_rows(limits, receiver) {}

    std::size_t run(const std::string& script) {
        if (script.find('\0') != std::string::npos) {
            failSql("it contains a NUL character");
        }
        const std::vector<std::string> statements = splitScript(script, kSyntax);
        for (const std::string& statement : statements) {
            refuseFunctions(statement);
            begin();
            checkIsQuery(statement);
            runQuery(statement);
            m_connection.execute("ROLLBACK");
        }
        return statements.size();
    }

private:
    static void refuseFunctions(const std::string& statement) {
        for (const std::string_view name : kRefusedFunctions) {
            if (containsWord(statement, name)) {
                failRefused("the function '" + std::string(name) + "'");
            }
        }
    }

    void begin() const {
        const std::string milliseconds = std::to_string(m_clock.obtainRest().count());
        m_connection.execute(m_connection.isMariaDb() ? "SET SESSION max_statement_time = " + milliseconds + " / 1000"
                                                      : "SET SESSION max_execution_time = " + milliseconds);
        m_connection.execute("START TRANSACTION READ ONLY");
    }

    /// Makes the server compile the statement, alone, and say what it returns.
    void checkIsQuery(const std::string& statement) const {
        const std::unique_ptr<MYSQL_STMT, StatementCloser> prepared(mysql_stmt_init(m_connection.obtainHandle()));
        if (prepared == nullptr) {
            m_connection.failLost();
        }
        if (mysql_stmt_prepare(prepared.get(), statement.data(), statement.size()) != 0) {
            fail(mysql_stmt_errno(prepared.get()), mysql_stmt_error(prepared.get()));
        }
        if (mysql_stmt_param_count(prepared.get()) > 0) {
            failSql("it has a parameter without a value; ask for SQL without parameters");
        }
        if (mysql_stmt_field_count(prepared.get()) == 0) {
            failRefused("the statement '" + readFirstWord(statement, kSyntax) + "', which is no query");
        }
    }

    void runQuery(const std::string& statement) {
        MYSQL* handle = m_connection.obtainHandle();
        if (mysql_real_query(handle, statement.data(), statement.size()) != 0) {
            fail(mysql_errno(handle), mysql_error(handle));
        }
        MariaResult result(mysql_use_result(handle));
        if (result == nullptr) {
            fail(mysql_errno(handle), mysql_error(handle));
        }
        if (passOnRows(result.get())) {
            if (mysql_errno(handle) != 0) {
                fail(mysql_errno(handle), mysql_error(handle));
            }
            // When the server stops them, some functions end without an error and return anything.
            if (m_clock.isOver()) {
                failTimeout(m_limits.maxTime);
            }
            m_rows.endResult();
            return;
        }
        m_rows.endResult();
        // Otherwise the library would read all remaining rows; without a connection there are none.
        shutdown(static_cast<int>(mysql_get_socket(handle)), SHUT_RDWR);
        result.reset();
        m_connection.reconnect();
    }

    /// @return whether all rows were wanted
    bool passOnRows(MYSQL_RES* result) {
        const MYSQL_FIELD* fields = mysql_fetch_fields(result);
        const unsigned int count = mysql_num_fields(result);
        std::vector<std::string> columns;
        for (unsigned int i = 0; i < count; ++i) {
            columns.emplace_back(fields[i].name, fields[i].name_length);
        }
        m_rows.beginResult(columns);
        while (MYSQL_ROW row = mysql_fetch_row(result)) {
            std::vector<Cell> cells = readRow(row, mysql_fetch_lengths(result), fields, count);
            if (!m_clock.pause([&] { return m_rows.addRow(std::move(cells)); })) {
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] std::vector<Cell> readRow(MYSQL_ROW row, const unsigned long* lengths, const MYSQL_FIELD* fields,
                                            unsigned int count) const {
        std::vector<Cell> cells;
        cells.reserve(count);
        for (unsigned int i = 0; i < count; ++i) {
            cells.push_back(row[i] == nullptr ? Cell()
                                              : makeCell(chooseKind(fields[i]), {row[i], lengths[i]}, m_limits));
        }
        return cells;
    }

    [[noreturn]] void fail(unsigned int code, const std::string& text) const {
        if (code == kStatementTimeOver || code == kQueryTimeOver || (code == kQueryInterrupted && m_clock.isOver())) {
            failTimeout(m_limits.maxTime);
        }
        if (code == kReadOnlyTransaction || code == kReadOnlyServer) {
            failRefused(text);
        }
        if (code >= kFirstClientError && code <= kLastClientError) {
            m_connection.failLost();
        }
        failSql(text);
    }

    MariaConnection& m_connection;
    const QueryLimits& m_limits;
    RunClock m_clock;
    LimitedReceiver m_rows;
};

}  // namespace

std::size_t runMariaScript(MariaConnection& connection, const std::string& script, const QueryLimits& limits,
                           RowReceiver& receiver) {
    return MariaScriptRun(connection, limits, receiver).run(script);
}

}  // namespace host
