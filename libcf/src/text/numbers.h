#ifndef CF_SRC_NUMBERS_H
#define CF_SRC_NUMBERS_H

#include <charconv>
#include <cstddef>
#include <cstdint>

namespace cf {

/// Buffer size for any number that spellNumber() writes: the longest double is "-2.2250738585072014e-308", 24
/// characters.
inline constexpr std::size_t kNumberTextSize = 32;

/// Writes an integer, or the shortest text that reads back as the same double (C locale), to `out`, which must have
/// room for kNumberTextSize characters.
/// @return the end of what was written
template <typename Number>
[[nodiscard]] char* spellNumber(char* out, Number number) noexcept {
    return std::to_chars(out, out + kNumberTextSize, number).ptr;
}

/// The number without its fraction; 0 if it does not fit into 64 bits (signed), and for NaN.
[[nodiscard]] inline std::int64_t truncateToInteger(double number) noexcept {
    return number >= -0x1p63 && number < 0x1p63 ? static_cast<std::int64_t>(number) : 0;
}

}  // namespace cf

#endif
