#include "terminal/line_reader.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "terminal/interrupts.h"

namespace host {
namespace {

/// Waits until descriptor 0 has something to read, or its end.
/// @return false when a signal came first
bool waitForInput() {
    std::array<pollfd, 2> descriptors{{{STDIN_FILENO, POLLIN, 0}, {Interrupts::obtainWakeDescriptor(), POLLIN, 0}}};
    while (!Interrupts::isRequested()) {
        const int ready = poll(descriptors.data(), descriptors.size(), -1);
        if (ready > 0 && descriptors[0].revents != 0 && !Interrupts::isRequested()) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            return true;
        }
    }
    return false;
}

}  // namespace

LineReader::LineReader(std::istream& input) : m_input(input) {
    setvbuf(stdin, nullptr, _IONBF, 0);
}

LineReader::Outcome LineReader::readLine(std::string& line) {
    line.clear();
    if (!waitForInput()) {
        return Outcome::Interrupted;
    }
    const bool hasText = static_cast<bool>(std::getline(m_input, line));
    // A read that a signal broke off looks like the end of the input.
    if (Interrupts::isRequested() && m_input.eof()) {
        m_input.clear();
        clearerr(stdin);
        return Outcome::Interrupted;
    }
    return hasText ? Outcome::Line : Outcome::EndOfInput;
}

}  // namespace host
