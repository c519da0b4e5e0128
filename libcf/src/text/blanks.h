#ifndef CF_SRC_BLANKS_H
#define CF_SRC_BLANKS_H

#include <string_view>

/// The text without space, tab, CR, LF, VT and FF at both ends, whatever the locale.
[[nodiscard]] inline std::string_view trimBlanks(std::string_view text) noexcept {
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

#endif
