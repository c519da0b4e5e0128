#ifndef HOST_SQLITE_QUERY_GUARD_H
#define HOST_SQLITE_QUERY_GUARD_H

#include <sqlite3.h>

#include <chrono>
#include <string>

namespace host {

/// Authorizes and times the statements from outside while it lives: the engine asks it about every action of a
/// statement while it compiles the statement, and while the statement runs whether it may go on.
///
/// Allowed are reading, calling functions except those that reach outside the database, and pragmas that only report
/// something. Everything else is refused. One guard a connection; it must not outlive the connection.
class QueryGuard {
public:
    /// @param timeLimit  for all statements together, from now on
    QueryGuard(sqlite3* handle, std::chrono::milliseconds timeLimit);
    ~QueryGuard();
    QueryGuard(const QueryGuard&) = delete;
    QueryGuard& operator=(const QueryGuard&) = delete;

    /// What was refused last, for a person ("INSERT into 'orders'"); empty when nothing was.
    [[nodiscard]] const std::string& obtainRefusal() const noexcept { return m_refusal; }
    [[nodiscard]] bool isTimeOver() const noexcept { return m_isTimeOver; }
    /// Moves the deadline by time that the statements did not use.
    void extendTime(std::chrono::steady_clock::duration time) noexcept { m_deadline += time; }

private:
    static int authorize(void* guard, int action, const char* first, const char* second, const char* schema,
                         const char* trigger);
    static int checkProgress(void* guard);

    [[nodiscard]] bool allow(int action, const char* first, const char* second);

    sqlite3* m_handle;
    std::chrono::steady_clock::time_point m_deadline;
    std::string m_refusal;
    bool m_isTimeOver = false;
};

}  // namespace host

#endif
