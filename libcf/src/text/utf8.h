#ifndef CF_SRC_UTF8_H
#define CF_SRC_UTF8_H

#include <cstddef>
#include <string_view>

namespace cf {

/// U+FFFD, which stands for each ill-formed sequence.
inline constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

/// Whether the whole text is well-formed UTF-8.
[[nodiscard]] bool isValidUTF8(std::string_view text) noexcept;

/// The first UTF-8 sequence of a text. An ill-formed sequence is replaced by one U+FFFD; it is the longest prefix of
/// any well-formed sequence, but at least one byte.
struct UTF8Sequence {
    std::size_t size;
    bool isWellFormed;
};

/// @param text  not empty
[[nodiscard]] UTF8Sequence measureUTF8Sequence(std::string_view text) noexcept;

}  // namespace cf

#endif
