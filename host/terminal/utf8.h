#ifndef HOST_UTF8_H
#define HOST_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// Reads the character at `position` and moves `position` after it.
///
/// An ill-formed sequence gives U+FFFD; `position` moves over as many of its bytes as could have begun a character.
/// @param position  an offset below the text's size
[[nodiscard]] char32_t decodeCharacter(std::string_view text, std::size_t& position);

/// Appends a character's UTF-8 bytes.
void appendCharacter(std::string& target, char32_t character);

}  // namespace host

#endif
