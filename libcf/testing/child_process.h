#ifndef CF_TESTING_CHILD_PROCESS_H
#define CF_TESTING_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// How a program is started.
struct ChildProcessSetup {
    std::vector<std::string> arguments;  ///< the program first, searched in PATH unless it contains a slash
    std::optional<std::map<std::string, std::string>>
        environment{};  ///< the whole environment; nothing: this process's own
    /// Which of its descriptors are connected to a terminal of its own; the others are pipes.
    enum class Terminal { None, ErrorOnly, All } terminal = Terminal::None;
    std::size_t terminalColumns = 0;  ///< the terminal's width; 0: not set
    /// Where its standard error goes.
    enum class Errors { Separate, WithOutput, Inherited } errors = Errors::Separate;
    /// Without root's right to bypass file permissions, so that they apply to root too.
    bool isBoundByPermissions = false;
    std::chrono::seconds patience{60};  ///< the time limit of every wait
};

/// A child process. Starts no thread: the program's output is read whenever this object waits for something. The
/// destructor kills the program.
class ChildProcess {
public:
    using Terminal = ChildProcessSetup::Terminal;

    /// Throws std::runtime_error if there are no pipes or terminals. A program that cannot be run ends with 127.
    explicit ChildProcess(const ChildProcessSetup& setup);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Writes to its standard input. Throws std::runtime_error if the program does not read it.
    void write(std::string_view text);
    void closeInput();
    void sendSignal(int signal) const;
    /// Sends two signals that the program receives one by one: the second is sent when the first has been delivered.
    void sendSignalTwice(int signal) const;
    [[nodiscard]] pid_t obtainId() const noexcept { return m_process; }

    /// Waits until standard output, or standard error, contains the text. On a terminal both are output. False if the
    /// program's output ends before that, or the time limit is over.
    [[nodiscard]] bool waitForOutput(std::string_view text);
    [[nodiscard]] bool waitForErrors(std::string_view text);
    /// Like waitForOutput, for any condition.
    [[nodiscard]] bool waitUntil(const std::function<bool()>& isReached);

    /// The next line of standard output without its line feed; the rest of the output at its end.
    [[nodiscard]] std::string readLine();
    /// The next bytes of standard output; fewer at its end.
    [[nodiscard]] std::string readBytes(std::size_t size);
    /// Whether readLine and readBytes have read all of standard output, and no more will come.
    [[nodiscard]] bool isAtEnd();

    /// Waits for the program's end and reads its output meanwhile; kills it when the time limit is over.
    /// @return its exit code; 128 plus the signal's number if a signal ended it; -1 if it was killed here
    int wait();
    /// Like wait(), but reads nothing meanwhile, like a reader that has stopped.
    int waitWithoutReading();

    /// Everything that was written so far.
    [[nodiscard]] std::string obtainOutput();
    [[nodiscard]] std::string obtainErrors();

private:
    struct Stream {
        int descriptor = -1;
        std::string text;
    };

    /// What the child does between fork and exec.
    struct Plan {
        std::vector<char*> arguments;
        std::vector<char*> environment;
        int input = -1;
        int output = -1;
        int errors = -1;
        bool hasTerminal = false;  ///< `errors` becomes the controlling terminal
        bool isBoundByPermissions = false;
    };

    [[noreturn]] static void runChild(const Plan& plan);
    void connectPipes(const ChildProcessSetup& setup, Plan& plan);
    void connectTerminal(const ChildProcessSetup& setup, Plan& plan);
    enum class Progress { Some, None, Closed };
    /// Reads the available output, and waits for some if there is none.
    /// @param isWriting  also waits until its standard input accepts more
    /// @return None if the time is over, Closed if there is nothing to wait for
    Progress readMore(std::chrono::milliseconds patience, bool isWriting = false);
    static void readFrom(Stream& stream);
    int collect(bool isInTime);

    std::chrono::milliseconds m_patience;
    pid_t m_process = -1;
    int m_input = -1;
    Stream m_output;
    Stream m_errors;
    std::size_t m_readPosition = 0;  ///< the position of readLine and readBytes
};

/// The path of a program in the same folder as this one.
[[nodiscard]] std::string obtainSiblingPath(const std::string& name);

#endif
