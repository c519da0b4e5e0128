#ifndef HOST_POSTGRESQL_PG_SCHEMA_READER_H
#define HOST_POSTGRESQL_PG_SCHEMA_READER_H

#include <string>
#include <vector>

#include "engine/structure.h"
#include "postgresql/pg_connection.h"

namespace host {

/// Reads the structure of the database that a connection is in, from pg_catalog in one snapshot: tables (foreign and
/// partitioned ones too, their partitions not), views and materialized views of all schemas except the system's, in the
/// order in which they were made.
/// Throws HostError (Database).
[[nodiscard]] DatabaseStructure readPgStructure(const PgConnection& connection, StructureDetail detail);

/// The catalogue queries that reading takes, in their order.
[[nodiscard]] std::vector<std::string> listPgStructureQueries(StructureDetail detail);

}  // namespace host

#endif
