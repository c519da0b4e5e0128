#include "postgresql/pg_query_runner.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/failures.h"
#include "engine/run_clock.h"
#include "engine/script_splitter.h"
#include "host_error.h"

namespace host {
namespace {

constexpr ScriptSyntax kSyntax{.hasBackslashEscapes = false,
                               .hasEscapeTexts = true,
                               .hasBackquotes = false,
                               .hasDollarQuotes = true,
                               .hasHashComments = false,
                               .hasNestedComments = true};

/// Functions that act outside the transaction: on other sessions, files, the server, other servers, large objects, or
/// by running SQL that is given as a text. "*" stands for any rest.
constexpr auto kRefusedFunctions = std::to_array<std::string_view>({"set_config",
                                                                    "dblink*",
                                                                    "lo_export",
                                                                    "lo_import",
                                                                    "lo_creat",
                                                                    "lo_create",
                                                                    "lo_from_bytea",
                                                                    "lo_open",
                                                                    "lo_put",
                                                                    "lo_truncate*",
                                                                    "lo_unlink",
                                                                    "lowrite",
                                                                    "pg_advisory_*",
                                                                    "pg_try_advisory_*",
                                                                    "pg_terminate_backend",
                                                                    "pg_cancel_backend",
                                                                    "pg_reload_conf",
                                                                    "pg_rotate_logfile*",
                                                                    "pg_read_file*",
                                                                    "pg_read_binary_file",
                                                                    "pg_ls_*",
                                                                    "pg_stat_file",
                                                                    "pg_file_*",
                                                                    "pg_switch_wal",
                                                                    "pg_create_*",
                                                                    "pg_drop_replication_slot",
                                                                    "pg_copy_*_slot",
                                                                    "pg_logical_*",
                                                                    "pg_replication_*",
                                                                    "pg_promote",
                                                                    "pg_wal_replay_*",
                                                                    "pg_start_backup",
                                                                    "pg_stop_backup",
                                                                    "pg_backup_*",
                                                                    "pg_stat_reset*",
                                                                    "pg_stat_statements_reset",
                                                                    "pg_export_snapshot",
                                                                    "pg_notify",
                                                                    "pg_log_*",
                                                                    "pg_import_system_collations",
                                                                    "pg_prewarm",
                                                                    "query_to_xml*",
                                                                    "cursor_to_xml*",
                                                                    "ts_stat",
                                                                    "ts_rewrite",
                                                                    "connectby",
                                                                    "crosstab*",
                                                                    "xpath_table"});

/// Types, with their fixed numbers.
constexpr Oid kBooleanType = 16;
constexpr Oid kBlobType = 17;
constexpr std::array<Oid, 7> kNumberTypes{20, 21, 23, 26, 700, 701, 1700};

Cell::Kind chooseKind(Oid type, std::string_view value) {
    if (type == kBooleanType) {
        return Cell::Kind::Boolean;
    }
    if (type == kBlobType) {
        return Cell::Kind::Blob;
    }
    const bool isNumber = std::find(kNumberTypes.begin(), kNumberTypes.end(), type) != kNumberTypes.end();
    // "NaN" and "Infinity" are not numbers in the result's formats.
    const bool hasDigits = !value.empty() && value.find_first_of("NI") == std::string_view::npos;
    return isNumber && hasDigits ? Cell::Kind::Number : Cell::Kind::Text;
}

int readHexDigit(char character) {
    return character <= '9' ? character - '0' : (character | 0x20) - 'a' + 10;
}

/// Decodes "\x00ff", up to the limit.
Cell makeBlob(std::string_view text, const QueryLimits& limits) {
    text.remove_prefix(std::min<std::size_t>(text.size(), 2));
    const std::size_t size = text.size() / 2;
    const std::size_t kept = limits.maxCellBytes == 0 ? size : std::min(size, limits.maxCellBytes);
    Cell cell{Cell::Kind::Blob, {}, size};
    cell.bytes.reserve(kept);
    for (std::size_t i = 0; i < kept; ++i) {
        cell.bytes += static_cast<char>(readHexDigit(text[2 * i]) * 16 + readHexDigit(text[2 * i + 1]));
    }
    return cell;
}

Cell readCell(const PGresult* result, int column, const QueryLimits& limits) {
    if (PQgetisnull(result, 0, column) != 0) {
        return {};
    }
    const std::string_view value = readPgText(result, 0, column);
    const Cell::Kind kind = chooseKind(PQftype(result, column), value);
    switch (kind) {
        case Cell::Kind::Blob:
            return makeBlob(value, limits);
        case Cell::Kind::Boolean:
            return makeCell(kind, value == "t" ? "true" : "false", limits);
        default:
            return makeCell(kind, value, limits);
    }
}

std::string readErrorField(const PGresult* result, int field) {
    const char* text = PQresultErrorField(result, field);
    return text != nullptr ? text : "";
}

class PgScriptRun {
public:
    PgScriptRun(const PgConnection& connection, const QueryLimits& limits, RowReceiver& receiver)
        : m_connection(connection),
          m_handle(connection.obtainHandle()),
          m_limits(limits),
          m_clock(limits.maxTime),
          m_rows(limits, receiver) {}

