#ifndef HOST_ENGINE_WORKER_PROCESS_H
#define HOST_ENGINE_WORKER_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "engine/database.h"
#include "engine/worker_protocol.h"

namespace host {

/// A child process that serves one request, and the socket to it. It is killed with this object.
class WorkerProcess {
public:
    using Clock = std::chrono::steady_clock;

    enum class Outcome {
        Message,
        Ended,  ///< the process is gone, and everything that it sent was received
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
    /// @return how it ended, for a person ("signal 11")
    [[nodiscard]] std::string describeEnd();
    /// Whether the limit of processor time ended it; only after describeEnd().
    [[nodiscard]] bool isProcessorTimeOver() const noexcept { return m_isProcessorTimeOver; }

    /// The program that is started; "/proc/self/exe", the running program, unless a test names another.
    static void setProgram(const std::string& path);

private:
    [[nodiscard]] bool takeMessage(Message& message);
    [[nodiscard]] bool readMore();
    void reap(int options);

    pid_t m_process = -1;
    int m_socket = -1;
    std::string m_received;
    std::size_t m_taken = 0;  ///< bytes of m_received that are done with
    int m_status = 0;
    bool m_isProcessorTimeOver = false;
};

}  // namespace host

#endif
