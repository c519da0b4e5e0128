#ifndef HOST_LINE_SOURCE_H
#define HOST_LINE_SOURCE_H

#include <memory>
#include <string>

namespace host {

/// The source of a chat's lines.
class LineSource {
public:
    enum class Outcome { Line, EndOfInput, Interrupted };

    LineSource() = default;
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;
    virtual ~LineSource() = default;

    /// Waits for a line, or for a pasted or edited text with several lines. An interrupted line is dropped.
    /// @param prompt  printed if a person types
    [[nodiscard]] virtual Outcome readLine(const std::string& prompt, std::string& line) = 0;

    /// Adds the line to the history, for this chat and later ones.
    virtual void remember(const std::string& /*line*/) {}

    /// Puts a text into the next line, for editing.
    virtual void offer(const std::string& /*text*/) {}
};

/// A line editor for a terminal, plain lines for anything else.
[[nodiscard]] std::unique_ptr<LineSource> makeLineSource(bool isTerminal);

}  // namespace host

#endif
