#include "mariadb/maria_connection.h"

#include <array>
#include <charconv>
#include <cstdlib>
#include <new>
#include <utility>

#include "engine/server_url.h"
#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

constexpr unsigned int kConnectSeconds = 10;

[[noreturn]] void failUsage(const std::string& text) {
    throw HostError(ExitCode::Usage, text);
}

struct UrlParameter {
    std::string_view name;
    mysql_option option;
};

/// The parameters that are options of the library; "socket" is passed when connecting.
constexpr std::array<UrlParameter, 3> kParameters{
    {{"ssl-ca", MYSQL_OPT_SSL_CA}, {"ssl-cert", MYSQL_OPT_SSL_CERT}, {"ssl-key", MYSQL_OPT_SSL_KEY}}};

void checkUrl(const ServerUrl& url) {
    if (url.hasPassword) {
        failUsage(
            "a password is never taken from the command line, where others see it; set MYSQL_PWD, or write it into the "
            "[client] section of ~/.my.cnf");
    }
}

void setParameters(MYSQL* handle, const ServerUrl& url) {
    for (const auto& [name, value] : url.parameters) {
        bool isKnown = name == "socket";
        for (const UrlParameter& parameter : kParameters) {
            if (name == parameter.name) {
                mysql_optionsv(handle, parameter.option, value.c_str());
                isKnown = true;
            }
        }
        if (!isKnown) {
            failUsage("the database's URL has an unknown parameter '" + makeOneLine(name) +
                      "'; socket, ssl-ca, ssl-cert and ssl-key are known");
        }
    }
}

void setOptions(MYSQL* handle) {
    const unsigned int seconds = kConnectSeconds;
    const unsigned int isFileSent = 0;
    mysql_optionsv(handle, MYSQL_READ_DEFAULT_GROUP, "kai");
    mysql_optionsv(handle, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    mysql_optionsv(handle, MYSQL_OPT_CONNECT_TIMEOUT, &seconds);
    mysql_optionsv(handle, MYSQL_OPT_LOCAL_INFILE, &isFileSent);
}

unsigned int readPort(const std::string& text) {
    unsigned int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (!text.empty() && (error != std::errc() || end != text.data() + text.size() || port > 65535)) {
        failUsage("the database's URL has a port that is no number up to 65535");
    }
    return port;
}

const char* orNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

}  // namespace

MariaConnection::MariaConnection(std::string url)
    : m_url(std::move(url)), m_name(makeOneLine(describeServerUrl(m_url))) {
    reconnect();
}

void MariaConnection::reconnect() {
    const ServerUrl url = parseServerUrl(m_url);
    checkUrl(url);
    m_database = url.name;
    m_handle.reset(mysql_init(nullptr));
    if (m_handle == nullptr) {
        throw std::bad_alloc();
    }
    setOptions(m_handle.get());
    setParameters(m_handle.get(), url);
    const auto socket = url.parameters.find("socket");
    if (mysql_real_connect(m_handle.get(), orNull(url.host), orNull(url.user), std::getenv("MYSQL_PWD"),
                           orNull(url.name), readPort(url.port),
                           socket != url.parameters.end() ? socket->second.c_str() : nullptr, 0) == nullptr) {
        throw HostError(ExitCode::Database,
                        "cannot open the database '" + m_name + "': " + makeOneLine(mysql_error(m_handle.get())));
    }
    execute("SET SESSION TRANSACTION READ ONLY");
}

std::string MariaConnection::obtainVersion() const {
    const std::string version = query("SELECT VERSION()").at(0).at(0);
    const std::size_t first = version.find('-');
    // "10.11.9-MariaDB-0+deb12u1-log", "8.0.40-0ubuntu0.24.04.1"
    return isMariaDb() ? version.substr(0, version.find('-', first + 1)) : version.substr(0, first);
}

bool MariaConnection::isMariaDb() const {
    return std::string_view(mysql_get_server_info(m_handle.get())).find("MariaDB") != std::string_view::npos;
}

std::vector<MariaConnection::Row> MariaConnection::query(const std::string& sql) const {
    if (mysql_real_query(m_handle.get(), sql.data(), sql.size()) != 0) {
        failLost();
    }
    std::vector<Row> rows;
    const MariaResult result(mysql_use_result(m_handle.get()));
    if (result == nullptr) {
        return rows;
    }
    const unsigned int columnCount = mysql_num_fields(result.get());
    while (MYSQL_ROW row = mysql_fetch_row(result.get())) {
        const unsigned long* lengths = mysql_fetch_lengths(result.get());
        Row& values = rows.emplace_back();
        for (unsigned int i = 0; i < columnCount; ++i) {
            values.emplace_back(row[i] != nullptr ? row[i] : "", row[i] != nullptr ? lengths[i] : 0);
        }
    }
    if (mysql_errno(m_handle.get()) != 0) {
        failLost();
    }
    return rows;
}

std::string MariaConnection::quote(std::string_view text) const {
    std::string escaped(2 * text.size() + 1, '\0');
    escaped.resize(mysql_real_escape_string(m_handle.get(), escaped.data(), text.data(), text.size()));
    return "'" + escaped + "'";
}

void MariaConnection::failLost() const {
    throw HostError(ExitCode::Database,
                    "cannot read the database '" + m_name + "': " + makeOneLine(mysql_error(m_handle.get())));
}

}  // namespace host
