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
    std::vector<std::string> arguments;  ///< the program first, searched in PATH unless it has a slash
    std::optional<std::map<std::string, std::string>> environment{};  ///< all of it; nothing: this process's own
    /// Which of its descriptors lead to a terminal of its own; the others are pipes.
    enum class Terminal { None, ErrorOnly, All } terminal = Terminal::None;
    std::size_t terminalColumns = 0;  ///< the terminal's width; 0: not set
    /// Where its standard error goes.
    enum class Errors { Separate, WithOutput, Inherited } errors = Errors::Separate;
    /// Without root's right to pass over file permissions, so that they count for root too.
    bool isBoundByPermissions = false;
    std::chrono::seconds patience{60};  ///< how long any wait lasts before it gives up
};

/// Another program. It starts no thread: what the program writes is read whenever this object waits for something.
/// The program is killed with this object.
class ChildProcess {
public:
    using Terminal = ChildProcessSetup::Terminal;

    /// Throws std::runtime_error when there are no pipes or terminals. A program that cannot be run ends with 127.
    explicit ChildProcess(const ChildProcessSetup& setup);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Writes to its standard input. Throws std::runtime_error when nobody takes it.
    void write(std::string_view text);
    void closeInput();
    void sendSignal(int signal) const;
    /// Two signals that the program gets one by one: the second is sent when the first has reached it.
    void sendSignalTwice(int signal) const;
    [[nodiscard]] pid_t obtainId() const noexcept { return m_process; }

    /// Waits until the text stands in all that was written to standard output, or standard error. On a terminal both
    /// come as output. False when the program's output ends before that, or the patience is over.
    [[nodiscard]] bool waitForOutput(std::string_view text);
    [[nodiscard]] bool waitForErrors(std::string_view text);
    /// As waitForOutput, for whatever the caller looks for, here or elsewhere.
    [[nodiscard]] bool waitUntil(const std::function<bool()>& isReached);

    /// The next line of standard output without its line feed; what is left of it at its end.
    [[nodiscard]] std::string readLine();
    /// The next bytes of standard output; fewer at its end.
    [[nodiscard]] std::string readBytes(std::size_t size);
    /// Whether all of standard output was read by readLine and readBytes, and no more will come.
    [[nodiscard]] bool isAtEnd();

    /// Waits for the program's end, and reads what it writes until then; kills it when the patience is over.
    /// @return its exit code; 128 and the signal's number when a signal ended it; -1 when it was killed here
    int wait();
    /// As wait(), but reads nothing meanwhile, as a reader that has stopped does.
    int waitWithoutReading();

    /// All that was written so far.
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
    /// Reads what there is, and waits for it if need be.
    /// @param isWriting  waits for room in its standard input as well
    /// @return None when the time is over, Closed when there is nothing to wait for
    Progress readMore(std::chrono::milliseconds patience, bool isWriting = false);
    static void readFrom(Stream& stream);
    int collect(bool isInTime);

    std::chrono::milliseconds m_patience;
    pid_t m_process = -1;
    int m_input = -1;
    Stream m_output;
    Stream m_errors;
    std::size_t m_readPosition = 0;  ///< how far readLine and readBytes have come
};

/// The path of a program that stands beside this one.
[[nodiscard]] std::string obtainSiblingPath(const std::string& name);

#endif
