#ifndef HOST_ENGINE_FAILURES_H
#define HOST_ENGINE_FAILURES_H

#include <chrono>
#include <string>

namespace host {

/// How statements from outside fail, in the same words for every engine. All throw HostError (SqlFailed).

/// @param reason  the engine's own text, or the program's
[[noreturn]] void failSql(const std::string& reason);
/// @param what  what the statement would do ("INSERT into 't'")
[[noreturn]] void failRefused(const std::string& what);
[[noreturn]] void failTimeout(std::chrono::milliseconds limit);

}  // namespace host

#endif
