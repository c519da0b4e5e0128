#ifndef CF_SRC_JSON_NUMBERS_H
#define CF_SRC_JSON_NUMBERS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace cf {

/// The size of a number token at the start of a text: all characters that may stand in one.
[[nodiscard]] std::size_t measureNumber(std::string_view text) noexcept;

/// What was done to a number token.
enum class NumberRepair { None, Integer, Double };

/// Appends a number token. One outside the range of 64-bit integers and of doubles is replaced by the nearest finite
/// double, written so that it is read as one; an ill-formed one is copied.
NumberRepair appendRepairedNumber(std::string& out, std::string_view token);

}  // namespace cf

#endif
