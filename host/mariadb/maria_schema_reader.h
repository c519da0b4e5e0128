#ifndef HOST_MARIADB_MARIA_SCHEMA_READER_H
#define HOST_MARIADB_MARIA_SCHEMA_READER_H

#include <string>
#include <vector>

#include "engine/structure.h"
#include "mariadb/maria_connection.h"

namespace host {

/// Reads the structure of the connection's database, or of all databases except the system's if the connection names
/// none, from information_schema: tables and views by their names.
/// Throws HostError (Database).
[[nodiscard]] DatabaseStructure readMariaStructure(const MariaConnection& connection, StructureDetail detail);

/// The catalogue queries for reading the structure without details, in order.
[[nodiscard]] std::vector<std::string> listMariaStructureQueries(const MariaConnection& connection);

}  // namespace host

#endif
