#ifndef HOST_ENGINE_ENGINE_H
#define HOST_ENGINE_ENGINE_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/result.h"
#include "engine/structure.h"

namespace host {

/// A connection to a database, made by the engine's folder. It lives in a separate process (see Database), one request
/// per connection, so that it can be killed at any moment.
///
/// Failures are HostError: Database for problems with the database or the connection, SqlFailed for problems with a
/// statement.
class EngineConnection {
public:
    EngineConnection() = default;
    EngineConnection(const EngineConnection&) = delete;
    EngineConnection& operator=(const EngineConnection&) = delete;
    virtual ~EngineConnection() = default;

    /// The engine's version; with a server, the server's ("15.8", "10.11.9-MariaDB").
    [[nodiscard]] virtual std::string obtainVersion() = 0;

    [[nodiscard]] virtual DatabaseStructure readStructure(StructureDetail detail) = 0;

    /// Runs the statements of a text in order, read-only. It stops at the first failure.
    /// @return the number of statements that ran
    virtual std::size_t run(const std::string& script, const QueryLimits& limits, RowReceiver& receiver) = 0;
};

/// One row of the table of engines.
struct Engine {
    std::string_view name;                     ///< the name for the model and the user ("PostgreSQL")
    std::vector<std::string_view> schemes;     ///< the part of a --db before "://"; a file has none
    std::vector<std::string_view> blockMarks;  ///< models' marks for code blocks in this dialect, besides "sql"
    std::string (*describeLibrary)();          ///< the client library and its version ("SQLite 3.40.1")
    std::string (*describeSource)(const std::string& source);  ///< the source for messages, never with a password
    std::unique_ptr<EngineConnection> (*open)(const std::string& source);
    std::string_view explainPrefix =
        "EXPLAIN";  ///< before a query, it makes the engine explain how it would run the query
};

}  // namespace host

#endif
