#ifndef HOST_POSTGRESQL_PG_CONNECTION_H
#define HOST_POSTGRESQL_PG_CONNECTION_H

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <string_view>

namespace host {

struct PgCloser {
    void operator()(PGconn* connection) const noexcept { PQfinish(connection); }
};

struct PgClearer {
    void operator()(PGresult* result) const noexcept { PQclear(result); }
};

using PgResult = std::unique_ptr<PGresult, PgClearer>;

/// A connection to a PostgreSQL server on which every transaction is read-only unless it says otherwise.
///
/// libpq takes the password from PGPASSWORD, the password file or the service file.
class PgConnection {
public:
    /// @param url  as libpq reads it, without a password
    /// Throws HostError: Usage for a URL with a password, Database with what is wrong and what to do.
    explicit PgConnection(const std::string& url);

    [[nodiscard]] PGconn* obtainHandle() const noexcept { return m_handle.get(); }
    [[nodiscard]] std::string obtainVersion() const;
    [[nodiscard]] bool isSuperuser() const;

    /// Runs the program's own statements. Throws HostError (Database).
    PgResult execute(const std::string& sql) const;

    /// Throws HostError (Database): the connection cannot be used any more.
    [[noreturn]] void failLost() const;

private:
    std::string m_name;  ///< for messages
    std::unique_ptr<PGconn, PgCloser> m_handle;
};

/// A value of a result; empty for NULL.
[[nodiscard]] std::string_view readPgText(const PGresult* result, int row, int column);

}  // namespace host

#endif
