#include "engine/worker_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace host {
namespace {

constexpr std::chrono::milliseconds kStopCheckInterval{100};
constexpr std::size_t kReadBytes = 64 * 1024;

std::string& programPath() {
    static std::string path = "/proc/self/exe";
    return path;
}

[[noreturn]] void failSystem(int error, const char* what) {
    throw std::system_error(error, std::generic_category(), what);
}

/// The child's descriptors, signals and process group. It has its own group, so a Ctrl-C on the terminal reaches only
/// this program, which then decides.
class SpawnSetup {
public:
    explicit SpawnSetup(int socket) {
        posix_spawn_file_actions_init(&m_actions);
        posix_spawn_file_actions_adddup2(&m_actions, socket, STDIN_FILENO);
        posix_spawn_file_actions_addopen(&m_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
        posix_spawnattr_init(&m_attributes);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
        posix_spawnattr_setpgroup(&m_attributes, 0);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&m_attributes, &none);
    }
    ~SpawnSetup() {
        posix_spawnattr_destroy(&m_attributes);
        posix_spawn_file_actions_destroy(&m_actions);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    [[nodiscard]] int spawn(pid_t& process) const {
        std::string name = "kai";
        std::string word = kWorkerWord;
        const std::array<char*, 3> arguments{name.data(), word.data(), nullptr};
        return posix_spawn(&process, programPath().c_str(), &m_actions, &m_attributes, arguments.data(), environ);
    }

private:
    posix_spawn_file_actions_t m_actions{};
    posix_spawnattr_t m_attributes{};
};

int measureWait(WorkerProcess::Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - WorkerProcess::Clock::now());
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds{0}, kStopCheckInterval).count());
}

}  // namespace

WorkerProcess::WorkerProcess() {
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        failSystem(errno, "socketpair");
    }
    m_socket = sockets[0];
    const int error = SpawnSetup(sockets[1]).spawn(m_process);
    close(sockets[1]);
    if (error != 0) {
        close(m_socket);
        failSystem(error, "starting a process for the database");
    }
}

WorkerProcess::~WorkerProcess() {
    close(m_socket);
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        reap(0);
    }
}

void WorkerProcess::reap(int options) {
    pid_t ended = 0;
    while ((ended = waitpid(m_process, &m_status, options)) < 0 && errno == EINTR) {
    }
    if (ended != 0) {
        m_process = -1;
    }
}

void WorkerProcess::send(const std::string& bytes) const {
    std::string_view rest = bytes;
    while (!rest.empty()) {
        const ssize_t sent = ::send(m_socket, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(sent));
        } else if (errno != EINTR) {
            return;  // the process has ended: receive() reports it
        }
    }
}

WorkerProcess::Outcome WorkerProcess::receive(Message& message, Clock::time_point deadline,
                                              const StopCheck& isStopped) {
    while (!takeMessage(message)) {
        pollfd wanted{m_socket, POLLIN, 0};
        const int ready = poll(&wanted, 1, measureWait(deadline));
        if (isStopped && isStopped()) {
            return Outcome::Stopped;
        }
        if (ready > 0 && !readMore()) {
            return Outcome::Ended;
        }
        if (ready == 0 && Clock::now() >= deadline) {
            return Outcome::TimedOut;
        }
    }
    return Outcome::Message;
}

bool WorkerProcess::takeMessage(Message& message) {
    const std::string_view rest = std::string_view(m_received).substr(m_taken);
    if (rest.size() < kMessageHeadBytes) {
        return false;
    }
    MessageHead head;
    WireReader(rest.substr(0, kMessageHeadBytes))(head.length, head.kind);
    if (rest.size() - kMessageHeadBytes < head.length) {
        return false;
    }
    message.kind = head.kind;
    message.content = rest.substr(kMessageHeadBytes, head.length);
    m_taken += kMessageHeadBytes + head.length;
    return true;
}

bool WorkerProcess::readMore() {
    m_received.erase(0, m_taken);
    m_taken = 0;
    const std::size_t former = m_received.size();
    m_received.resize(former + kReadBytes);
    const ssize_t count = recv(m_socket, m_received.data() + former, kReadBytes, 0);
    m_received.resize(former + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return count > 0 || (count < 0 && errno == EINTR);
}

std::string WorkerProcess::describeEnd() {
    if (m_process > 0) {
        reap(0);
    }
    m_isProcessorTimeOver = WIFSIGNALED(m_status) && WTERMSIG(m_status) == SIGXCPU;
    return WIFSIGNALED(m_status) ? "signal " + std::to_string(WTERMSIG(m_status))
                                 : "exit code " + std::to_string(WEXITSTATUS(m_status));
}

void WorkerProcess::setProgram(const std::string& path) {
    programPath() = path;
}

}  // namespace host
