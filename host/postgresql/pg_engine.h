#ifndef HOST_POSTGRESQL_PG_ENGINE_H
#define HOST_POSTGRESQL_PG_ENGINE_H

#include <memory>
#include <string>

#include "engine/engine.h"

namespace host {

/// Connects to a PostgreSQL server, read-only; see PgConnection.
[[nodiscard]] std::unique_ptr<EngineConnection> openPostgresql(const std::string& url);

/// "libpq 15.8"
[[nodiscard]] std::string describePostgresqlLibrary();

}  // namespace host

#endif
