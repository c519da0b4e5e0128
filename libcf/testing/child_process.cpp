#include "child_process.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <utility>

namespace {

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    return ends;
}

std::array<int, 2> makeTerminal(std::size_t columns) {
    std::array<int, 2> ends{};
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    if (openpty(&ends[0], &ends[1], nullptr, nullptr, columns != 0 ? &size : nullptr) != 0) {
        throw std::runtime_error("no pseudo terminal");
    }
    for (const int end : ends) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    return ends;
}

std::vector<char*> pointTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> listEnvironment(const ChildProcessSetup& setup) {
    std::vector<std::string> lines;
    if (setup.environment) {
        for (const auto& [name, value] : *setup.environment) {
            lines.push_back(name + "=" + value);
        }
        return lines;
    }
    for (char** line = environ; *line != nullptr; ++line) {
        lines.emplace_back(*line);
    }
    return lines;
}

/// Whether a signal was sent to a process but not delivered yet.
bool isSignalPending(pid_t process, int signal) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("ShdPnd:")) {
            return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1) != 0;
        }
    }
    return false;
}

}  // namespace

ChildProcess::ChildProcess(const ChildProcessSetup& setup) : m_patience(setup.patience) {
    std::vector<std::string> arguments = setup.arguments;
    std::vector<std::string> environment = listEnvironment(setup);
    Plan plan{pointTo(arguments), pointTo(environment)};
    plan.isBoundByPermissions = setup.isBoundByPermissions;
    plan.hasTerminal = setup.terminal != Terminal::None;
    if (setup.terminal == Terminal::All) {
        connectTerminal(setup, plan);
    } else {
        connectPipes(setup, plan);
    }
    m_process = fork();
    if (m_process == 0) {
        runChild(plan);
    }
    for (const int end : std::set<int>{plan.input, plan.output, plan.errors}) {
        if (end != STDERR_FILENO) {
            close(end);
        }
    }
    if (m_process < 0) {
        throw std::runtime_error("no process");
    }
}

void ChildProcess::connectTerminal(const ChildProcessSetup& setup, Plan& plan) {
    const auto [master, slave] = makeTerminal(setup.terminalColumns);
    plan.input = plan.output = plan.errors = slave;
    m_output.descriptor = master;
    m_input = fcntl(master, F_DUPFD_CLOEXEC, 0);
}

void ChildProcess::connectPipes(const ChildProcessSetup& setup, Plan& plan) {
    const auto [inputRead, inputWrite] = makePipe();
    const auto [outputRead, outputWrite] = makePipe();
    plan.input = inputRead;
    plan.output = outputWrite;
    m_input = inputWrite;
    m_output.descriptor = outputRead;
    if (setup.errors == ChildProcessSetup::Errors::Inherited) {
        plan.errors = STDERR_FILENO;
        return;
    }
    if (setup.errors == ChildProcessSetup::Errors::WithOutput) {
        plan.errors = outputWrite;
        return;
    }
    const auto [errorRead, errorWrite] = plan.hasTerminal ? makeTerminal(setup.terminalColumns) : makePipe();
    plan.errors = errorWrite;
    m_errors.descriptor = errorRead;
}

/// Makes only system calls: other threads of this process may hold locks.
void ChildProcess::runChild(const Plan& plan) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (plan.hasTerminal && (setsid() < 0 || ioctl(plan.errors, TIOCSCTTY, 0) != 0)) {
        _exit(126);
    }
    dup2(plan.input, STDIN_FILENO);
    dup2(plan.output, STDOUT_FILENO);
    dup2(plan.errors, STDERR_FILENO);
    if (plan.isBoundByPermissions && geteuid() == 0) {
        for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) {
            if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
                _exit(126);
            }
        }
    }
    execvpe(plan.arguments[0], plan.arguments.data(), plan.environment.data());
    _exit(127);
}

ChildProcess::~ChildProcess() {
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    closeInput();
    for (const Stream* stream : {&m_output, &m_errors}) {
        if (stream->descriptor >= 0) {
            close(stream->descriptor);
        }
    }
}

