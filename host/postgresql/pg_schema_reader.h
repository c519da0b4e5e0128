#ifndef HOST_POSTGRESQL_PG_SCHEMA_READER_H
#define HOST_POSTGRESQL_PG_SCHEMA_READER_H

#include <string>
#include <vector>

#include "engine/structure.h"
#include "postgresql/pg_connection.h"

namespace host {

/// Reads the structure of the connection's database from pg_catalog in one snapshot: tables (including foreign and
/// partitioned ones, but not their partitions), views and materialized views of all schemas except the system's, in the
/// order of their creation.
/// Throws HostError (Database).
[[nodiscard]] DatabaseStructure readPgStructure(const PgConnection& connection, StructureDetail detail);

/// The catalogue queries for reading the structure, in order.
[[nodiscard]] std::vector<std::string> listPgStructureQueries(StructureDetail detail);

}  // namespace host

#endif
