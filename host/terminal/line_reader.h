#ifndef HOST_LINE_READER_H
#define HOST_LINE_READER_H

#include <istream>
#include <string>

namespace host {

/// Reads lines of the standard input so that Ctrl-C always gets through.
class LineReader {
public:
    enum class Outcome { Line, EndOfInput, Interrupted };

    /// @param input  the stream that reads descriptor 0; borrowed. Its buffering is switched off, so that what is
    ///               waiting to be read can be seen.
    explicit LineReader(std::istream& input);

    /// Waits for a line. An interrupted line is dropped.
    [[nodiscard]] Outcome readLine(std::string& line);

private:
    std::istream& m_input;
};

}  // namespace host

#endif
