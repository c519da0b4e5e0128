#ifndef HOST_SQLITE_QUERY_RUNNER_H
#define HOST_SQLITE_QUERY_RUNNER_H

#include <cstddef>
#include <string>

#include "engine/result.h"
#include "sqlite/sqlite_database.h"

namespace host {

/// Runs statements from outside on a database, read-only.
class QueryRunner {
public:
    /// @param database  borrowed
    QueryRunner(const SqliteDatabase& database, QueryLimits limits);

    /// Runs the statements of a text in order and passes the rows on as they arrive. It stops at the first failure.
    /// @return the number of statements that ran
    /// Throws HostError: SqlFailed for errors in the SQL, Database for problems with the file.
    std::size_t run(const std::string& script, RowReceiver& receiver) const;

private:
    const SqliteDatabase& m_database;
    QueryLimits m_limits;
};

}  // namespace host

#endif
