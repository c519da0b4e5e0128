#include "loopback_connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <stdexcept>

LoopbackConnection::LoopbackConnection(int socket, SSL_CTX* context)
    : m_socket(socket), m_wakeEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    const int isOn = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &isOn, sizeof isOn);
    if (context != nullptr) {
        m_tls.reset(SSL_new(context));
        SSL_set_fd(m_tls.get(), socket);
    }
}

LoopbackConnection::~LoopbackConnection() {
    closeSocket();
    if (m_wakeEvent >= 0) {
        ::close(m_wakeEvent);
    }
}

bool LoopbackConnection::shakeHands() {
    if (m_tls == nullptr) {
        // OpenSSL would keep an error queue for this thread, and lose it where the process ends before the thread.
        return true;
    }
    ERR_clear_error();
    return SSL_accept(m_tls.get()) == 1;
}

bool LoopbackConnection::isResumed() const {
    return m_tls != nullptr && SSL_session_reused(m_tls.get()) == 1;
}

std::size_t LoopbackConnection::read(char* buffer, std::size_t capacity) {
    if (m_tls != nullptr) {
        ERR_clear_error();
        return static_cast<std::size_t>(
            std::max(0, SSL_read(m_tls.get(), buffer, static_cast<int>(std::min<std::size_t>(capacity, INT_MAX)))));
    }
    ssize_t count = 0;
    do {
        count = ::recv(m_socket, buffer, capacity, 0);
    } while (count < 0 && errno == EINTR);
    return static_cast<std::size_t>(std::max<ssize_t>(0, count));
}

bool LoopbackConnection::write(std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t count = 0;
        if (m_tls != nullptr) {
            ERR_clear_error();
            count =
                SSL_write(m_tls.get(), bytes.data(), static_cast<int>(std::min<std::size_t>(bytes.size(), INT_MAX)));
        } else {
            count = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        }
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool LoopbackConnection::pause(std::optional<std::chrono::milliseconds> limit, const std::function<bool()>& mayGoOn) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + limit.value_or(std::chrono::milliseconds{0});
    while (!mayGoOn()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (limit && left.count() <= 0) {
            return true;
        }
        if (hasPeerLeft(left, !limit)) {
            return false;
        }
    }
    return true;
}

bool LoopbackConnection::hasPeerLeft(std::chrono::milliseconds wait, bool isEndless) {
    pollfd watched[] = {{.fd = m_socket, .events = POLLRDHUP, .revents = 0},
                        {.fd = m_wakeEvent, .events = POLLIN, .revents = 0}};
    const int patience = isEndless ? -1 : static_cast<int>(std::min<std::int64_t>(wait.count(), INT_MAX));
    poll(watched, 2, patience);
    if (watched[1].revents != 0) {
        eventfd_t count = 0;
        eventfd_read(m_wakeEvent, &count);
    }
    const std::scoped_lock lock(m_mutex);
    return m_isInterrupted || watched[0].revents != 0;
}

void LoopbackConnection::reset() {
    const linger abortive{.l_onoff = 1, .l_linger = 0};
    setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
    closeSocket();
}

void LoopbackConnection::close() {
    // After reset() or abandon() the descriptor may already be another connection's, and TLS still knows it.
    if (m_tls != nullptr && m_socket >= 0) {
        ERR_clear_error();
        SSL_shutdown(m_tls.get());
    }
    closeSocket();
}

void LoopbackConnection::abandon() {
    closeSocket();
}

void LoopbackConnection::interrupt() {
    const std::scoped_lock lock(m_mutex);
    m_isInterrupted = true;
    if (m_socket >= 0) {
        ::shutdown(m_socket, SHUT_RDWR);
    }
    eventfd_write(m_wakeEvent, 1);
}

void LoopbackConnection::wake() {
    eventfd_write(m_wakeEvent, 1);
}

void LoopbackConnection::closeSocket() {
    const std::scoped_lock lock(m_mutex);
    if (m_socket >= 0) {
        ::close(m_socket);
        m_socket = -1;
    }
}
