#ifndef CF_SRC_CHARACTERS_H
#define CF_SRC_CHARACTERS_H

#include <algorithm>
#include <string_view>

// What libcf treats as blanks, digits and letters: ASCII only, whatever the process's locale is.

namespace cf {

/// Blanks in general text: the white space of the C locale.
inline constexpr std::string_view kBlanks = " \t\r\n\v\f";

/// Blanks around the parts of an HTTP header's value. VT and FF belong to the value.
inline constexpr std::string_view kHTTPBlanks = " \t\r\n";

[[nodiscard]] constexpr bool isDigit(char byte) noexcept {
    return byte >= '0' && byte <= '9';
}

[[nodiscard]] constexpr char lowerLetter(char byte) noexcept {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

[[nodiscard]] constexpr bool isLetterOrDigit(char byte) noexcept {
    return isDigit(byte) || (lowerLetter(byte) >= 'a' && lowerLetter(byte) <= 'z');
}

[[nodiscard]] constexpr bool isControlCharacter(char byte) noexcept {
    const auto value = static_cast<unsigned char>(byte);
    return value < 0x20 || value == 0x7F;
}

[[nodiscard]] constexpr bool isEqualIgnoringCase(std::string_view left, std::string_view right) noexcept {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char one, char other) { return lowerLetter(one) == lowerLetter(other); });
}

/// The text without the given characters at both ends.
[[nodiscard]] constexpr std::string_view trimCharacters(std::string_view text, std::string_view characters) noexcept {
    text = text.substr(0, text.find_last_not_of(characters) + 1);
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
    return text;
}

[[nodiscard]] constexpr std::string_view trimBlanks(std::string_view text) noexcept {
    return trimCharacters(text, kBlanks);
}

[[nodiscard]] constexpr std::string_view trimHTTPBlanks(std::string_view text) noexcept {
    return trimCharacters(text, kHTTPBlanks);
}

}  // namespace cf

#endif
