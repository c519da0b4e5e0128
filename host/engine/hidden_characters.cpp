#include "engine/hidden_characters.h"

#include <algorithm>
#include <array>

#include "terminal/text_safety.h"
#include "terminal/utf8.h"

namespace host {
namespace {

struct CharacterRange {
    char32_t first;
    char32_t last;
};

/// Characters without a symbol that makeVisible() leaves unchanged, because in running text they join or separate
/// letters: joiners, fillers, variation selectors, tags.
constexpr std::array<CharacterRange, 14> kInvisibleCharacters{{{0x00AD, 0x00AD},
                                                               {0x034F, 0x034F},
                                                               {0x115F, 0x1160},
                                                               {0x17B4, 0x17B5},
                                                               {0x180B, 0x180F},
                                                               {0x200B, 0x200D},
                                                               {0x2060, 0x2065},
                                                               {0x206A, 0x206F},
                                                               {0x3164, 0x3164},
                                                               {0xFE00, 0xFE0F},
                                                               {0xFFA0, 0xFFA0},
                                                               {0xFFF0, 0xFFFB},
                                                               {0x1D173, 0x1D17A},
                                                               {0xE0000, 0xE0FFF}}};

bool isInvisible(char32_t character) {
    return std::any_of(kInvisibleCharacters.begin(), kInvisibleCharacters.end(), [&](const CharacterRange& range) {
        return character >= range.first && character <= range.last;
    });
}

void appendMark(std::string& target, char32_t character) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    target += "<U+";
    for (int shift = character > 0xFFFF ? 16 : 12; shift >= 0; shift -= 4) {
        target += kDigits[(character >> shift) & 0xF];
    }
    target += '>';
}

}  // namespace

std::string makeNameVisible(std::string_view name) {
    const bool isPlain = std::all_of(name.begin(), name.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
    if (isPlain) {
        return std::string(name);
    }
    const std::string visible = makeVisible(name, LineBreaks::Show);
    std::string marked;
    for (std::size_t position = 0; position < visible.size();) {
        const char32_t character = decodeCharacter(visible, position);
        if (isInvisible(character)) {
            appendMark(marked, character);
        } else {
            appendCharacter(marked, character);
        }
    }
    return marked;
}

}  // namespace host
