#ifndef HOST_POSTGRESQL_PG_QUERY_RUNNER_H
#define HOST_POSTGRESQL_PG_QUERY_RUNNER_H

#include <cstddef>
#include <string>

#include "engine/result.h"
#include "postgresql/pg_connection.h"

namespace host {

/// Runs statements from outside, for reading only.
///
/// Each statement runs alone, in a READ ONLY transaction of its own that is rolled back, prepared in the extended
/// protocol (which takes one statement) and only if it gives rows. A superuser's rights are put aside: where the
/// server lets a session do everything, it does it only with those of pg_read_all_data. Functions that reach outside
/// the transaction, which no server keeps a reader from, are refused by their names.
/// @return the number of statements that ran
/// Throws HostError: SqlFailed for what is wrong with the SQL, Database for what is wrong with the connection.
std::size_t runPgScript(const PgConnection& connection, const std::string& script, const QueryLimits& limits,
                        RowReceiver& receiver);

}  // namespace host

#endif
