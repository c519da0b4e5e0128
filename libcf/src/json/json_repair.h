#ifndef CF_SRC_JSON_REPAIR_H
#define CF_SRC_JSON_REPAIR_H

#include <string>
#include <string_view>

namespace cf {

struct RepairedJson {
    std::string text;
    /// Whether an integer beyond 64 bits was replaced by a double.
    bool hasHugeIntegers = false;
};

/// Copies a JSON text that the engine refuses, with what it is too strict about replaced: a number that no 64-bit
/// integer and no double can hold by the nearest finite double; in strings, each lone surrogate escape and each
/// ill-formed UTF-8 sequence by U+FFFD. Whatever else is wrong is copied, so a text that is not JSON does not become
/// JSON.
[[nodiscard]] RepairedJson repairJson(std::string_view text);

}  // namespace cf

#endif
