#ifndef CF_SRC_JSON_READER_H
#define CF_SRC_JSON_READER_H

#include <string_view>

#include "json/json_tape.h"

namespace cf {

/// simdjson reads this many bytes past the end of a text. Their content does not matter.
inline constexpr std::size_t kJsonPadding = simdjson::SIMDJSON_PADDING;

/// Parses a JSON text by the rules documented at COJson.
/// @param isPadded  whether kJsonPadding readable bytes follow the text; if not, the text is copied first
/// @param document  may hold another text; its memory is then reused
/// @param parser    may have been used before
/// @return false if it is not valid JSON; the document's content must not be used then
/// Errors: throws std::bad_alloc
[[nodiscard]] bool readJson(std::string_view text, bool isPadded, ParsedDocument& document,
                            simdjson::dom::parser& parser);

}  // namespace cf

#endif
