#ifndef HOST_ENGINE_DATABASE_H
#define HOST_ENGINE_DATABASE_H

#include <cstddef>
#include <functional>
#include <string>

#include "engine/engine.h"
#include "engine/result.h"
#include "engine/structure.h"

namespace host {

/// Called about ten times a second during a wait; true ends the wait. It may also show progress.
using StopCheck = std::function<bool()>;

/// The user's database, with any engine.
///
/// Every request opens the database again in a child process with limits of time and memory, and gets its results over
/// a socket. The child can be killed at any moment, even if the engine itself does not react; it ends with this
/// process. One request at a time.
class Database {
public:
    /// @param source  the value of --db: a file, or a URL of an engine. Nothing is opened yet.
    /// Throws HostError (Usage) if no engine fits.
    explicit Database(std::string source);

    [[nodiscard]] const Engine& obtainEngine() const noexcept { return m_engine; }
    /// The source for messages, without a password.
    [[nodiscard]] const std::string& obtainName() const noexcept { return m_name; }
    /// The engine's version; empty before the first request.
    [[nodiscard]] const std::string& obtainVersion() const noexcept { return m_version; }

    /// Reads the structure.
    /// Throws HostError: Database, or Cancelled if it was stopped.
    [[nodiscard]] DatabaseStructure readStructure(StructureDetail detail, const StopCheck& isStopped);

    /// Runs the statements of a text in order, read-only, and passes the rows on as they arrive. It stops at the first
    /// failure. The receiver's time does not count.
    /// @return the number of statements that ran
    /// Throws HostError: SqlFailed for errors in the SQL, Database for problems with the database, Cancelled if it was
    /// stopped; and whatever the receiver throws.
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
