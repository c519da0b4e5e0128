#include "terminal/text_safety.h"

#include <locale.h>
#include <wchar.h>

#include <algorithm>
#include <array>

#include "terminal/secret_text.h"
#include "terminal/utf8.h"

namespace host {
namespace {

constexpr char32_t kEllipsis = 0x2026;

/// Characters from the first to the last.
struct Range {
    char32_t first;
    char32_t last;

    [[nodiscard]] bool has(char32_t character) const noexcept { return character >= first && character <= last; }
};

template <std::size_t count>
bool isInOneOf(const std::array<Range, count>& ranges, char32_t character) {
    return std::any_of(ranges.begin(), ranges.end(), [&](const Range& range) { return range.has(character); });
}

/// Characters that control a terminal (C1), change the order and lines of the text around them, or are invisible
/// because they have no width.
constexpr std::array<Range, 20> kHidden{{
    {0x80, 0x9F},       {0xAD, 0xAD},       {0x34F, 0x34F},     {0x61C, 0x61C},   {0x115F, 0x1160},
    {0x17B4, 0x17B5},   {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E}, {0x2060, 0x206F},
    {0x3164, 0x3164},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0}, {0xFFF9, 0xFFFB},
    {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF}, {0xFDD0, 0xFDEF}, {0x13430, 0x1345F},
}};

/// Scripts whose letters U+200C and U+200D join or separate, and emoji, which these and U+FE0F shape.
constexpr std::array<Range, 7> kShaped{{{0x600, 0x109F},
                                        {0x1780, 0x18AF},
                                        {0x2190, 0x2BFF},
                                        {0xFB50, 0xFDCF},
                                        {0xFE0F, 0xFE0F},
                                        {0xFE70, 0xFEFC},
                                        {0x1F000, 0x1FAFF}}};

/// Text characters that U+FE0F turns into emoji.
constexpr std::array<Range, 5> kPictured{{{'#', '#'}, {'*', '*'}, {'0', '9'}, {0xA9, 0xA9}, {0xAE, 0xAE}}};

bool isShapedBy(char32_t shaper, char32_t previous) {
    const bool isJoiner = shaper == 0x200C || shaper == 0x200D;
    const bool isSelector = shaper == 0xFE0E || shaper == 0xFE0F;
    return (isJoiner || isSelector) && (isInOneOf(kShaped, previous) || (isSelector && isInOneOf(kPictured, previous)));
}

/// @param previous  the character before it
bool isHiddenControl(char32_t character, char32_t previous) {
    return isInOneOf(kHidden, character) && !isShapedBy(character, previous);
}

void appendCodeName(std::string& target, char32_t character) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    target += "<U+";
    for (int shift = character > 0xFFFF ? 16 : 12; shift >= 0; shift -= 4) {
        target += kDigits[(character >> shift) & 0xF];
    }
    target += '>';
}

/// Appends a character as it is shown.
/// @param previous  the character in front of it; set to this one, or to '>' where a code name is shown in its place:
///                  what cannot be seen shapes nothing, and nothing shapes it
void appendVisible(std::string& target, char32_t character, char32_t& previous) {
    if (isHiddenControl(character, previous)) {
        appendCodeName(target, character);
        previous = '>';
        return;
    }
    if (character < 0x20) {
        appendCharacter(target, 0x2400 + character);
    } else if (character == 0x7F) {
        appendCharacter(target, 0x2421);
    } else {
        appendCharacter(target, character);
    }
    previous = character;
}

bool isBlank(char32_t character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// The widths of characters, independent of the process's locale.
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

std::string makeCharactersVisible(std::string_view text, LineBreaks lineBreaks, char32_t& previous) {
    std::string visible;
    visible.reserve(text.size());
    std::size_t position = 0;
    while (position < text.size()) {
        const char32_t character = decodeCharacter(text, position);
        if (lineBreaks == LineBreaks::Keep) {
            if (character == '\n' || character == '\t') {
                visible += static_cast<char>(character);
                previous = character;
                continue;
            }
            if (character == '\r' && position < text.size() && text[position] == '\n') {
                continue;
            }
        }
        appendVisible(visible, character, previous);
    }
    return visible;
}

}  // namespace

std::string makeVisible(std::string_view text, LineBreaks lineBreaks) {
    char32_t previous = 0;
    return makeVisible(text, lineBreaks, previous);
}

std::string makeVisible(std::string_view text, LineBreaks lineBreaks, char32_t& previous) {
    const std::string& secret = obtainHiddenSecret();
    return secret.empty() ? makeCharactersVisible(text, lineBreaks, previous)
                          : makeCharactersVisible(replaceSecret(text, secret), lineBreaks, previous);
}

std::string makeOneLine(std::string_view rawText, std::size_t maxColumns) {
    const std::string text = replaceSecret(rawText, obtainHiddenSecret());
    std::string line;
    bool isBlankDue = false;
    char32_t previous = 0;
    std::size_t position = 0;
    while (position < text.size()) {
        const char32_t character = decodeCharacter(text, position);
        if (isBlank(character)) {
            isBlankDue = !line.empty();
            previous = character;
            continue;
        }
        if (isBlankDue) {
            line += ' ';
            isBlankDue = false;
        }
        appendVisible(line, character, previous);
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
