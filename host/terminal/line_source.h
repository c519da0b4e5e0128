#ifndef HOST_LINE_SOURCE_H
#define HOST_LINE_SOURCE_H

#include <memory>
#include <string>

namespace host {

/// Where the lines of a chat come from.
class LineSource {
public:
    enum class Outcome { Line, EndOfInput, Interrupted };

    LineSource() = default;
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;
    virtual ~LineSource() = default;

    /// Waits for a line, or for a pasted or edited text of several lines. An interrupted one is dropped.
    /// @param prompt  printed where a person types
    [[nodiscard]] virtual Outcome readLine(const std::string& prompt, std::string& line) = 0;

    /// Has the line come back on request, now and in later chats.
    virtual void remember(const std::string& /*line*/) {}

    /// Puts a text into the next line, to be edited there.
    virtual void offer(const std::string& /*text*/) {}
};

/// An editor on a terminal, plain lines from anything else.
[[nodiscard]] std::unique_ptr<LineSource> makeLineSource(bool isTerminal);

}  // namespace host

#endif
