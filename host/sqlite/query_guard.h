#ifndef HOST_SQLITE_QUERY_GUARD_H
#define HOST_SQLITE_QUERY_GUARD_H

#include <sqlite3.h>

#include <chrono>
#include <string>

namespace host {

/// Authorizes and times statements from outside while it lives. The engine asks it about every action when it compiles
/// a statement, and whether to continue while the statement runs.
///
/// It allows reading, functions except those that act outside the database, and pragmas that only report something. It
/// refuses everything else. One guard per connection; it must not outlive the connection.
class QueryGuard {
public:
    /// @param timeLimit  for all statements together, starting now
    QueryGuard(sqlite3* handle, std::chrono::milliseconds timeLimit);
    ~QueryGuard();
    QueryGuard(const QueryGuard&) = delete;
    QueryGuard& operator=(const QueryGuard&) = delete;

    /// The last refused action, for the user ("INSERT into 'orders'"); empty if there was none.
    [[nodiscard]] const std::string& obtainRefusal() const noexcept { return m_refusal; }
    [[nodiscard]] bool isTimeOver() const noexcept { return m_isTimeOver; }
    /// Extends the deadline by time in which no statement ran.
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
