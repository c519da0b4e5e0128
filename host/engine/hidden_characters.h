#ifndef HOST_ENGINE_HIDDEN_CHARACTERS_H
#define HOST_ENGINE_HIDDEN_CHARACTERS_H

#include <string>
#include <string_view>

namespace host {

/// A name or type with every character visible that nobody sees: controls and line ends as their pictures ("␊"), format
/// characters and fillers without a width as "<U+200B>". It is on one line.
[[nodiscard]] std::string makeNameVisible(std::string_view name);

}  // namespace host

#endif
