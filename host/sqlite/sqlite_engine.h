#ifndef HOST_SQLITE_SQLITE_ENGINE_H
#define HOST_SQLITE_SQLITE_ENGINE_H

#include <memory>
#include <string>

#include "engine/engine.h"

namespace host {

/// Opens a SQLite file, read-only; see SqliteDatabase.
[[nodiscard]] std::unique_ptr<EngineConnection> openSqlite(const std::string& fileName);

/// "SQLite 3.40.1"
[[nodiscard]] std::string describeSqliteLibrary();

}  // namespace host

#endif
