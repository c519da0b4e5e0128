#ifndef CF_SRC_PLAIN_TEXT_H
#define CF_SRC_PLAIN_TEXT_H

#include <cstddef>

/// Which bytes go into a JSON string as they are: never the quote, the backslash and the control characters.
enum class PlainBytes {
    ASCII,  ///< 20 to 7F
    All,    ///< 20 to FF
};

/// Copies a text up to its first byte that is not plain.
/// @param out  has room for `size` bytes; what stands behind the bytes copied is rubbish
/// @return the number of bytes copied: `size` if all are plain
[[nodiscard]] std::size_t copyPlainText(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept;

#endif
