#ifndef TESTS_HOST_SERVER_PROCESS_H
#define TESTS_HOST_SERVER_PROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// A database server for the tests: a folder of its own under /tmp, and the server's process, which ends with this
/// object or with the test. Servers refuse to run as root, so that it runs as another user then.
class ServerProcess {
public:
    ServerProcess();
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// A path in the folder.
    [[nodiscard]] std::string name(const std::string& fileName) const { return m_folder + "/" + fileName; }
    /// Writes a file that only the server's user can read.
    void write(const std::string& fileName, const std::string& content) const;

    /// Runs a program as the server's user to its end. Throws std::runtime_error with what it wrote where it fails.
    void run(const std::vector<std::string>& arguments) const;
    /// Starts the server and waits until it is ready. Throws std::runtime_error with its log where it never is.
    /// @param stopSignal  what has it end at once, without cleaning up
    void start(const std::vector<std::string>& arguments, int stopSignal, const std::function<bool()>& isReady);

private:
    [[nodiscard]] pid_t launch(const std::vector<std::string>& arguments, int endSignal) const;
    [[nodiscard]] std::string readLog() const;

    std::string m_folder;
    pid_t m_process = -1;
    int m_stopSignal = 0;
};

#endif
