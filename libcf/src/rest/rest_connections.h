#ifndef CF_SRC_REST_CONNECTIONS_H
#define CF_SRC_REST_CONNECTIONS_H

#include <chrono>
#include <memory>
#include <optional>

#include "cf/rest.h"
#include "rest/rest_exchange.h"
#include "rest/rest_handle.h"

namespace cf {

/// The connections of a pool. Runs exchanges on them, one after another, on one thread. If run() throws, the handle may
/// be only partly set up: destroy the object then.
class RestConnections {
public:
    /// Takes the connections out of a pool while it lives; makes new ones if the pool is null or has none. An exchange
    /// begun meanwhile by a callback finds none in the pool and makes its own.
    class Lease;

    RestConnections();
    ~RestConnections();
    RestConnections(const RestConnections&) = delete;
    RestConnections& operator=(const RestConnections&) = delete;

    /// Must be called before an exchange that uses TLS. Closes connections that were made with other settings.
    void useTLSSettings(RestTLSSettings settings);

    /// Runs an exchange to its end. Calls `cancelled` while it waits, but not at its start. Throws what the host's
    /// functions and memory allocation throw.
    RestOutcome run(const RestExchange& exchange);

private:
    /// Adds the handle to its connections for one attempt.
    class Attachment;

    [[nodiscard]] bool isInherited() const noexcept;
    void leaveInherited();
    RestOutcome runOnce(const RestExchange& exchange, const RestAttempt& attempt);
    CMRestResult drive(const RestExchange& exchange);
    std::optional<CMRestResult> advance(bool hasReceiver, std::chrono::milliseconds longestWait);
    CMRestResult obtainResult();
    [[nodiscard]] bool hasBodyToHandOver();
    RestOutcome conclude(CMRestResult result);

    unsigned m_forkCount;
    RestClock::time_point m_deadline;  ///< of the exchange that runs
    RestHandle m_handle;
};

class RestConnections::Lease {
public:
    explicit Lease(ICSHTTPPoolCenter* pool);
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    RestConnections& operator*() const noexcept { return *m_connections; }
    RestConnections* operator->() const noexcept { return m_connections.get(); }

    /// Returns the connections to the pool, if there is one. Connections that are not returned are closed.
    void giveBack() noexcept;

private:
    ICSHTTPPoolCenter* m_pool;
    std::unique_ptr<RestConnections> m_connections;
};

}  // namespace cf

#endif
