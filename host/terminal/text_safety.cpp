#include "terminal/text_safety.h"

#include <locale.h>
#include <wchar.h>

#include "terminal/utf8.h"

namespace host {
namespace {

constexpr char32_t kEllipsis = 0x2026;

/// Whether the character steers a terminal (C1) or the order and lines of the text around it.
bool isHiddenControl(char32_t character) {
    return (character >= 0x80 && character <= 0x9F) || character == 0x61C || character == 0x200E ||
           character == 0x200F || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069) || character == 0xFEFF;
}

void appendCodeName(std::string& target, char32_t character) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    target += "<U+";
    for (int shift = 12; shift >= 0; shift -= 4) {
        target += kDigits[(character >> shift) & 0xF];
    }
    target += '>';
}

void appendVisible(std::string& target, char32_t character) {
    if (character < 0x20) {
        appendCharacter(target, 0x2400 + character);
    } else if (character == 0x7F) {
        appendCharacter(target, 0x2421);
    } else if (isHiddenControl(character)) {
        appendCodeName(target, character);
    } else {
        appendCharacter(target, character);
    }
}

bool isBlank(char32_t character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// The widths of characters, whatever the locale of the process is.
class WidthTable {
public:
    WidthTable() : m_locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
    ~WidthTable() {
        if (m_locale != nullptr) {
            freelocale(m_locale);
        }
    }
    WidthTable(const WidthTable&) = delete;
    WidthTable& operator=(const WidthTable&) = delete;

    [[nodiscard]] std::size_t measure(char32_t character) const {
        if (character < 0x7F || m_locale == nullptr) {
            return 1;
        }
        const locale_t former = uselocale(m_locale);
        const int width = wcwidth(static_cast<wchar_t>(character));
        uselocale(former);
        return width < 0 ? 1 : static_cast<std::size_t>(width);
    }

private:
    locale_t m_locale;
};

std::size_t measureCharacter(char32_t character) {
    static const WidthTable table;
    return table.measure(character);
}

}  // namespace

std::string makeVisible(std::string_view text, LineBreaks lineBreaks) {
    std::string visible;
    visible.reserve(text.size());
    std::size_t position = 0;
    while (position < text.size()) {
        const char32_t character = decodeCharacter(text, position);
        if (lineBreaks == LineBreaks::Keep) {
            if (character == '\n' || character == '\t') {
                visible += static_cast<char>(character);
                continue;
            }
            if (character == '\r' && position < text.size() && text[position] == '\n') {
                continue;
            }
        }
        appendVisible(visible, character);
    }
    return visible;
}

std::string makeOneLine(std::string_view text, std::size_t maxColumns) {
    std::string line;
    bool isBlankDue = false;
    std::size_t position = 0;
    while (position < text.size()) {
        const char32_t character = decodeCharacter(text, position);
        if (isBlank(character)) {
            isBlankDue = !line.empty();
            continue;
        }
        if (isBlankDue) {
            line += ' ';
            isBlankDue = false;
        }
        appendVisible(line, character);
    }
    return abbreviateToColumns(line, maxColumns);
}

std::size_t measureColumns(std::string_view visibleText) {
    std::size_t columns = 0;
    std::size_t position = 0;
    while (position < visibleText.size()) {
        columns += measureCharacter(decodeCharacter(visibleText, position));
    }
    return columns;
}

std::string abbreviateToColumns(std::string_view visibleText, std::size_t maxColumns) {
    if (visibleText.size() <= maxColumns || measureColumns(visibleText) <= maxColumns) {
        return std::string(visibleText);
    }
    std::string beginning;
    std::size_t columns = 0;
    std::size_t position = 0;
    while (position < visibleText.size()) {
        const char32_t character = decodeCharacter(visibleText, position);
        columns += measureCharacter(character);
        if (columns + 1 > maxColumns) {
            break;
        }
        appendCharacter(beginning, character);
    }
    appendCharacter(beginning, kEllipsis);
    return beginning;
}

}  // namespace host
