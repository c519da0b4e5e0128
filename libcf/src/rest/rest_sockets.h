#ifndef CF_SRC_REST_SOCKETS_H
#define CF_SRC_REST_SOCKETS_H

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace cf {

/// One of a pool's connections.
struct RestSocket {
    int descriptor = -1;
    int localPort = 0;             ///< 0: not looked up yet
    std::size_t requestCount = 0;  ///< requests that were sent on it
    bool isSpoilt = false;         ///< whether unrequested bytes are left from an earlier exchange
};

/// The sockets that libcurl has open for a pool. libcurl opens and closes them through this class, so that each can be
/// checked before it is reused.
class RestSockets {
public:
    /// Opens a socket that programs started by the host do not inherit; -1 (with errno) on failure.
    [[nodiscard]] int open(int family, int type, int protocol);
    /// Closes a socket.
    void close(int descriptor) noexcept;
    /// The socket with this local port; null when there is none. Valid until the next change.
    [[nodiscard]] RestSocket* findByLocalPort(int port) noexcept;
    [[nodiscard]] RestSocket* find(int descriptor) noexcept;

    /// The bytes received on the socket that was closed last.
    [[nodiscard]] std::size_t countBytesOfClosed() const noexcept { return m_closedBytes; }

    /// Replaces each socket by an unconnected one. What libcurl still sends while it closes its connections then
    /// reaches no peer: after fork() the connections belong to the other process.
    void disown() noexcept;

private:
    std::vector<RestSocket> m_sockets;
    std::size_t m_closedBytes = 0;
};

/// Whether an idle socket cannot be used for another request: it has something to read, or the peer has closed it.
[[nodiscard]] bool isSocketReadable(int descriptor) noexcept;

/// The shortest recent round trip to the peer, as TCP measures it; none if the system does not tell it.
[[nodiscard]] std::optional<std::chrono::microseconds> obtainShortestRoundTrip(int descriptor) noexcept;

/// Finds the sockets that libcurl opens by itself, to wake its threads, and keeps programs started by the host from
/// inheriting them.
class RestInheritanceMark {
public:
    /// Remembers the open descriptors.
    RestInheritanceMark();
    /// Sets close-on-exec on the nameless local sockets that were opened since.
    void markNewSockets() const;

private:
    std::vector<int> m_former;
};

/// Starts counting forks. Throws std::bad_alloc.
void watchForks();
/// The number of forks between the process that started counting and this one. When it has changed, this is another
/// process.
[[nodiscard]] unsigned countForks() noexcept;

}  // namespace cf

#endif
