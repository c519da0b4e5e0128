#ifndef HOST_SQLITE_QUERY_RUNNER_H
#define HOST_SQLITE_QUERY_RUNNER_H

#include <cstddef>
#include <string>

#include "engine/result.h"
#include "sqlite/sqlite_database.h"

namespace host {

/// Runs statements from outside on a database, for reading only.
class QueryRunner {
public:
    /// @param database  borrowed
    QueryRunner(const SqliteDatabase& database, QueryLimits limits);

    /// Runs the statements of a text in order and passes the rows on as they come. The first failure ends it.
    /// @return the number of statements that ran
    /// Throws HostError: SqlFailed for what is wrong with the SQL, Database for what is wrong with the file.
    std::size_t run(const std::string& script, RowReceiver& receiver) const;

private:
    const SqliteDatabase& m_database;
    QueryLimits m_limits;
};

}  // namespace host

#endif
