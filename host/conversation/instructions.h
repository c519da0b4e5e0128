#ifndef HOST_INSTRUCTIONS_H
#define HOST_INSTRUCTIONS_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace host {

/// What the model is told besides the database's structure, as named texts of the "system_instructions" property: the
/// dialect, how to answer, and how the structure is to be read.
/// @param engine   its name ("PostgreSQL")
/// @param version  its version ("15.8")
[[nodiscard]] std::map<std::string, std::string> makeSystemInstructions(std::string_view engine,
                                                                        std::string_view version);

/// About how many tokens a text of this many bytes is for a model: one for four bytes. An estimate, nothing more.
[[nodiscard]] std::size_t estimateTokens(std::size_t bytes);

/// A number with commas between the thousands.
[[nodiscard]] std::string formatCount(std::size_t count);

/// The context window, in tokens, that an Ollama server usually runs a model with unless it is told otherwise.
constexpr std::size_t kUsualContextWindow = 4096;

/// A warning when a prompt of this many bytes is larger than the usual context window; empty when it is not.
[[nodiscard]] std::string warnOfContextWindow(std::size_t promptBytes);

}  // namespace host

#endif
