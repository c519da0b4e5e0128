#include "process.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace {

/// What the child does between fork and exec: nothing but system calls, since other threads may hold locks.
struct ChildPlan {
    std::vector<char*> arguments;
    std::vector<char*> environment;
    int input = -1;
    int output = -1;
    int errors = -1;
    bool hasTerminal = false;  ///< `errors` becomes the controlling terminal
    bool isBoundByPermissions = false;
};

[[noreturn]] void runChild(const ChildPlan& plan) {
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
    execve(plan.arguments[0], plan.arguments.data(), plan.environment.data());
    _exit(127);
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    return ends;
}

std::array<int, 2> makeTerminal() {
    std::array<int, 2> ends{};
    if (openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) != 0) {
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

}  // namespace

Process::Process(const ProcessSetup& setup) {
    std::vector<std::string> arguments = setup.arguments;
    std::vector<std::string> environment;
    for (const auto& [name, value] : setup.environment) {
        environment.push_back(name + "=" + value);
    }
    ChildPlan plan{pointTo(arguments), pointTo(environment)};
    plan.isBoundByPermissions = setup.isBoundByPermissions;
    plan.hasTerminal = setup.terminal != ProcessSetup::Terminal::None;
    std::vector<int> childEnds;
    int output = -1;
    int errors = -1;
    if (setup.terminal == ProcessSetup::Terminal::All) {
        const auto [master, slave] = makeTerminal();
        childEnds = {slave};
        plan.input = plan.output = plan.errors = slave;
        output = master;
        m_input = fcntl(master, F_DUPFD_CLOEXEC, 0);
    } else {
        const auto [inputRead, inputWrite] = makePipe();
        const auto [outputRead, outputWrite] = makePipe();
        const auto [errorRead, errorWrite] = plan.hasTerminal ? makeTerminal() : makePipe();
        childEnds = {inputRead, outputWrite, errorWrite};
        plan.input = inputRead;
        plan.output = outputWrite;
        plan.errors = errorWrite;
        m_input = inputWrite;
        output = outputRead;
        errors = errorRead;
    }
    m_process = fork();
    if (m_process == 0) {
        runChild(plan);
    }
    for (const int end : childEnds) {
        close(end);
    }
    startReading(m_output, output);
    if (errors >= 0) {
        startReading(m_errors, errors);
    }
}

Process::~Process() {
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    closeInput();
    for (Stream* stream : {&m_output, &m_errors}) {
        if (stream->reader.joinable()) {
            stream->reader.join();
        }
        if (stream->descriptor >= 0) {
            close(stream->descriptor);
        }
    }
}

void Process::startReading(Stream& stream, int descriptor) {
    stream.descriptor = descriptor;
    stream.isOpen = true;
    stream.reader = std::thread([this, &stream] {
        std::array<char, 4096> bytes{};
        while (true) {
            // A terminal whose other end is closed gives an error in place of an end.
            const ssize_t count = read(stream.descriptor, bytes.data(), bytes.size());
            if (count < 0 && errno == EINTR) {
                continue;
            }
            const std::lock_guard lock(m_mutex);
            if (count <= 0) {
                stream.isOpen = false;
                m_changed.notify_all();
                return;
            }
            stream.text.append(bytes.data(), static_cast<std::size_t>(count));
            m_changed.notify_all();
        }
    });
}

void Process::write(std::string_view text) const {
    while (!text.empty()) {
        const ssize_t count = ::write(m_input, text.data(), text.size());
        if (count < 0) {
            throw std::runtime_error("the program does not take its input");
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void Process::closeInput() {
    if (m_input >= 0) {
        close(std::exchange(m_input, -1));
    }
}

void Process::sendSignal(int signal) const {
    kill(m_process, signal);
}

bool Process::waitForText(const Stream& stream, std::string_view text) {
    std::unique_lock lock(m_mutex);
    const auto isThere = [&] { return stream.text.find(text) != std::string::npos; };
    m_changed.wait_for(lock, kPatience, [&] { return isThere() || !stream.isOpen; });
    return isThere();
}

bool Process::waitForOutput(std::string_view text) {
    return waitForText(m_output, text);
}

bool Process::waitForErrors(std::string_view text) {
    return waitForText(m_errors, text);
}

int Process::wait() {
    bool isInTime = false;
    {
        std::unique_lock lock(m_mutex);
        isInTime = m_changed.wait_for(lock, kPatience, [&] { return !m_output.isOpen && !m_errors.isOpen; });
    }
    if (!isInTime) {
        kill(m_process, SIGKILL);
    }
    int status = 0;
    waitpid(std::exchange(m_process, -1), &status, 0);
    if (!isInTime) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Process::obtainOutput() const {
    const std::lock_guard lock(m_mutex);
    return m_output.text;
}

std::string Process::obtainErrors() const {
    const std::lock_guard lock(m_mutex);
    return m_errors.text;
}
