#ifndef HOST_ENGINE_FAILURES_H
#define HOST_ENGINE_FAILURES_H

#include <chrono>
#include <string>

namespace host {

/// Failures of statements from outside, with the same texts for every engine. All functions throw HostError
/// (SqlFailed).

/// @param reason  the engine's own text, or the program's
[[noreturn]] void failSql(const std::string& reason);
/// @param what  the statement's action ("INSERT into 't'")
[[noreturn]] void failRefused(const std::string& what);
[[noreturn]] void failTimeout(std::chrono::milliseconds limit);

}  // namespace host

#endif
