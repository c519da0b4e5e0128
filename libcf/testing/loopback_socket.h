#ifndef CF_TESTING_LOOPBACK_SOCKET_H
#define CF_TESTING_LOOPBACK_SOCKET_H

#include <csignal>
#include <cstdint>
#include <string>

#include "temporary_folder.h"

/// A port of 127.0.0.1 that is listened on. Throws std::runtime_error when it cannot be had.
class LoopbackListener {
public:
    /// 0: a free port.
    explicit LoopbackListener(std::uint16_t port);
    ~LoopbackListener();
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    [[nodiscard]] std::uint16_t obtainPort() const { return m_port; }
    /// The socket of the next connection, the caller's to close; below 0 (with errno) after stop() or an error.
    [[nodiscard]] int accept() const;
    /// Ends a waiting accept() of another thread; close() may follow when that thread is joined.
    void stop() const;
    void close();

private:
    int m_socket;
    std::uint16_t m_port = 0;
};

/// While it lives, the calling thread and those it starts take no signal: signals are the process's own business, and
/// writing to a client that has gone must end the connection, not the process.
class LoopbackBlockedSignals {
public:
    LoopbackBlockedSignals();
    ~LoopbackBlockedSignals();
    LoopbackBlockedSignals(const LoopbackBlockedSignals&) = delete;
    LoopbackBlockedSignals& operator=(const LoopbackBlockedSignals&) = delete;

private:
    sigset_t m_former{};
};

/// A file of the temporary folder that only this user may read, removed at the end.
class LoopbackPrivateFile {
public:
    explicit LoopbackPrivateFile(const std::string& text) : m_path(m_folder.write("loopback.pem", text)) {}

    [[nodiscard]] const std::string& obtainPath() const { return m_path; }

private:
    TemporaryFolder m_folder;
    std::string m_path;
};

#endif
