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
    std::size_t requestCount = 0;  ///< requests that it has carried
    bool isSpoilt = false;         ///< whether bytes that nobody asked for are left of an earlier exchange
};

/// The sockets that libcurl has open for a pool. It opens and closes them through this, so that each can be looked at
/// before it is used again.
class RestSockets {
public:
    /// A new socket that programs started by the host do not inherit; -1 (with errno) where there is none.
    [[nodiscard]] int open(int family, int type, int protocol);
    /// Closes a socket.
    void close(int descriptor) noexcept;
    /// The socket with this local port; null when there is none. Valid until the next change.
    [[nodiscard]] RestSocket* findByLocalPort(int port) noexcept;
    [[nodiscard]] RestSocket* find(int descriptor) noexcept;

    /// Bytes that had come over the socket that was closed last.
    [[nodiscard]] std::size_t countBytesOfClosed() const noexcept { return m_closedBytes; }

    /// Puts a dead socket in the place of each, so that whatever libcurl still sends when it closes its connections
    /// reaches nobody: after fork() they are the other process's.
    void disown() noexcept;

private:
    std::vector<RestSocket> m_sockets;
    std::size_t m_closedBytes = 0;
};

/// Whether a socket without a request of ours on its way is not fit for another: it has something to read, or the peer
/// has closed it.
[[nodiscard]] bool isSocketReadable(int descriptor) noexcept;

/// The shortest time in which the peer has answered lately, as TCP measures it; none where the system does not tell.
[[nodiscard]] std::optional<std::chrono::microseconds> obtainShortestRoundTrip(int descriptor) noexcept;

/// Finds what libcurl opens by itself, to wake its threads, so that programs started by the host do not inherit it.
class RestInheritanceMark {
public:
    /// Remembers the descriptors that there are.
    RestInheritanceMark();
    /// Marks the pairs of sockets without a name that were opened since.
    void markNewSockets() const;

private:
    std::vector<int> m_former;
};

/// From now on forks are counted. Throws std::bad_alloc.
void watchForks();
/// How many forks led from where they are counted to this process: another number than before means another process.
[[nodiscard]] unsigned countForks() noexcept;

}  // namespace cf

#endif
