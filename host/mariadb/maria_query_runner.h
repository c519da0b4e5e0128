#ifndef HOST_MARIADB_MARIA_QUERY_RUNNER_H
#define HOST_MARIADB_MARIA_QUERY_RUNNER_H

#include <cstddef>
#include <string>

#include "engine/result.h"
#include "mariadb/maria_connection.h"

namespace host {

/// Runs statements from outside, read-only.
///
/// Each statement runs alone, in its own READ ONLY transaction that is rolled back, and only if the server says
/// beforehand that it returns rows: SET, KILL or INTO OUTFILE return none. Functions that act outside the transaction
/// are refused by their names.
/// @return the number of statements that ran
/// Throws HostError: SqlFailed for errors in the SQL, Database for problems with the connection.
std::size_t runMariaScript(MariaConnection& connection, const std::string& script, const QueryLimits& limits,
                           RowReceiver& receiver);

}  // namespace host

#endif
