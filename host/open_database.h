#ifndef HOST_OPEN_DATABASE_H
#define HOST_OPEN_DATABASE_H

#include <string>

#include "conversation/assistant.h"
#include "sqlite/schema_reader.h"
#include "sqlite/sqlite_database.h"
#include "terminal/console.h"

namespace host {

/// The user's database and what was read of its structure.
struct OpenDatabase {
    SqliteDatabase database;
    DatabaseStructure structure;
};

/// Opens a database and reads its structure; says on standard error what had to be left out.
/// Throws HostError (Database).
[[nodiscard]] OpenDatabase openDatabase(const std::string& fileName, Console& console);

/// Adds to an assistant's settings what it is told about a database.
void describeDatabase(AssistantSettings& settings, const OpenDatabase& database);

}  // namespace host

#endif