void ChildProcess::readFrom(Stream& stream) {
    std::array<char, 65536> bytes{};
    const ssize_t count = read(stream.descriptor, bytes.data(), bytes.size());
    if (count > 0) {
        stream.text.append(bytes.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        // A terminal whose other end is closed reports an error instead of an end.
        close(std::exchange(stream.descriptor, -1));
    }
}

ChildProcess::Progress ChildProcess::readMore(std::chrono::milliseconds patience, bool isWriting) {
    // poll() ignores descriptors below 0.
    std::array<pollfd, 3> descriptors{
        {{m_output.descriptor, POLLIN, 0}, {m_errors.descriptor, POLLIN, 0}, {isWriting ? m_input : -1, POLLOUT, 0}}};
    if (m_output.descriptor < 0 && m_errors.descriptor < 0 && !isWriting) {
        return Progress::Closed;
    }
    const int ready = poll(descriptors.data(), descriptors.size(), static_cast<int>(patience.count()));
    if (ready <= 0) {
        return ready < 0 && errno == EINTR ? Progress::Some : Progress::None;
    }
    if (descriptors[0].revents != 0) {
        readFrom(m_output);
    }
    if (descriptors[1].revents != 0) {
        readFrom(m_errors);
    }
    return Progress::Some;
}

void ChildProcess::write(std::string_view text) {
    fcntl(m_input, F_SETFL, fcntl(m_input, F_GETFL) | O_NONBLOCK);
    while (!text.empty()) {
        const ssize_t count = ::write(m_input, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EAGAIN || readMore(m_patience, true) == Progress::None) {
            throw std::runtime_error("the program does not take its input");
        }
    }
}

void ChildProcess::closeInput() {
    if (m_input >= 0) {
        close(std::exchange(m_input, -1));
    }
}

void ChildProcess::sendSignal(int signal) const {
    kill(m_process, signal);
}

void ChildProcess::sendSignalTwice(int signal) const {
    sendSignal(signal);
    while (isSignalPending(m_process, signal)) {
        sched_yield();
    }
    sendSignal(signal);
}

bool ChildProcess::waitUntil(const std::function<bool()>& isReached) {
    // The condition may become true without any output of the program.
    constexpr std::chrono::milliseconds kInterval{20};
    const auto end = std::chrono::steady_clock::now() + m_patience;
    while (!isReached()) {
        if (std::chrono::steady_clock::now() > end || readMore(kInterval) == Progress::Closed) {
            return isReached();
        }
    }
    return true;
}

bool ChildProcess::waitForOutput(std::string_view text) {
    return waitUntil([&] { return m_output.text.find(text) != std::string::npos; });
}

bool ChildProcess::waitForErrors(std::string_view text) {
    return waitUntil([&] { return m_errors.text.find(text) != std::string::npos; });
}

std::string ChildProcess::readLine() {
    static_cast<void>(waitUntil(
        [&] { return m_output.descriptor < 0 || m_output.text.find('\n', m_readPosition) != std::string::npos; }));
    const std::size_t end = std::min(m_output.text.find('\n', m_readPosition), m_output.text.size());
    std::string line = m_output.text.substr(m_readPosition, end - m_readPosition);
    m_readPosition = std::min(end + 1, m_output.text.size());
    return line;
}

std::string ChildProcess::readBytes(std::size_t size) {
    static_cast<void>(
        waitUntil([&] { return m_output.descriptor < 0 || m_output.text.size() - m_readPosition >= size; }));
    std::string bytes = m_output.text.substr(m_readPosition, size);
    m_readPosition += bytes.size();
    return bytes;
}

bool ChildProcess::isAtEnd() {
    static_cast<void>(waitUntil([&] { return m_output.descriptor < 0 || m_output.text.size() > m_readPosition; }));
    return m_output.descriptor < 0 && m_output.text.size() == m_readPosition;
}

int ChildProcess::wait() {
    return collect(waitUntil([&] { return m_output.descriptor < 0 && m_errors.descriptor < 0; }));
}

int ChildProcess::waitWithoutReading() {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, m_process, 0));
    pollfd end{descriptor, POLLIN, 0};
    const bool isInTime = poll(&end, 1, static_cast<int>(m_patience.count())) == 1;
    close(descriptor);
    return collect(isInTime);
}

int ChildProcess::collect(bool isInTime) {
    if (!isInTime) {
        kill(m_process, SIGKILL);
    }
    int status = 0;
    while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
    }
    m_process = -1;
    if (!isInTime) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string ChildProcess::obtainOutput() {
    while (m_output.descriptor >= 0 && readMore(std::chrono::milliseconds(0)) == Progress::Some) {
    }
    return m_output.text;
}

std::string ChildProcess::obtainErrors() {
    while (m_errors.descriptor >= 0 && readMore(std::chrono::milliseconds(0)) == Progress::Some) {
    }
    return m_errors.text;
}

std::string obtainSiblingPath(const std::string& name) {
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
}
