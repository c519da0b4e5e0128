#ifndef HOST_PIPE_LINES_H
#define HOST_PIPE_LINES_H

#include <cstddef>
#include <string>

#include "terminal/line_source.h"

namespace host {

/// The lines of a standard input that is a file or a pipe. Ctrl-C always works.
class PipeLines : public LineSource {
public:
    [[nodiscard]] Outcome readLine(const std::string& prompt, std::string& line) override;

private:
    std::string m_buffer;  ///< read, but not returned yet
    std::size_t m_searched = 0;
    bool m_isAtEnd = false;
};

/// Waits until descriptor 0 is readable or at its end.
/// @return false if a request to stop, or with `isSignalAnEnd` any other signal, came first
[[nodiscard]] bool waitForInput(bool isSignalAnEnd = false);

}  // namespace host

#endif
