#ifndef CF_SRC_TEXT_ESCAPE_H
#define CF_SRC_TEXT_ESCAPE_H

#include <cstddef>

namespace cf {

/// Which bytes are copied into a JSON string unchanged. The quote, the backslash and control characters never are.
enum class PlainBytes {
    ASCII,  ///< 20 to 7F
    All,    ///< 20 to FF
};

/// The free space that escapeText() needs in addition to the size of the text: it writes blocks of this size.
inline constexpr std::size_t kEscapeRoom = 16;

/// How far escapeText() got.
struct EscapeProgress {
    char* out;         ///< the end of what was written
    const char* text;  ///< the first byte not written yet
};

/// Writes the text from `text` to `end` at `out`, escaped for a JSON string.
///
/// Stops before a byte from 80 on if `plain` is ASCII, and when the space between `out` and `limit` is less than the
/// rest of the text plus kEscapeRoom; that much must be free at the start. The space after the written text may be
/// overwritten.
[[nodiscard]] EscapeProgress escapeText(char* out, const char* limit, const char* text, const char* end,
                                        PlainBytes plain) noexcept;

}  // namespace cf

#endif
