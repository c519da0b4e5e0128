#ifndef HOST_MARKDOWN_STREAM_H
#define HOST_MARKDOWN_STREAM_H

#include <string>
#include <string_view>

namespace host {

/// Renders Markdown that arrives in pieces with a terminal's colours: headings, emphasis, code, and in code blocks SQL
/// with its keywords, strings and comments. The text itself stays unchanged, including marks, so that it can be copied.
class MarkdownStream {
public:
    /// @param piece  text that is safe to print
    /// @return the text that can be printed now; a few characters may be held back
    [[nodiscard]] std::string add(std::string_view piece);
    /// The rest, with all colours ended.
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
    std::string m_lineStart;  ///< the start of a line whose kind is not known yet
    std::string m_marks;      ///< a run of "*" or "`" that may continue
    std::string m_word;       ///< an incomplete word of SQL
    Block m_block = Block::Unknown;
    std::string m_fence;  ///< the opening fence of the code block; empty outside of one
    bool m_isBold = false;
    bool m_isInlineCode = false;
    char m_quote = '\0';        ///< the quote of the open SQL string; '-' in a comment up to the end of the line
    bool m_isDashHeld = false;  ///< in SQL: a dash that may begin a comment
    std::string_view m_colour;  ///< the current colour
};

}  // namespace host

#endif
