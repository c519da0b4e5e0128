#ifndef HOST_PIPE_LINES_H
#define HOST_PIPE_LINES_H

#include <cstddef>
#include <string>

#include "terminal/line_source.h"

namespace host {

/// The lines of a standard input that is a file or a pipe. Ctrl-C always gets through.
class PipeLines : public LineSource {
public:
    [[nodiscard]] Outcome readLine(const std::string& prompt, std::string& line) override;

private:
    std::string m_buffer;  ///< what was read and not handed out yet
    std::size_t m_searched = 0;
    bool m_isAtEnd = false;
};

/// Waits until descriptor 0 has something to read, or its end.
/// @return false when a request to stop came first, or any other signal where `isSignalAnEnd`
[[nodiscard]] bool waitForInput(bool isSignalAnEnd = false);

}  // namespace host

#endif
