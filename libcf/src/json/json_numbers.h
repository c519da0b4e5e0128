#ifndef CF_SRC_JSON_NUMBERS_H
#define CF_SRC_JSON_NUMBERS_H

#include <string>
#include <string_view>

namespace cf {

/// A copy of a JSON text in which each number outside the range of 64-bit integers and of doubles is replaced by the
/// nearest finite double, written so that it is read as one. Everything else, ill-formed numbers included, is copied.
[[nodiscard]] std::string replaceNumbersOutOfRange(std::string_view text);

}  // namespace cf

#endif
