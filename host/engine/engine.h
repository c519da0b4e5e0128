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

/// A connection to a database, as the engine's room makes it. It lives in a process of its own (see Database), one
/// request a connection, so that it can be ended from outside at any moment.
///
/// Failures are HostError: Database for what is wrong with the database or the way to it, SqlFailed for what is wrong
/// with a statement.
class EngineConnection {
public:
    EngineConnection() = default;
    EngineConnection(const EngineConnection&) = delete;
    EngineConnection& operator=(const EngineConnection&) = delete;
    virtual ~EngineConnection() = default;

    /// The engine's version: the server's, where there is one ("15.8", "10.11.9-MariaDB").
    [[nodiscard]] virtual std::string obtainVersion() = 0;

    [[nodiscard]] virtual DatabaseStructure readStructure(StructureDetail detail) = 0;

    /// Runs the statements of a text in order, for reading only. The first failure ends it.
    /// @return the number of statements that ran
    virtual std::size_t run(const std::string& script, const QueryLimits& limits, RowReceiver& receiver) = 0;
};

/// One row of the table of engines.
struct Engine {
    std::string_view name;                     ///< what the model and the user are told ("PostgreSQL")
    std::vector<std::string_view> schemes;     ///< what a --db that is no file begins with, before "://"
    std::vector<std::string_view> blockMarks;  ///< how models mark code blocks in this dialect besides "sql"
    std::string (*describeLibrary)();          ///< the client library and its version ("SQLite 3.40.1")
    std::string (*describeSource)(const std::string& source);  ///< the source for messages: never a password
    std::unique_ptr<EngineConnection> (*open)(const std::string& source);
    std::string_view explainPrefix = "EXPLAIN";  ///< put before a query, it tells how that would run
};

}  // namespace host

#endif
