#ifndef BENCH_CHILD_PROCESS_H
#define BENCH_CHILD_PROCESS_H

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

/// Another program, run with pipes to its standard input and from its standard output.
class ChildProcess {
public:
    /// Throws std::runtime_error when it cannot be started.
    /// @param command  the program, searched in PATH unless it has a slash, and its arguments
    explicit ChildProcess(const std::vector<std::string>& command);
    /// Closes its standard input and waits for its end.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void writeLine(const std::string& line);
    /// A line of its output without the line feed. Throws std::runtime_error at the end of the output.
    std::string readLine();
    /// Exactly that many bytes of its output. Throws std::runtime_error when there are fewer.
    std::string readBytes(std::size_t size);
    /// Reads the rest of its output and waits for its end. Throws std::runtime_error when it did not exit with 0.
    std::string finish();

private:
    struct FileCloser {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };

    int wait();

    std::string m_name;
    pid_t m_pid = -1;
    std::unique_ptr<std::FILE, FileCloser> m_input;
    std::unique_ptr<std::FILE, FileCloser> m_output;
};

/// The path of a program that stands beside this one.
[[nodiscard]] std::string obtainSiblingPath(const std::string& name);

#endif
