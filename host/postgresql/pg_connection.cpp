#include "postgresql/pg_connection.h"

#include <array>
#include <cstdlib>
#include <new>

#include "engine/server_url.h"
#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

void ignoreNotice(void* /*argument*/, const char* /*message*/) {}

/// Defaults come before the URL and fixed rules after it: later values take precedence.
PGconn* connect(const std::string& url) {
    const std::array<const char*, 5> keys{"connect_timeout", "fallback_application_name", "dbname", "client_encoding",
                                          nullptr};
    const std::array<const char*, 5> values{"10", "kai", url.c_str(), "UTF8", nullptr};
    constexpr int kReadDbnameAsUrl = 1;
    return PQconnectdbParams(keys.data(), values.data(), kReadDbnameAsUrl);
}

std::string adviseOnFailure(const PGconn* handle) {
    return PQconnectionNeedsPassword(handle) != 0
               ? "; set PGPASSWORD or write the password into ~/.pgpass (kai takes none from the command line)"
               : "";
}

}  // namespace

PgConnection::PgConnection(const std::string& url) : m_name(makeOneLine(describeServerUrl(url))) {
    if (parseServerUrl(url).hasPassword) {
        throw HostError(ExitCode::Usage,
                        "a password is never taken from the command line, where others see it; set PGPASSWORD, or "
                        "write it into ~/.pgpass");
    }
    m_handle.reset(connect(url));
    if (m_handle == nullptr) {
        throw std::bad_alloc();
    }
    PQsetNoticeProcessor(m_handle.get(), &ignoreNotice, nullptr);
    if (PQstatus(m_handle.get()) != CONNECTION_OK) {
        throw HostError(ExitCode::Database, "cannot open the database '" + m_name +
                                                "': " + makeOneLine(PQerrorMessage(m_handle.get())) +
                                                adviseOnFailure(m_handle.get()));
    }
    // With this setting, the server notices within a second that this process was killed while it works for it; older
    // servers cannot.
    execute(
        "SET SESSION CHARACTERISTICS AS TRANSACTION READ ONLY; SET bytea_output = hex; "
        "SELECT set_config(name, '1s', false) FROM pg_settings WHERE name = 'client_connection_check_interval'");
}

std::string PgConnection::obtainVersion() const {
    const char* version = PQparameterStatus(m_handle.get(), "server_version");
    const std::string_view text = version != nullptr ? version : "";
    return std::string(text.substr(0, text.find(' ')));  // "15.8 (Debian 15.8-0+deb12u1)"
}

bool PgConnection::isSuperuser() const {
    const char* answer = PQparameterStatus(m_handle.get(), "is_superuser");
    return answer != nullptr && std::string_view(answer) == "on";
}

PgResult PgConnection::execute(const std::string& sql) const {
    PgResult result(PQexec(m_handle.get(), sql.c_str()));
    const ExecStatusType status = PQresultStatus(result.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        failLost();
    }
    return result;
}

void PgConnection::failLost() const {
    throw HostError(ExitCode::Database,
                    "cannot read the database '" + m_name + "': " + makeOneLine(PQerrorMessage(m_handle.get())));
}

std::string_view readPgText(const PGresult* result, int row, int column) {
    return {PQgetvalue(result, row, column), static_cast<std::size_t>(PQgetlength(result, row, column))};
}

}  // namespace host
