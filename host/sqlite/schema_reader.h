#ifndef HOST_SQLITE_SCHEMA_READER_H
#define HOST_SQLITE_SCHEMA_READER_H

#include "engine/structure.h"
#include "sqlite/sqlite_database.h"

namespace host {

/// Reads the structure of every database of a connection except the temporary one: tables (also virtual ones) and views
/// in the order of their creation, without the engine's own tables and the shadow tables of virtual ones.
///
/// A foreign key without parent columns gets the parent's primary key; a foreign key whose parent is missing gives a
/// warning. A relation that the engine cannot describe within its limits (a view of a missing table, a virtual table of
/// an unknown module, views on views that multiply each other) is left out with a warning.
/// Throws HostError (Database) if the file cannot be read.
[[nodiscard]] DatabaseStructure readSqliteStructure(const SqliteDatabase& database, StructureDetail detail);

}  // namespace host

#endif
