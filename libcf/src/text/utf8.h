#ifndef CF_SRC_UTF8_H
#define CF_SRC_UTF8_H

#include <cstddef>
#include <string_view>

namespace cf {

/// U+FFFD, which stands for each ill-formed sequence.
inline constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

/// Whether the whole text is well-formed UTF-8.
[[nodiscard]] bool isValidUTF8(std::string_view text) noexcept;

/// What stands at the start of a text: a well-formed UTF-8 sequence, or the longest start of one that is cut short by
/// a byte that cannot go on (at least one byte), which stands for one U+FFFD.
struct UTF8Sequence {
    std::size_t size;
    bool isWellFormed;
};

/// @param text  not empty
[[nodiscard]] UTF8Sequence measureUTF8Sequence(std::string_view text) noexcept;

}  // namespace cf

#endif
