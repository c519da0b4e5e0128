#ifndef HOST_POSTGRESQL_PG_QUERY_RUNNER_H
#define HOST_POSTGRESQL_PG_QUERY_RUNNER_H

#include <cstddef>
#include <string>

#include "engine/result.h"
#include "postgresql/pg_connection.h"

namespace host {

/// Runs statements from outside, read-only.
///
/// Each statement runs alone, in its own READ ONLY transaction that is rolled back. It is prepared in the extended
/// protocol (which accepts one statement) and runs only if it returns rows. A superuser's rights are dropped: the
/// statement runs with the rights of pg_read_all_data. Functions that act outside the transaction, which the server
/// allows even to readers, are refused by their names.
/// @return the number of statements that ran
/// Throws HostError: SqlFailed for errors in the SQL, Database for problems with the connection.
std::size_t runPgScript(const PgConnection& connection, const std::string& script, const QueryLimits& limits,
                        RowReceiver& receiver);

}  // namespace host

#endif
