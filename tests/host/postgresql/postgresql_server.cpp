#include "postgresql/postgresql_server.h"

#include <libpq-fe.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

/// The folder of the newest server that is installed, as Debian lays them out.
std::string findPrograms() {
    std::vector<std::pair<int, std::string>> found;
    const std::filesystem::path root = "/usr/lib/postgresql";
    if (std::filesystem::exists(root)) {
        for (const auto& entry : std::filesystem::directory_iterator(root)) {
            if (std::filesystem::exists(entry.path() / "bin/initdb")) {
                found.emplace_back(std::stoi(entry.path().filename()), (entry.path() / "bin/").string());
            }
        }
    }
    if (found.empty()) {
        throw std::runtime_error("PostgreSQL's server is not installed; scripts/test installs it");
    }
    return std::max_element(found.begin(), found.end())->second;
}

using Connection = std::unique_ptr<PGconn, void (*)(PGconn*)>;
using Result = std::unique_ptr<PGresult, void (*)(PGresult*)>;

Result execute(PGconn* connection, const std::string& sql) {
    Result result(PQexec(connection, sql.c_str()), &PQclear);
    if (PQresultStatus(result.get()) != PGRES_COMMAND_OK && PQresultStatus(result.get()) != PGRES_TUPLES_OK) {
        throw std::runtime_error(PQerrorMessage(connection));
    }
    return result;
}

Connection connect(const std::string& url) {
    Connection connection(PQconnectdb(url.c_str()), &PQfinish);
    if (PQstatus(connection.get()) != CONNECTION_OK) {
        throw std::runtime_error(PQerrorMessage(connection.get()));
    }
    PQsetNoticeProcessor(
        connection.get(), [](void*, const char*) {}, nullptr);
    return connection;
}

}  // namespace

PostgresqlServer::PostgresqlServer() {
    const std::string programs = findPrograms();
    m_process.run({programs + "initdb", "--pgdata", m_process.name("data"), "--username=kai", "--auth=trust",
                   "--encoding=UTF8", "--locale=C.UTF-8", "--no-sync"});
    m_process.write("data/pg_hba.conf", "local all guarded scram-sha-256\nlocal all all trust\n");
    m_process.start({programs + "postgres", "-D", m_process.name("data"), "-k", m_process.name(""), "-F", "-c",
                     "listen_addresses=", "-c", "log_min_messages=fatal"},
                    SIGQUIT, [this] { return PQping(makeUrl("kai", "postgres").c_str()) == PQPING_OK; });
    execute("postgres", "CREATE ROLE reader LOGIN; CREATE ROLE guarded LOGIN PASSWORD 'open sesame'");
}

PostgresqlServer& PostgresqlServer::obtain() {
    static PostgresqlServer server;
    return server;
}

std::string PostgresqlServer::makeUrl(const std::string& user, const std::string& database) const {
    return "postgresql://" + user + "@/" + database + "?host=" + m_process.name("");
}

void PostgresqlServer::execute(const std::string& database, const std::string& sql) const {
    ::execute(connect(makeUrl("kai", database)).get(), sql);
}

std::vector<std::string> PostgresqlServer::query(const std::string& database, const std::string& sql) const {
    const Connection connection = connect(makeUrl("kai", database));
    const Result result = ::execute(connection.get(), sql);
    std::vector<std::string> values;
    for (int i = 0; i < PQntuples(result.get()); ++i) {
        values.emplace_back(PQgetvalue(result.get(), i, 0));
    }
    return values;
}
