#ifndef CF_TESTING_LOOPBACK_SOCKET_H
#define CF_TESTING_LOOPBACK_SOCKET_H

#include <csignal>
#include <cstdint>
#include <string>

#include "temporary_folder.h"

/// A listening port of 127.0.0.1. Throws std::runtime_error if the port is not available.
class LoopbackListener {
public:
    /// 0: a free port.
    explicit LoopbackListener(std::uint16_t port);
    ~LoopbackListener();
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    [[nodiscard]] std::uint16_t obtainPort() const { return m_port; }
    /// The socket of the next connection, owned by the caller; below 0 (with errno) after stop() or an error.
    [[nodiscard]] int accept() const;
    /// Ends a waiting accept() of another thread. Call close() only after that thread is joined.
    void stop() const;
    void close();

private:
    int m_socket;
    std::uint16_t m_port = 0;
};

/// While it lives, the calling thread and the threads it starts receive no signals: signals are handled elsewhere in
/// the process, and writing to a closed connection must end the connection, not the process.
class LoopbackBlockedSignals {
public:
    LoopbackBlockedSignals();
    ~LoopbackBlockedSignals();
    LoopbackBlockedSignals(const LoopbackBlockedSignals&) = delete;
    LoopbackBlockedSignals& operator=(const LoopbackBlockedSignals&) = delete;

private:
    sigset_t m_former{};
};

/// A file in the temporary folder that only this user may read, removed by the destructor.
class LoopbackPrivateFile {
public:
    explicit LoopbackPrivateFile(const std::string& text) : m_path(m_folder.write("loopback.pem", text)) {}

    [[nodiscard]] const std::string& obtainPath() const { return m_path; }

private:
    TemporaryFolder m_folder;
    std::string m_path;
};

#endif
