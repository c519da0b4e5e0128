#ifndef TESTS_HOST_POSTGRESQL_SERVER_H
#define TESTS_HOST_POSTGRESQL_SERVER_H

#include <string>

#include "server_process.h"

/// A PostgreSQL server on a socket of its own. Role "kai" is its superuser, "reader" may do what everybody may, and
/// "guarded" needs the password "open sesame".
class PostgresqlServer {
public:
    PostgresqlServer();

    /// The server of this test process, started by whoever asks first.
    static PostgresqlServer& obtain();

    /// The --db of a database.
    [[nodiscard]] std::string makeUrl(const std::string& user, const std::string& database) const;
    /// Runs statements as the superuser, one transaction each. Throws std::runtime_error.
    void execute(const std::string& database, const std::string& sql) const;
    /// The first column of the rows of a query, as text.
    [[nodiscard]] std::vector<std::string> query(const std::string& database, const std::string& sql) const;
    /// A path that the server can write to.
    [[nodiscard]] std::string name(const std::string& fileName) const { return m_process.name(fileName); }

private:
    ServerProcess m_process;
};

#endif
