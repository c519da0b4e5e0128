#ifndef HOST_OPEN_DATABASE_H
#define HOST_OPEN_DATABASE_H

#include <string>

#include "conversation/assistant.h"
#include "engine/database.h"
#include "terminal/console.h"

namespace host {

/// The user's database and what was read of its structure.
struct OpenDatabase {
    Database database;
    DatabaseStructure structure;
};

/// Opens a database and reads its structure; says on standard error what had to be left out.
/// Throws HostError: Usage, Database, or Cancelled after Ctrl-C.
[[nodiscard]] OpenDatabase openDatabase(const std::string& source, Console& console);

/// Adds to an assistant's settings what it is told about a database.
void describeDatabase(AssistantSettings& settings, const OpenDatabase& database);

}  // namespace host

#endif
