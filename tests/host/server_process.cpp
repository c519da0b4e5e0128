#include "server_process.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "test_folder.h"

namespace {

constexpr std::chrono::seconds kPatience{120};

/// The user that servers run as where the tests run as root.
const passwd& findServerUser() {
    for (const char* name : {"postgres", "mysql", "nobody"}) {
        if (const passwd* user = getpwnam(name)) {
            return *user;
        }
    }
    throw std::runtime_error("there is no user that a server can run as");
}

void becomeServerUser() {
    if (getuid() == 0) {
        const passwd& user = findServerUser();
        if (initgroups(user.pw_name, user.pw_gid) != 0 || setgid(user.pw_gid) != 0 || setuid(user.pw_uid) != 0) {
            _exit(126);
        }
    }
}

void giveToServerUser(const std::string& path) {
    if (getuid() == 0 && chown(path.c_str(), findServerUser().pw_uid, findServerUser().pw_gid) != 0) {
        throw std::runtime_error("cannot give " + path + " to the server's user");
    }
}

}  // namespace

ServerProcess::ServerProcess() {
    std::string path = "/tmp/kai-server-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder for the server");
    }
    m_folder = path;
    // Clients of other users come to the socket in it.
    chmod(path.c_str(), 0755);
    giveToServerUser(path);
}

ServerProcess::~ServerProcess() {
    if (m_process > 0) {
        kill(m_process, m_stopSignal);
        waitpid(m_process, nullptr, 0);
    }
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

void ServerProcess::write(const std::string& fileName, const std::string& content) const {
    std::ofstream(name(fileName)) << content;
    chmod(name(fileName).c_str(), 0600);
    giveToServerUser(name(fileName));
}

pid_t ServerProcess::launch(const std::vector<std::string>& arguments, int endSignal) const {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process == 0) {
        const int log = open(name("log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        if (chdir(m_folder.c_str()) != 0) {
            _exit(126);
        }
        becomeServerUser();
        prctl(PR_SET_PDEATHSIG, endSignal);
        if (getppid() == parent) {
            execv(pointers[0], pointers.data());
        }
        _exit(127);
    }
    return process;
}

void ServerProcess::run(const std::vector<std::string>& arguments) const {
    int status = -1;
    if (waitpid(launch(arguments, SIGKILL), &status, 0) < 0 || status != 0) {
        throw std::runtime_error(arguments[0] + " failed: " + readLog());
    }
}

void ServerProcess::start(const std::vector<std::string>& arguments, int stopSignal,
                          const std::function<bool()>& isReady) {
    m_stopSignal = stopSignal;
    m_process = launch(arguments, stopSignal);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!isReady()) {
        if (waitpid(m_process, nullptr, WNOHANG) != 0) {
            m_process = -1;
            throw std::runtime_error(arguments[0] + " ended: " + readLog());
        }
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error(arguments[0] + " does not get ready: " + readLog());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
    }
}

std::string ServerProcess::readLog() const {
    return readFile(name("log"));
}
