#include "mariadb/mariadb_server.h"

#include <mysql.h>
#include <signal.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace {

using Connection = std::unique_ptr<MYSQL, void (*)(MYSQL*)>;

Connection connect(const std::string& socket, const std::string& database, unsigned long flags = 0) {
    Connection connection(mysql_init(nullptr), &mysql_close);
    if (mysql_real_connect(connection.get(), nullptr, "root", "", database.empty() ? nullptr : database.c_str(), 0,
                           socket.c_str(), flags) == nullptr) {
        throw std::runtime_error(mysql_error(connection.get()));
    }
    return connection;
}

void executeStatements(MYSQL* connection, const std::string& statements) {
    int status = mysql_real_query(connection, statements.data(), statements.size());
    while (status == 0) {
        mysql_free_result(mysql_store_result(connection));
        status = mysql_next_result(connection);
    }
    if (status > 0) {
        throw std::runtime_error(mysql_error(connection));
    }
}

/// The parts of a script that the server can take, which knows nothing of its client's DELIMITER lines: the statements
/// up to one, and each statement under another delimiter by itself.
std::vector<std::string> splitAtDelimiters(const std::string& script) {
    constexpr std::string_view kCommand = "DELIMITER ";
    std::vector<std::string> parts(1);
    std::string delimiter = ";";
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(kCommand)) {
            delimiter = line.substr(kCommand.size());
            parts.emplace_back();
        } else if (delimiter != ";" && line.ends_with(delimiter)) {
            parts.back() += line.substr(0, line.size() - delimiter.size());
            parts.emplace_back();
        } else {
            parts.back() += line + "\n";
        }
    }
    std::erase_if(parts, [](const std::string& part) { return part.find_first_not_of(" \n") == std::string::npos; });
    return parts;
}

}  // namespace

MariadbServer::MariadbServer() {
    m_process.run({"/usr/bin/mariadb-install-db", "--no-defaults", "--datadir=" + m_process.name("data"),
                   "--auth-root-authentication-method=normal", "--skip-test-db", "--skip-name-resolve"});
    m_process.start({"/usr/sbin/mariadbd", "--no-defaults", "--datadir=" + m_process.name("data"),
                     "--socket=" + m_process.name("socket"), "--pid-file=" + m_process.name("pid"), "--skip-networking",
                     "--skip-name-resolve", "--skip-log-bin", "--innodb-flush-log-at-trx-commit=0",
                     "--innodb-flush-method=nosync", "--debug-no-sync", "--innodb-doublewrite=0",
                     "--innodb-buffer-pool-size=32M", "--character-set-server=utf8mb4", "--log-warnings=0"},
                    SIGKILL, [this] { return isReady(); });
    execute("", "CREATE USER reader@localhost");
    execute("",
            "GRANT SELECT, INSERT, UPDATE, DELETE, CREATE, DROP, ALTER, EXECUTE, LOCK TABLES, TRIGGER ON *.* TO "
            "reader@localhost");
    execute("", "CREATE USER guarded@localhost IDENTIFIED BY 'open sesame'");
}

MariadbServer& MariadbServer::obtain() {
    static MariadbServer server;
    return server;
}

bool MariadbServer::isReady() const {
    try {
        connect(m_process.name("socket"), "");
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

std::string MariadbServer::makeUrl(const std::string& user, const std::string& database,
                                   const std::string& scheme) const {
    return scheme + "://" + user + "@localhost/" + database + "?socket=" + m_process.name("socket");
}

std::vector<std::string> MariadbServer::query(const std::string& database, const std::string& sql) const {
    const Connection connection = connect(m_process.name("socket"), database);
    if (mysql_real_query(connection.get(), sql.data(), sql.size()) != 0) {
        throw std::runtime_error(mysql_error(connection.get()));
    }
    const std::unique_ptr<MYSQL_RES, void (*)(MYSQL_RES*)> result(mysql_store_result(connection.get()),
                                                                  &mysql_free_result);
    std::vector<std::string> values;
    while (result != nullptr) {
        MYSQL_ROW row = mysql_fetch_row(result.get());
        if (row == nullptr) {
            break;
        }
        values.emplace_back(row[0] != nullptr ? row[0] : "NULL");
    }
    return values;
}

void MariadbServer::executeScript(const std::string& database, const std::string& script) const {
    const Connection connection = connect(m_process.name("socket"), database, CLIENT_MULTI_STATEMENTS);
    for (const std::string& part : splitAtDelimiters(script)) {
        executeStatements(connection.get(), part);
    }
}
