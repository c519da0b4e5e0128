#ifndef HOST_ENGINE_ENGINE_TABLE_H
#define HOST_ENGINE_ENGINE_TABLE_H

#include <string>
#include <string_view>
#include <vector>

#include "engine/engine.h"

namespace host {

/// All engines, one row each. The first one opens files.
[[nodiscard]] const std::vector<Engine>& listEngines();

/// The engine of a --db: by its scheme, or the one for files if it has none.
/// Throws HostError (Usage) for an unknown scheme.
[[nodiscard]] const Engine& findEngine(std::string_view source);

/// The code-block marks of all engines' dialects.
[[nodiscard]] std::vector<std::string_view> listBlockMarks();

/// The client libraries and their versions, for --version ("SQLite 3.40.1, libpq 15.8").
[[nodiscard]] std::string describeLibraries();

}  // namespace host

#endif
