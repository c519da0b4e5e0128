#ifndef HOST_QUERY_GUARD_H
#define HOST_QUERY_GUARD_H

#include <sqlite3.h>

#include <chrono>
#include <functional>
#include <string>

namespace host {

/// Watches over statements from outside while it lives: the engine asks it about every action of a statement before
/// the statement is compiled, and while it runs whether it may go on.
///
/// Allowed are reading, calling functions (but those that reach outside the database) and the pragmas that only tell
/// something. Everything else is refused, whatever the statement looks like. One guard a connection; it must not
/// outlive the connection.
class QueryGuard {
public:
    /// @param timeLimit  for all statements together, from now on
    /// @param isStopped  asked often; true ends the running statement
    QueryGuard(sqlite3* handle, std::chrono::milliseconds timeLimit, std::function<bool()> isStopped);
    ~QueryGuard();
    QueryGuard(const QueryGuard&) = delete;
    QueryGuard& operator=(const QueryGuard&) = delete;

    /// What was refused last, for a person ("INSERT into 'orders'"); empty when nothing was.
    [[nodiscard]] const std::string& obtainRefusal() const noexcept { return m_refusal; }
    [[nodiscard]] bool isTimeOver() const noexcept { return m_isTimeOver; }
    [[nodiscard]] bool wasStopped() const noexcept { return m_wasStopped; }

private:
    static int authorize(void* guard, int action, const char* first, const char* second, const char* schema,
                         const char* trigger);
    static int checkProgress(void* guard);

    [[nodiscard]] bool allow(int action, const char* first, const char* second);

    sqlite3* m_handle;
    std::chrono::steady_clock::time_point m_deadline;
    std::function<bool()> m_isStopped;
    std::string m_refusal;
    bool m_isTimeOver = false;
    bool m_wasStopped = false;
};

}  // namespace host

#endif
