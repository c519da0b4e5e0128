#ifndef TESTS_HOST_MARIADB_SERVER_H
#define TESTS_HOST_MARIADB_SERVER_H

#include <string>
#include <vector>

#include "server_process.h"

/// A MariaDB server on a socket of its own. User "root" may do everything, "reader" everything on the databases (but
/// nothing on files and other sessions), and "guarded" needs the password "open sesame".
class MariadbServer {
public:
    MariadbServer();

    /// The server of this test process, started by whoever asks first.
    static MariadbServer& obtain();

    /// The --db of a database.
    [[nodiscard]] std::string makeUrl(const std::string& user, const std::string& database,
                                      const std::string& scheme = "mariadb") const;
    /// Runs one statement as root. Throws std::runtime_error.
    void execute(const std::string& database, const std::string& sql) const { (void)query(database, sql); }
    /// Runs a script as root: statements that end with ";" at the end of a line.
    void executeScript(const std::string& database, const std::string& script) const;
    /// The first column of the rows of a query, as text.
    [[nodiscard]] std::vector<std::string> query(const std::string& database, const std::string& sql) const;
    /// A path that the server can write to.
    [[nodiscard]] std::string name(const std::string& fileName) const { return m_process.name(fileName); }

private:
    [[nodiscard]] bool isReady() const;

    ServerProcess m_process;
};

#endif
