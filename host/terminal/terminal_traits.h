#ifndef HOST_TERMINAL_TRAITS_H
#define HOST_TERMINAL_TRAITS_H

#include <cstddef>

namespace host {

/// Whether TERM names a terminal that supports escape sequences: it is set, and not "dumb".
[[nodiscard]] bool hasTerminalEscapes();

/// Whether to use colours on such a terminal: NO_COLOR is not set, or empty.
[[nodiscard]] bool areColoursWanted();

/// The columns of standard output's terminal; 80 if unknown.
[[nodiscard]] std::size_t measureTerminalColumns();

}  // namespace host

#endif
