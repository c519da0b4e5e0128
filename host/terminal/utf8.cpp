#include "terminal/utf8.h"

namespace host {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isContinuation(unsigned char byte, unsigned char low, unsigned char high) {
    return byte >= low && byte <= high;
}

}  // namespace

char32_t decodeCharacter(std::string_view text, std::size_t& position) {
    const auto lead = static_cast<unsigned char>(text[position++]);
    if (lead < 0x80) {
        return lead;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return kReplacement;
    }
    const int length = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    char32_t character = lead & (0x3F >> length);
    // The range of the first continuation byte excludes overlong forms, surrogates and values beyond U+10FFFF.
    unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (int i = 0; i < length; ++i) {
        if (position == text.size() || !isContinuation(static_cast<unsigned char>(text[position]), low, high)) {
            return kReplacement;
        }
        character = (character << 6) | (static_cast<unsigned char>(text[position++]) & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return character;
}

void appendCharacter(std::string& target, char32_t character) {
    if (character < 0x80) {
        target += static_cast<char>(character);
    } else if (character < 0x800) {
        target += static_cast<char>(0xC0 | (character >> 6));
        target += static_cast<char>(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        target += static_cast<char>(0xE0 | (character >> 12));
        target += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
        target += static_cast<char>(0x80 | (character & 0x3F));
    } else {
        target += static_cast<char>(0xF0 | (character >> 18));
        target += static_cast<char>(0x80 | ((character >> 12) & 0x3F));
        target += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
        target += static_cast<char>(0x80 | (character & 0x3F));
    }
}

}  // namespace host
