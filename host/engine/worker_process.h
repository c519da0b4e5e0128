#ifndef HOST_ENGINE_WORKER_PROCESS_H
#define HOST_ENGINE_WORKER_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "engine/database.h"
#include "engine/worker_protocol.h"

namespace host {

/// A child process that serves one request, and the socket to it. The destructor kills it.
class WorkerProcess {
public:
    using Clock = std::chrono::steady_clock;

    enum class Outcome {
        Message,
        Ended,  ///< the process has ended, and everything that it sent was received
        TimedOut,
        Stopped,
    };

    /// Starts the process. Throws std::system_error.
    WorkerProcess();
    ~WorkerProcess();
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    void send(const std::string& bytes) const;

    /// Waits for the next message.
    Outcome receive(Message& message, Clock::time_point deadline, const StopCheck& isStopped);

    /// Waits for the end of a process whose socket is closed.
    /// @return a text about how it ended ("signal 11")
    [[nodiscard]] std::string describeEnd();
    /// Whether it exceeded its limit of processor time; only after describeEnd().
    [[nodiscard]] bool isProcessorTimeOver() const noexcept { return m_isProcessorTimeOver; }

    /// Sets the program to start; the default is "/proc/self/exe", the running program. For tests.
    static void setProgram(const std::string& path);

private:
    [[nodiscard]] bool takeMessage(Message& message);
    [[nodiscard]] bool readMore();
    void reap(int options);

    pid_t m_process = -1;
    int m_socket = -1;
    std::string m_received;
    std::size_t m_taken = 0;  ///< processed bytes of m_received
    int m_status = 0;
    bool m_isProcessorTimeOver = false;
};

}  // namespace host

#endif
