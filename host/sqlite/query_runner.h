#ifndef HOST_QUERY_RUNNER_H
#define HOST_QUERY_RUNNER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "sqlite/sqlite_database.h"

namespace host {

struct QueryLimits {
    std::size_t maxRows = 100;                                    ///< rows of one statement that are kept
    std::size_t maxCellBytes = 64 * 1024;                         ///< bytes of one value that are kept
    std::chrono::milliseconds maxTime{std::chrono::seconds{30}};  ///< for all statements of a script together
};

/// One value of a row.
struct Cell {
    enum class Kind { Null, Number, Text, Blob };
    Kind kind = Kind::Null;
    std::string bytes;     ///< a number as the engine writes it; at most maxCellBytes
    std::size_t size = 0;  ///< bytes of the whole value
};

/// What one statement gave.
struct ResultTable {
    std::vector<std::string> columns;  ///< empty for a statement that gives no rows at all
    std::vector<std::vector<Cell>> rows;
    bool hasMoreRows = false;
};

/// Runs statements from outside on a database, for reading only.
class QueryRunner {
public:
    /// @param database   borrowed
    /// @param isStopped  asked often while a statement runs; true ends it
    QueryRunner(const SqliteDatabase& database, QueryLimits limits, std::function<bool()> isStopped);

    /// Runs the statements of a text in order and hands out each result as it comes. The first failure ends it.
    /// @return the number of statements that ran
    /// Throws HostError: SqlFailed for what is wrong with the SQL, Database for what is wrong with the file, Cancelled
    /// when it was stopped.
    std::size_t run(const std::string& script, const std::function<void(const ResultTable&)>& receive) const;

private:
    const SqliteDatabase& m_database;
    QueryLimits m_limits;
    std::function<bool()> m_isStopped;
};

}  // namespace host

#endif