    std::size_t run(const std::string& script) {
        if (script.find('\0') != std::string::npos) {
            failSql("it contains a NUL character");
        }
        const std::vector<std::string> statements = splitScript(script, kSyntax);
        for (const std::string& statement : statements) {
            refuseFunctions(statement);
            begin();
            prepare(statement);
            runPrepared();
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
        // A name in this form can be any of these names.
        if (containsWord(statement, "U&\"*")) {
            failRefused("a name or text in the form U&\"...\"");
        }
    }

    void begin() const {
        m_connection.execute("BEGIN READ ONLY; SET LOCAL statement_timeout = " +
                             std::to_string(m_clock.obtainRest().count()));
        if (m_connection.isSuperuser()) {
            m_connection.execute("SET LOCAL ROLE pg_read_all_data");
        }
    }

    void prepare(const std::string& statement) const {
        check(PgResult(PQprepare(m_handle, "", statement.c_str(), 0, nullptr)), PGRES_COMMAND_OK);
        const PgResult description(PQdescribePrepared(m_handle, ""));
        if (PQresultStatus(description.get()) != PGRES_COMMAND_OK) {
            fail(description.get());
        }
        if (PQnparams(description.get()) > 0) {
            failSql("it has a parameter without a value; ask for SQL without parameters");
        }
        if (PQnfields(description.get()) == 0) {
            failRefused("the statement '" + readFirstWord(statement, kSyntax) + "', which is no query");
        }
    }

    void runPrepared() {
        if (PQsendQueryPrepared(m_handle, "", 0, nullptr, nullptr, nullptr, 0) == 0 ||
            PQsetSingleRowMode(m_handle) == 0) {
            m_connection.failLost();
        }
        m_isCancelled = false;
        bool isBegun = false;
        bool isMoreWanted = true;
        while (const PgResult result = receiveResult()) {
            const ExecStatusType status = PQresultStatus(result.get());
            if (status != PGRES_SINGLE_TUPLE && status != PGRES_TUPLES_OK) {
                if (isMoreWanted) {
                    fail(result.get());
                }
                continue;  // the end of a statement that was cancelled because its result is truncated
            }
            if (!isBegun) {
                m_rows.beginResult(readColumns(result.get()));
                isBegun = true;
            }
            if (status == PGRES_SINGLE_TUPLE && isMoreWanted) {
                isMoreWanted = m_clock.pause([&] { return m_rows.addRow(readRow(result.get())); });
                if (!isMoreWanted) {
                    cancel();
                }
            }
        }
        m_rows.endResult();
    }

    /// Waits for the next row or the end of the result. Null if nothing more follows.
    [[nodiscard]] PgResult receiveResult() {
        while (PQisBusy(m_handle) != 0) {
            pollfd socket{PQsocket(m_handle), POLLIN, 0};
            const int ready = poll(&socket, 1, static_cast<int>(m_clock.obtainRest().count()));
            if (ready == 0 && m_clock.isOver() && !m_isCancelled) {
                m_isTimeOver = true;
                cancel();
            }
            if (ready > 0 && PQconsumeInput(m_handle) == 0) {
                m_connection.failLost();
            }
        }
        return PgResult(PQgetResult(m_handle));
    }

    void cancel() {
        m_isCancelled = true;
        const std::unique_ptr<PGcancel, void (*)(PGcancel*)> handle(PQgetCancel(m_handle), &PQfreeCancel);
        std::array<char, 256> error{};
        PQcancel(handle.get(), error.data(), static_cast<int>(error.size()));
    }

    [[nodiscard]] static std::vector<std::string> readColumns(const PGresult* result) {
        std::vector<std::string> columns;
        columns.reserve(static_cast<std::size_t>(PQnfields(result)));
        for (int i = 0; i < PQnfields(result); ++i) {
            columns.emplace_back(PQfname(result, i));
        }
        return columns;
    }

    [[nodiscard]] std::vector<Cell> readRow(const PGresult* result) const {
        std::vector<Cell> row;
        row.reserve(static_cast<std::size_t>(PQnfields(result)));
        for (int i = 0; i < PQnfields(result); ++i) {
            row.push_back(readCell(result, i, m_limits));
        }
        return row;
    }

    void check(const PgResult& result, ExecStatusType wanted) const {
        if (PQresultStatus(result.get()) != wanted) {
            fail(result.get());
        }
    }

    [[noreturn]] void fail(const PGresult* result) const {
        constexpr std::string_view kReadOnlyTransaction = "25006";
        constexpr std::string_view kQueryCancelled = "57014";
        const std::string state = readErrorField(result, PG_DIAG_SQLSTATE);
        if (m_isTimeOver || (state == kQueryCancelled && m_clock.isOver())) {
            failTimeout(m_limits.maxTime);
        }
        if (state == kReadOnlyTransaction) {
            failRefused(readErrorField(result, PG_DIAG_MESSAGE_PRIMARY));
        }
        if (state.empty() || PQstatus(m_handle) != CONNECTION_OK) {
            m_connection.failLost();
        }
        const std::string hint = readErrorField(result, PG_DIAG_MESSAGE_HINT);
        failSql(readErrorField(result, PG_DIAG_MESSAGE_PRIMARY) + (hint.empty() ? "" : " (" + hint + ")"));
    }

    const PgConnection& m_connection;
    PGconn* m_handle;
    const QueryLimits& m_limits;
    RunClock m_clock;
    LimitedReceiver m_rows;
    bool m_isCancelled = false;
    bool m_isTimeOver = false;
};

}  // namespace

std::size_t runPgScript(const PgConnection& connection, const std::string& script, const QueryLimits& limits,
                        RowReceiver& receiver) {
    return PgScriptRun(connection, limits, receiver).run(script);
}

}  // namespace host
