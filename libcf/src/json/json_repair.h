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

/// Copies a JSON text that the engine rejects, and replaces what COJson accepts but the engine does not: a number that
/// fits neither a 64-bit integer nor a double by the nearest finite double; in strings, each lone surrogate escape and
/// each ill-formed UTF-8 sequence by U+FFFD. Other errors are copied, so a text that is not JSON does not become JSON.
[[nodiscard]] RepairedJson repairJson(std::string_view text);

}  // namespace cf

#endif
