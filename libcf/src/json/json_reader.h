#ifndef CF_SRC_JSON_READER_H
#define CF_SRC_JSON_READER_H

#include <string_view>

#include "json/json_tape.h"

namespace cf {

/// How much memory the engine reads behind a text, though it makes nothing of it.
inline constexpr std::size_t kJsonPadding = simdjson::SIMDJSON_PADDING;

/// Reads a JSON text as told at COJson.
/// @param isPadded  whether kJsonPadding bytes of memory stand behind the text; if not, it is copied first
/// @return false if it is not valid JSON; the document is then of no use
/// Errors: throws std::bad_alloc
[[nodiscard]] bool readJson(std::string_view text, bool isPadded, ParsedDocument& document);

}  // namespace cf

#endif
