#include "terminal/console.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <utility>

#include "host_error.h"
#include "terminal/secret_text.h"
#include "terminal/terminal_traits.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kUpdateInterval{100};

/// Writes at once, without a buffer: the display is useless later.
void writeToTerminal(const std::string& text) {
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

Console::Console()
    : m_isInteractive(isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1),
      m_isOutputTerminal(isatty(STDOUT_FILENO) == 1),
      m_isErrorTerminal(isatty(STDERR_FILENO) == 1),
      m_hasEscapes(hasTerminalEscapes()) {}

Console::~Console() {
    eraseProgress();
}

void Console::printText(std::string_view text) {
    std::string visible = makeVisible(text, LineBreaks::Keep);
    if (!visible.ends_with('\n')) {
        visible += '\n';
    }
    writeOutput(visible);
}

void Console::printPlain(std::string_view text) {
    writeOutput(text);
}

void Console::writeOutput(std::string_view text) {
    eraseProgress();
    if (std::cout) {
        errno = 0;
        std::cout << text;
        m_outputError = std::cout ? 0 : errno;
    }
}

void Console::flushOutput() {
    if (std::cout) {
        errno = 0;
        std::cout.flush();
        m_outputError = std::cout ? 0 : errno;
    }
}

void Console::note(std::string_view message) {
    flushOutput();
    eraseProgress();
    std::cerr << "kai: " << replaceSecret(message, obtainHiddenSecret()) << '\n';
}

void Console::beginProgress() {
    if (!m_isErrorTerminal) {
        return;
    }
    flushOutput();
    m_isProgressActive = true;
    m_progressStart = Clock::now();
    m_nextUpdate = m_progressStart + kUpdateInterval;
}

void Console::endProgress() {
    eraseProgress();
    m_isProgressActive = false;
}

void Console::updateProgress() {
    const Clock::time_point now = Clock::now();
    if (!m_isProgressActive || now < m_nextUpdate) {
        return;
    }
    m_nextUpdate = now + kUpdateInterval;
    const auto tenths = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_progressStart).count() / 100;
    const std::string text = std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s (Ctrl-C cancels)";
    m_shownColumns = text.size();
    writeToTerminal("\r" + text);
}

void Console::eraseProgress() {
    if (m_shownColumns > 0) {
        writeToTerminal(m_hasEscapes ? "\r\033[K" : "\r" + std::string(m_shownColumns, ' ') + "\r");
        m_shownColumns = 0;
    }
}

void Console::flush() {
    flushOutput();
    if (std::cout) {
        return;
    }
    if (m_outputError == EPIPE) {
        throw BrokenOutput();
    }
    if (m_outputError == EINTR) {
        // A signal interrupted a write that nobody read. The next one starts again.
        std::cout.clear();
        clearerr(stdout);
        throw HostError(ExitCode::Cancelled, "cancelled; some output is lost");
    }
    throw HostError(ExitCode::Usage,
                    std::string("cannot write to the standard output") +
                        (m_outputError != 0 ? std::string(": ") + std::strerror(m_outputError) : std::string()) +
                        "; check where it leads");
}

}  // namespace host
