#include "child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>

namespace {

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    return {ends[0], ends[1]};
}

class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&m_actions); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&m_actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    void redirect(int from, int to) { posix_spawn_file_actions_adddup2(&m_actions, from, to); }
    const posix_spawn_file_actions_t* obtain() const { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions{};
};

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command) : m_name(command.front()) {
    const Pipe input = makePipe();
    const Pipe output = makePipe();
    SpawnActions actions;
    actions.redirect(input.readEnd, STDIN_FILENO);
    actions.redirect(output.writeEnd, STDOUT_FILENO);
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const int result = posix_spawnp(&m_pid, m_name.c_str(), actions.obtain(), nullptr, arguments.data(), environ);
    close(input.readEnd);
    close(output.writeEnd);
    m_input.reset(fdopen(input.writeEnd, "w"));
    m_output.reset(fdopen(output.readEnd, "r"));
    if (result != 0) {
        m_pid = -1;
        throw std::runtime_error("cannot run " + m_name);
    }
}

ChildProcess::~ChildProcess() {
    m_input.reset();
    m_output.reset();
    wait();
}

void ChildProcess::writeLine(const std::string& line) {
    std::fprintf(m_input.get(), "%s\n", line.c_str());
    std::fflush(m_input.get());
}

std::string ChildProcess::readLine() {
    std::string line;
    int byte = 0;
    while ((byte = std::fgetc(m_output.get())) != EOF) {
        if (byte == '\n') {
            return line;
        }
        line += static_cast<char>(byte);
    }
    throw std::runtime_error(m_name + " ended early");
}

std::string ChildProcess::readBytes(std::size_t size) {
    std::string bytes(size, '\0');
    if (std::fread(bytes.data(), 1, size, m_output.get()) != size) {
        throw std::runtime_error(m_name + " ended early");
    }
    return bytes;
}

std::string ChildProcess::finish() {
    m_input.reset();
    std::string text;
    int byte = 0;
    while ((byte = std::fgetc(m_output.get())) != EOF) {
        text += static_cast<char>(byte);
    }
    const int status = wait();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error(m_name + " failed");
    }
    return text;
}

int ChildProcess::wait() {
    int status = 0;
    while (m_pid > 0 && waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
    return status;
}

std::string obtainSiblingPath(const std::string& name) {
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
}
