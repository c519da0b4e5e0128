#ifndef HOST_MARKDOWN_STREAM_H
#define HOST_MARKDOWN_STREAM_H

#include <string>
#include <string_view>

namespace host {

/// Markdown that comes in pieces, rendered with a terminal's colours: headings, emphasis, code, and SQL in code blocks
/// with its keywords, strings and comments. The text itself stays as it is, marks included, so that it can be copied.
class MarkdownStream {
public:
    /// @param piece  text that is safe to print
    /// @return what can be printed now; a few characters may be held back
    [[nodiscard]] std::string add(std::string_view piece);
    /// The rest, with every colour ended.
    [[nodiscard]] std::string finish();

private:
    enum class Block { Unknown, Text, Heading, FenceLine, Code };

    void takeCharacter(char character);
    void beginLine();
    void decideBlock();
    void takeText(char character);
    void takeCode(char character);
    void endWord();
    void endDash(std::string_view colour);
    void flushMarks();
    void setColour(std::string_view colour);

    std::string m_output;
    std::string m_lineStart;  ///< of a line whose kind is not known yet
    std::string m_marks;      ///< "*" or "`" that may go on
    std::string m_word;       ///< of SQL, not ended yet
    Block m_block = Block::Unknown;
    std::string m_fence;  ///< what opened the code block; empty outside of one
    bool m_isBold = false;
    bool m_isInlineCode = false;
    char m_quote = '\0';        ///< of the SQL string that is open; '-' for a comment up to the line's end
    bool m_isDashHeld = false;  ///< of SQL: one that may begin a comment
    std::string_view m_colour;  ///< what is on now
};

}  // namespace host

#endif
