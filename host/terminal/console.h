#ifndef HOST_CONSOLE_H
#define HOST_CONSOLE_H

#include <chrono>
#include <string>
#include <string_view>

namespace host {

/// The program's standard output and standard error. What is not the program's own wording is made safe to print, and
/// the key is taken out.
///
/// While a turn runs, standard error shows the elapsed time where it is a terminal; the line is gone before anything
/// else is written there. The terminal's modes are never changed, so there is nothing to restore.
class Console {
public:
    Console();
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Running text from outside (an answer): control characters are made visible, one line end stands behind it.
    void printText(std::string_view text);
    /// The program's own text, or text that was made visible already, as it is.
    void printPlain(std::string_view text);
    /// One line on standard error, "kai: " in front.
    void note(std::string_view message);

    /// Begins and ends the display of the elapsed time. Both may be called where nothing is displayed.
    void beginProgress();
    void endProgress();
    /// Brings the display up to date, not more often than makes sense.
    void updateProgress();

    /// Whether a person sits at the prompt: standard input and standard output are terminals.
    [[nodiscard]] bool isInteractive() const noexcept { return m_isInteractive; }
    [[nodiscard]] bool isOutputTerminal() const noexcept { return m_isOutputTerminal; }

    /// Writes out what is buffered. Throws HostError (Usage) when the standard output cannot be written, BrokenOutput
    /// when nobody reads it any more.
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

/// The reader of the standard output has gone away: nothing is left to say to anybody.
class BrokenOutput {};

}  // namespace host

#endif
