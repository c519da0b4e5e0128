#ifndef HOST_MARIADB_MARIA_ENGINE_H
#define HOST_MARIADB_MARIA_ENGINE_H

#include <memory>
#include <string>

#include "engine/engine.h"

namespace host {

/// Connects to a MariaDB or MySQL server, read-only; see MariaConnection.
[[nodiscard]] std::unique_ptr<EngineConnection> openMaria(const std::string& url);

/// "libmariadb 3.3.8"
[[nodiscard]] std::string describeMariaLibrary();

}  // namespace host

#endif
