#ifndef HOST_TERMINAL_TRAITS_H
#define HOST_TERMINAL_TRAITS_H

#include <cstddef>

namespace host {

/// Whether TERM names a terminal that acts on escape sequences: it is set, and not "dumb".
[[nodiscard]] bool hasTerminalEscapes();

/// Whether colours are wanted on such a terminal: NO_COLOR is not set, or empty.
[[nodiscard]] bool areColoursWanted();

/// The columns of the terminal that standard output leads to; 80 where they are not known.
[[nodiscard]] std::size_t measureTerminalColumns();

}  // namespace host

#endif
