#ifndef CF_SRC_REST_TEXT_H
#define CF_SRC_REST_TEXT_H

#include <algorithm>
#include <string_view>

// Bytes of HTTP's grammar, whatever the process's locale is.

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

[[nodiscard]] constexpr std::string_view trimBlanks(std::string_view text) noexcept {
    constexpr std::string_view kBlanks = " \t\r\n";
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text;
}

#endif
