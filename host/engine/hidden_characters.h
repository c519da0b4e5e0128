#ifndef HOST_ENGINE_HIDDEN_CHARACTERS_H
#define HOST_ENGINE_HIDDEN_CHARACTERS_H

#include <string>
#include <string_view>

namespace host {

/// A name or type with all invisible characters made visible: control characters and line ends as symbols ("␊"), format
/// characters and zero-width fillers as "<U+200B>". The result is on one line.
[[nodiscard]] std::string makeNameVisible(std::string_view name);

}  // namespace host

#endif
