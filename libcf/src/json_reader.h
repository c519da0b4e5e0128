#ifndef CF_SRC_JSON_READER_H
#define CF_SRC_JSON_READER_H

#include <string_view>

#include "json_tape.h"

/// Reads a JSON text as told at COJson.
/// @return false if it is not valid JSON; the document is then of no use
/// Errors: throws std::bad_alloc
[[nodiscard]] bool readJson(std::string_view text, ParsedDocument& document);

#endif
