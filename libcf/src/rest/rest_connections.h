#ifndef CF_SRC_REST_CONNECTIONS_H
#define CF_SRC_REST_CONNECTIONS_H

#include <chrono>
#include <memory>
#include <optional>

#include "cf/rest.h"
#include "rest/rest_exchange.h"
#include "rest/rest_handle.h"

namespace cf {

/// A pool's connections, and how exchanges run on them: one after another, on one thread. An exception out of run() may
/// leave the handle half set up: destroy the object then.
class RestConnections {
public:
    /// The connections of a pool (new ones when it is null or has none), out of the pool while they are held here: an
    /// exchange that a callback of a running one begins finds none and makes its own.
    class Lease;

    RestConnections();
    ~RestConnections();
    RestConnections(const RestConnections&) = delete;
    RestConnections& operator=(const RestConnections&) = delete;

    /// To be called before an exchange that speaks TLS. What was connected under other settings is closed.
    void useTLSSettings(RestTLSSettings settings);

    /// Runs an exchange to its end, asking `cancelled` while it lasts, not at once. Throws what the host's functions
    /// and allocation throw.
    RestOutcome run(const RestExchange& exchange);

private:
    /// Ties the handle to its connections for the time of one attempt.
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
    RestHandle m_handle;
};

class RestConnections::Lease {
public:
    explicit Lease(ICSHTTPPoolCenter* pool);
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    RestConnections& operator*() const noexcept { return *m_connections; }
    RestConnections* operator->() const noexcept { return m_connections.get(); }

    /// Gives the connections to the pool, where there is one. Without it they are closed.
    void giveBack() noexcept;

private:
    ICSHTTPPoolCenter* m_pool;
    std::unique_ptr<RestConnections> m_connections;
};

}  // namespace cf

#endif
