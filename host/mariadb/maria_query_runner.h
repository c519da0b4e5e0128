#ifndef HOST_MARIADB_MARIA_QUERY_RUNNER_H
#define HOST_MARIADB_MARIA_QUERY_RUNNER_H

#include <cstddef>
#include <string>

#include "engine/result.h"
#include "mariadb/maria_connection.h"

namespace host {

/// Runs statements from outside, for reading only.
///
/// Each statement runs alone, in a READ ONLY transaction of its own that is rolled back, and only if the server says
/// beforehand that it gives rows: SET, KILL or INTO OUTFILE give none. Functions that reach outside the transaction are
/// refused by their names.
/// @return the number of statements that ran
/// Throws HostError: SqlFailed for what is wrong with the SQL, Database for what is wrong with the connection.
std::size_t runMariaScript(MariaConnection& connection, const std::string& script, const QueryLimits& limits,
                           RowReceiver& receiver);

}  // namespace host

#endif
