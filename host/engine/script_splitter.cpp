#include "engine/script_splitter.h"

#include <algorithm>

namespace host {
namespace {

bool isBlank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

bool isWordCharacter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_' || character == '$' ||
           static_cast<unsigned char>(character) >= 0x80;
}

char lowerCase(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool isSameWord(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lowerCase(a) == lowerCase(b); });
}

class ScriptSplitter {
public:
    ScriptSplitter(std::string_view script, const ScriptSyntax& syntax) : m_script(script), m_syntax(syntax) {}

    [[nodiscard]] std::vector<std::string> split() {
        while (m_position < m_script.size()) {
            readNext();
        }
        endStatement(m_script.size());
        return std::move(m_statements);
    }

    /// The first word outside of comments.
    [[nodiscard]] std::string readFirstWord() {
        while (m_position < m_script.size()) {
            if (isLineComment()) {
                m_position = std::min(m_script.find('\n', m_position), m_script.size());
            } else if (startsWith("/*") && !isCodeComment()) {
                readComment();
            } else if (isWordCharacter(m_script[m_position])) {
                break;
            } else {
                ++m_position;
            }
        }
        const auto* const start = m_script.begin() + static_cast<std::ptrdiff_t>(m_position);
        return {start, std::find_if_not(start, m_script.end(), isWordCharacter)};
    }

private:
    void readNext() {
        const char character = m_script[m_position];
        if (character == ';') {
            endStatement(m_position);
            m_start = ++m_position;
        } else if (isLineComment()) {
            m_position = std::min(m_script.find('\n', m_position), m_script.size());
        } else if (startsWith("/*")) {
            readComment();
        } else {
            m_hasContent = m_hasContent || !isBlank(character);
            readContent(character);
        }
    }

    void readContent(char character) {
        if (character == '\'' || character == '"' || (character == '`' && m_syntax.hasBackquotes)) {
            readQuoted(character, hasEscapes(character));
        } else if (character == '$' && m_syntax.hasDollarQuotes) {
            readDollarQuoted();
        } else {
            ++m_position;
        }
    }

    [[nodiscard]] bool startsWith(std::string_view text) const { return m_script.substr(m_position).starts_with(text); }

    /// Whether a comment begins here that MariaDB and MySQL run as code.
    [[nodiscard]] bool isCodeComment() const { return startsWith("/*!") || startsWith("/*M!"); }

    [[nodiscard]] bool isLineComment() const {
        return startsWith("--") || (m_syntax.hasHashComments && startsWith("#"));
    }

    [[nodiscard]] bool hasEscapes(char quote) const {
        if (quote == '`') {
            return false;
        }
        const bool isEscapeText = m_syntax.hasEscapeTexts && quote == '\'' && m_position > m_start &&
                                  lowerCase(m_script[m_position - 1]) == 'e' &&
                                  (m_position - 1 == m_start || !isWordCharacter(m_script[m_position - 2]));
        return m_syntax.hasBackslashEscapes || isEscapeText;
    }

    void readComment() {
        m_hasContent = m_hasContent || isCodeComment();
        std::size_t depth = 0;
        while (m_position < m_script.size()) {
            if (startsWith("/*") && (depth == 0 || m_syntax.hasNestedComments)) {
                ++depth;
                m_position += 2;
            } else if (startsWith("*/")) {
                m_position += 2;
                if (--depth == 0) {
                    return;
                }
            } else {
                ++m_position;
            }
        }
    }

    void readQuoted(char quote, bool hasBackslashes) {
        ++m_position;
        while (m_position < m_script.size() && m_script[m_position] != quote) {
            m_position += hasBackslashes && m_script[m_position] == '\\' ? 2 : 1;
        }
        // A doubled delimiter begins the next quoted part at once.
        m_position = std::min(m_position + 1, m_script.size());
    }

    void readDollarQuoted() {
        std::size_t end = m_position + 1;
        while (end < m_script.size() && m_script[end] != '$' && isWordCharacter(m_script[end])) {
            ++end;
        }
        const bool isInWord = m_position > m_start && isWordCharacter(m_script[m_position - 1]);
        const bool isTag = end < m_script.size() && m_script[end] == '$' &&
                           !(m_script[m_position + 1] >= '0' && m_script[m_position + 1] <= '9');
        if (isInWord || !isTag) {
            ++m_position;
            return;
        }
        const std::string_view tag = m_script.substr(m_position, end + 1 - m_position);
        const std::size_t close = m_script.find(tag, end + 1);
        m_position = close == std::string_view::npos ? m_script.size() : close + tag.size();
    }

    void endStatement(std::size_t end) {
        if (m_hasContent) {
            m_statements.emplace_back(m_script.substr(m_start, end - m_start));
        }
        m_hasContent = false;
    }

    std::string_view m_script;
    const ScriptSyntax& m_syntax;
    std::vector<std::string> m_statements;
    std::size_t m_position = 0;
    std::size_t m_start = 0;
    bool m_hasContent = false;  ///< whether the statement so far has more than blanks and comments
};

}  // namespace

std::vector<std::string> splitScript(std::string_view script, const ScriptSyntax& syntax) {
    return ScriptSplitter(script, syntax).split();
}

std::string readFirstWord(std::string_view statement, const ScriptSyntax& syntax) {
    return ScriptSplitter(statement, syntax).readFirstWord();
}

bool containsWord(std::string_view text, std::string_view word) {
    const bool isPrefix = word.ends_with('*');
    word.remove_suffix(isPrefix ? 1 : 0);
    for (std::size_t i = 0; i + word.size() <= text.size(); ++i) {
        const std::size_t end = i + word.size();
        if (isSameWord(text.substr(i, word.size()), word) && (i == 0 || !isWordCharacter(text[i - 1])) &&
            (isPrefix || end == text.size() || !isWordCharacter(text[end]))) {
            return true;
        }
    }
    return false;
}

}  // namespace host
