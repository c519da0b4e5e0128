#ifndef HOST_ENGINE_DATABASE_H
#define HOST_ENGINE_DATABASE_H

#include <cstddef>
#include <functional>
#include <string>

#include "engine/engine.h"
#include "engine/result.h"
#include "engine/structure.h"

namespace host {

/// Asked about ten times a second while something is waited for; true ends it. A place to show signs of life.
using StopCheck = std::function<bool()>;

/// The user's database, of whatever engine.
///
/// Every request opens the database anew in a child process with limits of time and memory and gets its results over a
/// socket. The child can be ended at any moment, also where the engine itself listens to nothing; it ends with this
/// process. One request at a time.
class Database {
public:
    /// @param source  what --db names: a file, or a URL of an engine. Nothing is opened yet.
    /// Throws HostError (Usage) when no engine fits.
    explicit Database(std::string source);

    [[nodiscard]] const Engine& obtainEngine() const noexcept { return m_engine; }
    /// The source for messages, without a password.
    [[nodiscard]] const std::string& obtainName() const noexcept { return m_name; }
    /// The engine's version; empty before the first request.
    [[nodiscard]] const std::string& obtainVersion() const noexcept { return m_version; }

    /// Reads the structure.
    /// Throws HostError: Database, or Cancelled when it was stopped.
    [[nodiscard]] DatabaseStructure readStructure(StructureDetail detail, const StopCheck& isStopped);

    /// Runs the statements of a text in order, for reading only, and passes the rows on as they come. The first failure
    /// ends it. The time that the receiver takes does not count.
    /// @return the number of statements that ran
    /// Throws HostError: SqlFailed for what is wrong with the SQL, Database for what is wrong with the database,
    /// Cancelled when it was stopped; and whatever the receiver throws.
    std::size_t run(const std::string& script, const QueryLimits& limits, RowReceiver& receiver,
                    const StopCheck& isStopped);

private:
    std::string m_source;
    const Engine& m_engine;
    std::string m_name;
    std::string m_version;
};

}  // namespace host

#endif
