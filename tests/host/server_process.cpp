#include "server_process.h"

#include <pwd.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>

namespace {

using std::filesystem::perms;

constexpr std::chrono::seconds kPatience{120};

/// The user that servers run as if the tests run as root.
const passwd& findServerUser() {
    for (const char* name : {"postgres", "mysql", "nobody"}) {
        if (const passwd* user = getpwnam(name)) {
            return *user;
        }
    }
    throw std::runtime_error("there is no user that a server can run as");
}

void giveToServerUser(const std::string& path) {
    if (getuid() == 0 && chown(path.c_str(), findServerUser().pw_uid, findServerUser().pw_gid) != 0) {
        throw std::runtime_error("cannot give " + path + " to the server's user");
    }
}

}  // namespace

// Directly in /tmp: the path of a socket must be short, and the server's user must reach it.
ServerProcess::ServerProcess() : m_folder("/tmp") {
    // Clients that are other users connect to the socket in it.
    std::filesystem::permissions(m_folder.obtainPath(), perms::owner_all | perms::group_read | perms::group_exec |
                                                            perms::others_read | perms::others_exec);
    giveToServerUser(m_folder.obtainPath());
}

ServerProcess::~ServerProcess() {
    if (m_process) {
        m_process->sendSignal(m_stopSignal);
        m_process->wait();
    }
}

void ServerProcess::write(const std::string& fileName, const std::string& content) const {
    const std::string path = m_folder.write(fileName, content);
    std::filesystem::permissions(path, perms::owner_read | perms::owner_write);
    giveToServerUser(path);
}

/// @param endSignal  sent to the program if this process ends first
ChildProcessSetup ServerProcess::describe(const std::vector<std::string>& arguments, int endSignal) const {
    std::vector<std::string> command{"env", "--chdir=" + m_folder.obtainPath().string(), "setpriv",
                                     std::string("--pdeathsig=") + sigabbrev_np(endSignal)};
    if (getuid() == 0) {
        const passwd& user = findServerUser();
        command.push_back("--reuid=" + std::to_string(user.pw_uid));
        command.push_back("--regid=" + std::to_string(user.pw_gid));
        command.emplace_back("--init-groups");
    }
    command.insert(command.end(), arguments.begin(), arguments.end());
    return {.arguments = command, .errors = ChildProcessSetup::Errors::WithOutput, .patience = kPatience};
}

void ServerProcess::run(const std::vector<std::string>& arguments) const {
    ChildProcess process(describe(arguments, SIGKILL));
    if (process.wait() != 0) {
        throw std::runtime_error(arguments[0] + " failed: " + process.obtainOutput());
    }
}

void ServerProcess::start(const std::vector<std::string>& arguments, int stopSignal,
                          const std::function<bool()>& isReady) {
    m_stopSignal = stopSignal;
    m_process.emplace(describe(arguments, stopSignal));
    if (!m_process->waitUntil(isReady)) {
        throw std::runtime_error(arguments[0] + " does not get ready: " + m_process->obtainOutput());
    }
}
