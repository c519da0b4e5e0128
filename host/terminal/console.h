#ifndef HOST_CONSOLE_H
#define HOST_CONSOLE_H

#include <chrono>
#include <string>
#include <string_view>

namespace host {

/// The program's standard output and standard error. Text that is not the program's own is made safe to print, and the
/// key is removed.
///
/// If standard error is a terminal, it shows the elapsed time during a turn; that line is removed before anything else
/// is written there. The terminal's modes are never changed, so nothing needs to be restored.
class Console {
public:
    Console();
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Prints text from outside (an answer): control characters are made visible, and one line end is added.
    void printText(std::string_view text);
    /// Prints the program's own text, or text that was already made visible, unchanged.
    void printPlain(std::string_view text);
    /// Prints one line on standard error, after "kai: ".
    void note(std::string_view message);

    /// Begins and ends the display of the elapsed time. Both may be called when nothing is displayed.
    void beginProgress();
    void endProgress();
    /// Updates the display, but not too often.
    void updateProgress();

    /// Whether the session is interactive: standard input and standard output are terminals.
    [[nodiscard]] bool isInteractive() const noexcept { return m_isInteractive; }
    [[nodiscard]] bool isOutputTerminal() const noexcept { return m_isOutputTerminal; }

    /// Flushes standard output. Throws HostError (Usage) if it cannot be written, BrokenOutput if nobody reads it any
    /// more.
    void flush();

private:
    void writeOutput(std::string_view text);
    void flushOutput();
    void eraseProgress();

    bool m_isInteractive;
    bool m_isOutputTerminal;
    bool m_isErrorTerminal;
    bool m_hasEscapes;
    int m_outputError = 0;  ///< errno of the first failure of the standard output
    bool m_isProgressActive = false;
    std::size_t m_shownColumns = 0;
    std::chrono::steady_clock::time_point m_progressStart;
    std::chrono::steady_clock::time_point m_nextUpdate;
};

/// The reader of the standard output is gone: there is nobody to report to.
class BrokenOutput {};

}  // namespace host

#endif
