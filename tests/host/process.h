#ifndef TESTS_HOST_PROCESS_H
#define TESTS_HOST_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// How a program is started.
struct ProcessSetup {
    std::vector<std::string> arguments;                ///< the program's path first
    std::map<std::string, std::string> environment{};  ///< all of it
    /// Which of its descriptors lead to a terminal of its own; the others are pipes.
    enum class Terminal { None, ErrorOnly, All } terminal = Terminal::None;
    /// Without the right of root to pass over file permissions, so that they count for root too.
    bool isBoundByPermissions = false;
};

/// A program that runs beside the test. What it writes is collected as it comes. It is killed with this object.
class Process {
public:
    static constexpr std::chrono::seconds kPatience{60};

    explicit Process(const ProcessSetup& setup);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void write(std::string_view text) const;
    void closeInput();
    void sendSignal(int signal) const;

    /// Waits until the text stands in what was written to standard output, or standard error. On a terminal both come
    /// as output. False when the program ends, or the patience does, before that.
    [[nodiscard]] bool waitForOutput(std::string_view text);
    [[nodiscard]] bool waitForErrors(std::string_view text);

    /// Waits for the program's end; kills it when the patience is over.
    /// @return its exit code; 128 and the signal's number when a signal ended it; -1 when it was killed here
    int wait();

    [[nodiscard]] std::string obtainOutput() const;
    [[nodiscard]] std::string obtainErrors() const;

private:
    struct Stream {
        int descriptor = -1;
        std::string text;
        bool isOpen = false;
        std::thread reader;
    };

    void startReading(Stream& stream, int descriptor);
    [[nodiscard]] bool waitForText(const Stream& stream, std::string_view text);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    pid_t m_process = -1;
    int m_input = -1;
    Stream m_output;
    Stream m_errors;
};

#endif
