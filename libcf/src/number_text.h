#ifndef CF_SRC_NUMBER_TEXT_H
#define CF_SRC_NUMBER_TEXT_H

#include <charconv>
#include <cstddef>

/// Room for any number that writeNumber() writes: the longest double is "-2.2250738585072014e-308", 24 characters.
inline constexpr std::size_t numberTextSize = 32;

/// Writes an integer, or the shortest text that reads back as the same double (C locale), to `out`, which must have
/// room for numberTextSize characters.
/// @return the end of what was written
template <typename Number>
[[nodiscard]] char* writeNumber(char* out, Number number) noexcept {
    return std::to_chars(out, out + numberTextSize, number).ptr;
}

#endif
