#ifndef HOST_MARIADB_MARIA_CONNECTION_H
#define HOST_MARIADB_MARIA_CONNECTION_H

#include <mysql.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct MariaCloser {
    void operator()(MYSQL* connection) const noexcept { mysql_close(connection); }
};

struct MariaResultFreer {
    void operator()(MYSQL_RES* result) const noexcept { mysql_free_result(result); }
};

using MariaResult = std::unique_ptr<MYSQL_RES, MariaResultFreer>;

/// A connection to a MariaDB or MySQL server on which every transaction is read-only.
///
/// The client library takes the password from MYSQL_PWD or the [client] section of the option files (~/.my.cnf). The
/// server accepts one statement at a time and cannot read files of this machine.
class MariaConnection {
public:
    /// @param url  mysql://USER@HOST:PORT/NAME?socket=PATH&ssl-ca=FILE, without a password
    /// Throws HostError: Usage for a URL with a password or an unknown parameter, Database with what is wrong.
    explicit MariaConnection(std::string url);

    [[nodiscard]] MYSQL* obtainHandle() const noexcept { return m_handle.get(); }
    /// "10.11.9-MariaDB", "8.0.40"
    [[nodiscard]] std::string obtainVersion() const;
    [[nodiscard]] bool isMariaDb() const;
    /// The database in the URL; empty if there is none.
    [[nodiscard]] const std::string& obtainDatabase() const noexcept { return m_database; }

    /// Connects again, after a result that was not read to its end.
    void reconnect();

    using Row = std::vector<std::string>;
    /// The rows of one of the program's own statements, with NULL as an empty text. Throws HostError (Database).
    [[nodiscard]] std::vector<Row> query(const std::string& sql) const;
    /// Runs one of the program's own statements. Throws HostError (Database).
    void execute(const std::string& sql) const { (void)query(sql); }

    /// A text as a literal.
    [[nodiscard]] std::string quote(std::string_view text) const;

    /// Throws HostError (Database) with the error text of the server or the library.
    [[noreturn]] void failLost() const;

private:
    std::string m_url;
    std::string m_name;  ///< for messages
    std::string m_database;
    std::unique_ptr<MYSQL, MariaCloser> m_handle;
};

}  // namespace host

#endif
