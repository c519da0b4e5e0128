#ifndef HOST_INSTRUCTIONS_H
#define HOST_INSTRUCTIONS_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace host {

/// The instructions besides the database's structure, as named texts of the "system_instructions" property: the
/// dialect, how to answer, and how to read the structure.
/// @param engine   its name ("PostgreSQL")
/// @param version  its version ("15.8")
[[nodiscard]] std::map<std::string, std::string> makeSystemInstructions(std::string_view engine,
                                                                        std::string_view version);

/// The approximate number of tokens of a text with this many bytes: one per four bytes. Only an estimate.
[[nodiscard]] std::size_t estimateTokens(std::size_t bytes);

/// A number with commas between the thousands.
[[nodiscard]] std::string formatCount(std::size_t count);

/// The context window, in tokens, that an Ollama server usually gives a model by default.
constexpr std::size_t kUsualContextWindow = 4096;

/// A warning if a prompt of this many bytes is larger than the usual context window; otherwise empty.
[[nodiscard]] std::string warnOfContextWindow(std::size_t promptBytes);

}  // namespace host

#endif
