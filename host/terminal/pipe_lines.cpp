#include "terminal/pipe_lines.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "terminal/interrupts.h"

namespace host {

bool waitForInput(bool isSignalAnEnd) {
    std::array<pollfd, 2> descriptors{{{STDIN_FILENO, POLLIN, 0}, {Interrupts::obtainWakeDescriptor(), POLLIN, 0}}};
    while (!Interrupts::isRequested()) {
        const int ready = poll(descriptors.data(), descriptors.size(), -1);
        if (ready > 0 && descriptors[0].revents != 0 && !Interrupts::isRequested()) {
            return true;
        }
        if (ready < 0 && (errno != EINTR || isSignalAnEnd)) {
            return errno != EINTR;
        }
    }
    return false;
}

PipeLines::Outcome PipeLines::readLine(const std::string& /*prompt*/, std::string& line) {
    while (true) {
        const std::size_t end = m_buffer.find('\n', m_searched);
        if (end != std::string::npos || (m_isAtEnd && !m_buffer.empty())) {
            line = m_buffer.substr(0, end);
            m_buffer.erase(0, end == std::string::npos ? end : end + 1);
            m_searched = 0;
            return Outcome::Line;
        }
        m_searched = m_buffer.size();
        if (m_isAtEnd) {
            return Outcome::EndOfInput;
        }
        if (!waitForInput()) {
            m_buffer.clear();
            m_searched = 0;
            return Outcome::Interrupted;
        }
        std::array<char, 65536> bytes{};
        const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count > 0) {
            m_buffer.append(bytes.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            m_isAtEnd = true;
        }
    }
}

}  // namespace host
