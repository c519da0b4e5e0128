#include "engine/engine_table.h"

#include <algorithm>

#include "engine/server_url.h"
#include "host_error.h"
#include "mariadb/maria_engine.h"
#include "postgresql/pg_engine.h"
#include "sqlite/sqlite_engine.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

std::string keepFileName(const std::string& source) {
    return source;
}

std::string listSchemes() {
    std::string text;
    for (const Engine& engine : listEngines()) {
        for (const std::string_view scheme : engine.schemes) {
            text += (text.empty() ? "" : ", ") + std::string(scheme) + "://";
        }
    }
    return text;
}

/// The part before "://", if it looks like a scheme.
std::string_view readScheme(std::string_view source) {
    const std::size_t end = source.find("://");
    const std::string_view scheme = end == std::string_view::npos ? std::string_view() : source.substr(0, end);
    const bool isScheme = std::all_of(scheme.begin(), scheme.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '-';
    });
    return isScheme ? scheme : std::string_view();
}

}  // namespace

const std::vector<Engine>& listEngines() {
    static const std::vector<Engine> engines{
        {"SQLite", {}, {"sqlite", "sqlite3"}, &describeSqliteLibrary, &keepFileName, &openSqlite, "EXPLAIN QUERY PLAN"},
        {"PostgreSQL",
         {"postgresql", "postgres"},
         {"postgresql", "postgres", "pgsql", "psql"},
         &describePostgresqlLibrary,
         &describeServerUrl,
         &openPostgresql},
        {"MySQL", {"mysql"}, {"mysql", "mariadb"}, &describeMariaLibrary, &describeServerUrl, &openMaria},
        {"MariaDB", {"mariadb"}, {"mariadb", "mysql"}, &describeMariaLibrary, &describeServerUrl, &openMaria},
    };
    return engines;
}

const Engine& findEngine(std::string_view source) {
    const std::string_view scheme = readScheme(source);
    if (scheme.empty()) {
        return listEngines().front();
    }
    for (const Engine& engine : listEngines()) {
        if (std::find(engine.schemes.begin(), engine.schemes.end(), scheme) != engine.schemes.end()) {
            return engine;
        }
    }
    const std::string known = listSchemes();
    throw HostError(ExitCode::Usage, "there is no engine for '" + makeOneLine(scheme) +
                                         "://'; --db takes a SQLite file" +
                                         (known.empty() ? std::string() : " or a URL with one of " + known));
}

std::vector<std::string_view> listBlockMarks() {
    std::vector<std::string_view> marks;
    for (const Engine& engine : listEngines()) {
        marks.insert(marks.end(), engine.blockMarks.begin(), engine.blockMarks.end());
    }
    return marks;
}

std::string describeLibraries() {
    std::string text;
    for (const Engine& engine : listEngines()) {
        // Two engines may share a library.
        if (const std::string library = engine.describeLibrary(); text.find(library) == std::string::npos) {
            text += (text.empty() ? "" : ", ") + library;
        }
    }
    return text;
}

}  // namespace host
