#ifndef TESTS_HOST_SERVER_PROCESS_H
#define TESTS_HOST_SERVER_PROCESS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "child_process.h"
#include "temporary_folder.h"

/// A database server for the tests: a temporary folder, and the server's process, which ends with this object or with
/// the test. Servers refuse to run as root, so a test that runs as root starts them as another user.
class ServerProcess {
public:
    ServerProcess();
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// A path in the folder.
    [[nodiscard]] std::string name(const std::string& fileName) const { return m_folder.name(fileName); }
    /// Writes a file that only the server's user can read.
    void write(const std::string& fileName, const std::string& content) const;

    /// Runs a program as the server's user to its end. Throws std::runtime_error with its output if it fails.
    void run(const std::vector<std::string>& arguments) const;
    /// Starts the server and waits until it is ready. Throws std::runtime_error with its output if it never is. Later
    /// output is not read before the end: the server must not log more than a pipe holds.
    /// @param stopSignal  ends the server at once, without cleaning up
    void start(const std::vector<std::string>& arguments, int stopSignal, const std::function<bool()>& isReady);

private:
    [[nodiscard]] ChildProcessSetup describe(const std::vector<std::string>& arguments, int endSignal) const;

    TemporaryFolder m_folder;
    std::optional<ChildProcess> m_process;
    int m_stopSignal = 0;
};

#endif
