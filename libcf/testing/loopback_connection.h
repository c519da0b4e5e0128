#ifndef CF_TESTING_LOOPBACK_CONNECTION_H
#define CF_TESTING_LOOPBACK_CONNECTION_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "loopback_certificate.h"

/// The socket of one accepted connection, with or without TLS. Used by its own thread; interrupt() and wake() may be
/// called from any other.
class LoopbackConnection {
public:
    /// Takes the ownership of the socket. `context` (borrowed) may be null: plain.
    LoopbackConnection(int socket, SSL_CTX* context);
    ~LoopbackConnection();
    LoopbackConnection(const LoopbackConnection&) = delete;
    LoopbackConnection& operator=(const LoopbackConnection&) = delete;

    /// Does the TLS handshake, if the connection uses TLS.
    [[nodiscard]] bool shakeHands();
    [[nodiscard]] bool isResumed() const;
    /// Waits for bytes; 0: the end.
    [[nodiscard]] std::size_t read(char* buffer, std::size_t capacity);
    [[nodiscard]] bool write(std::string_view bytes);

    /// Waits while `mayGoOn` returns false. True if it returned true or `limit` passed (absent: no limit); false if the
    /// client closed the connection or the connection was interrupted. `mayGoOn` is called again after each wake().
    [[nodiscard]] bool pause(std::optional<std::chrono::milliseconds> limit, const std::function<bool()>& mayGoOn);

    /// Ends with a TCP reset.
    void reset();
    /// Closes the connection properly, with a TLS close.
    void close();
    /// Closes the connection without a TLS close, like a process that dies.
    void abandon();

    /// Makes every operation of the connection's thread fail, now and later.
    void interrupt();
    void wake();

private:
    [[nodiscard]] bool hasPeerLeft(std::chrono::milliseconds wait, bool isEndless);
    void closeSocket();

    std::mutex
        m_mutex;  // protects m_socket: interrupt() must not use a descriptor that already belongs to another file
    int m_socket;
    int m_wakeEvent;
    bool m_isInterrupted = false;
    std::unique_ptr<SSL, LoopbackTLSDeleter> m_tls;
};

#endif
