#include "terminal/markdown_stream.h"

#include <algorithm>
#include <array>
#include <utility>

namespace host {
namespace {

constexpr std::string_view kNone = "";
constexpr std::string_view kBold = "\033[1m";
constexpr std::string_view kHeading = "\033[1;4m";
constexpr std::string_view kCode = "\033[36m";
constexpr std::string_view kFaint = "\033[2m";
constexpr std::string_view kKeyword = "\033[1;34m";
constexpr std::string_view kString = "\033[32m";
constexpr std::string_view kReset = "\033[0m";

/// The coloured words of SQL, sorted.
constexpr std::array<std::string_view, 62> kKeywords{
    "ALL",   "AND",   "AS",        "ASC",      "BETWEEN", "BY",        "CASE",      "CAST",    "COALESCE",
    "COUNT", "CROSS", "DESC",      "DISTINCT", "ELSE",    "END",       "EXCEPT",    "EXISTS",  "EXPLAIN",
    "FALSE", "FETCH", "FILTER",    "FIRST",    "FROM",    "FULL",      "GROUP",     "HAVING",  "ILIKE",
    "IN",    "INNER", "INTERSECT", "INTERVAL", "IS",      "JOIN",      "LAST",      "LATERAL", "LEFT",
    "LIKE",  "LIMIT", "MAX",       "MIN",      "NATURAL", "NOT",       "NULL",      "NULLS",   "OFFSET",
    "ON",    "OR",    "ORDER",     "OUTER",    "OVER",    "PARTITION", "RECURSIVE", "RIGHT",   "SELECT",
    "SUM",   "THEN",  "UNION",     "USING",    "VALUES",  "WHEN",      "WHERE",     "WITH"};

bool isKeyword(std::string word) {
    std::transform(word.begin(), word.end(), word.begin(), [](char character) {
        return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
    });
    return std::binary_search(kKeywords.begin(), kKeywords.end(), std::string_view(word));
}

bool isWordCharacter(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           byte == '_' || byte >= 0x80;
}

std::string_view skipBlanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(" \t"), text.size()));
}

std::size_t countRun(std::string_view text) {
    return text.empty() ? 0 : std::min(text.find_first_not_of(text.front()), text.size());
}

}  // namespace

std::string MarkdownStream::add(std::string_view piece) {
    for (const char character : piece) {
        takeCharacter(character);
    }
    return std::exchange(m_output, {});
}

std::string MarkdownStream::finish() {
    decideBlock();
    flushMarks();
    endWord();
    endDash(kNone);
    setColour(kNone);
    return std::exchange(m_output, {});
}

void MarkdownStream::setColour(std::string_view colour) {
    if (colour == m_colour) {
        return;
    }
    if (!m_colour.empty()) {
        m_output += kReset;
    }
    m_output += colour;
    m_colour = colour;
}

void MarkdownStream::takeCharacter(char character) {
    if (character == '\n') {
        decideBlock();
        flushMarks();
        endWord();
        endDash(kNone);
        setColour(kNone);
        m_output += '\n';
        beginLine();
        return;
    }
    switch (m_block) {
        case Block::Unknown:
            m_lineStart += character;
            // Indentation, a run of marks and one more character determine the kind of a line.
            if (const std::string_view text = skipBlanks(m_lineStart); countRun(text) < text.size()) {
                decideBlock();
            }
            break;
        case Block::Code:
            takeCode(character);
            break;
        case Block::Text:
            takeText(character);
            break;
        default:
            m_output += character;
    }
}

void MarkdownStream::beginLine() {
    m_block = Block::Unknown;
    m_isBold = false;
    m_isInlineCode = false;
    if (m_quote == '-') {
        m_quote = '\0';
    }
}

/// Determines the kind of the line, and prints its held-back start.
void MarkdownStream::decideBlock() {
    if (m_block != Block::Unknown) {
        return;
    }
    const std::string start = std::exchange(m_lineStart, {});
    const std::string_view text = skipBlanks(start);
    const std::size_t run = countRun(text);
    const bool isFence = run >= 3 && (text.front() == '`' || text.front() == '~');
    if (!m_fence.empty()) {
        const bool isEnd = isFence && text.front() == m_fence.front() && run >= m_fence.size() && run == text.size();
        m_block = isEnd ? Block::FenceLine : Block::Code;
        m_fence = isEnd ? std::string() : m_fence;
    } else if (isFence) {
        m_block = Block::FenceLine;
        m_fence = text.substr(0, run);
        m_quote = '\0';
    } else {
        m_block = !text.empty() && text.front() == '#' && run <= 6 && run < text.size() && text[run] == ' '
                      ? Block::Heading
                      : Block::Text;
    }
    if (m_block == Block::FenceLine || m_block == Block::Heading) {
        setColour(m_block == Block::Heading ? kHeading : kFaint);
        m_output += start;
        return;
    }
    for (const char character : start) {
        if (m_block == Block::Code) {
            takeCode(character);
        } else {
            takeText(character);
        }
    }
}

void MarkdownStream::takeText(char character) {
    const bool isMark = character == '*' || character == '`';
    if (!isMark || (!m_marks.empty() && m_marks.front() != character)) {
        flushMarks();
    }
    if (isMark) {
        m_marks += character;
    } else {
        m_output += character;
    }
}

/// Prints a run of marks that has ended; "**" and "`" switch their style and have the colour of what they enclose.
void MarkdownStream::flushMarks() {
    const std::string marks = std::exchange(m_marks, {});
    bool* style = marks == "`" ? &m_isInlineCode : marks == "**" && !m_isInlineCode ? &m_isBold : nullptr;
    if (style == nullptr) {
        m_output += marks;
        return;
    }
    const auto obtainColour = [&] { return m_isInlineCode ? kCode : m_isBold ? kBold : kNone; };
    if (!*style) {
        *style = true;
        setColour(obtainColour());
        m_output += marks;
    } else {
        m_output += marks;
        *style = false;
        setColour(obtainColour());
    }
}

void MarkdownStream::endWord() {
    if (!m_word.empty()) {
        const std::string word = std::exchange(m_word, {});
        setColour(isKeyword(word) ? kKeyword : kNone);
        m_output += word;
    }
}

/// Prints a dash that could have begun a comment.
void MarkdownStream::endDash(std::string_view colour) {
    if (std::exchange(m_isDashHeld, false)) {
        setColour(colour);
        m_output += '-';
    }
}

void MarkdownStream::takeCode(char character) {
    if (m_quote != '\0') {
        m_output += character;
        if (character == m_quote && m_quote != '-') {
            m_quote = '\0';
            setColour(kNone);
        }
    } else if (isWordCharacter(character)) {
        endDash(kNone);
        m_word += character;
    } else if (character == '-' && !m_isDashHeld) {
        endWord();
        m_isDashHeld = true;
    } else {
        endWord();
        const bool isComment = character == '-';
        endDash(isComment ? kFaint : kNone);
        const bool isQuote = character == '\'' || character == '"' || character == '`';
        setColour(isComment ? kFaint : isQuote ? kString : kNone);
        m_quote = isComment ? '-' : isQuote ? character : '\0';
        m_output += character;
    }
}

}  // namespace host
