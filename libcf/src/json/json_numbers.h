#ifndef CF_SRC_JSON_NUMBERS_H
#define CF_SRC_JSON_NUMBERS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace cf {

/// The size of the number token at the start of a text: all leading characters that can occur in a number.
[[nodiscard]] std::size_t measureNumber(std::string_view text) noexcept;

/// What was done to a number token.
enum class NumberRepair { None, Integer, Double };

/// Appends a number token. An integer beyond 64 bits and a number beyond the range of doubles are replaced by the
/// nearest finite double, written so that it is read as one. Other tokens are copied, ill-formed ones too.
NumberRepair appendRepairedNumber(std::string& out, std::string_view token);

}  // namespace cf

#endif
