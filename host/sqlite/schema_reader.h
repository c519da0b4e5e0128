#ifndef HOST_SQLITE_SCHEMA_READER_H
#define HOST_SQLITE_SCHEMA_READER_H

#include "engine/structure.h"
#include "sqlite/sqlite_database.h"

namespace host {

/// Reads the structure of every database of a connection except the temporary one: tables (virtual ones too) and views
/// in the order in which they were made, without the engine's own tables and the shadow tables of virtual ones.
///
/// A foreign key that names no parent columns gets the parent's primary key; one that leads nowhere gives a warning. A
/// relation that the engine cannot describe within its limits (a view of a table that is gone, a virtual table of an
/// unknown module, views upon views that multiply each other) is left out with a warning.
/// Throws HostError (Database) when the file cannot be read.
[[nodiscard]] DatabaseStructure readSqliteStructure(const SqliteDatabase& database, StructureDetail detail);

}  // namespace host

#endif
