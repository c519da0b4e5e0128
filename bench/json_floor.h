#ifndef BENCH_JSON_FLOOR_H
#define BENCH_JSON_FLOOR_H

#include <simdjson.h>

#include <cstddef>

/// The database structure as statements, by the JSON engine's fastest way of reading: on demand, in the order in which
/// the members stand, each value looked at once, written into a buffer that is there already. It gives what the library
/// gives for a well-formed description without catalog names; anything else throws simdjson::simdjson_error.
/// @param statements  receives the text; as long as the JSON text is long enough
/// @return the length of the text
std::size_t writeStatementsOnDemand(simdjson::ondemand::parser& parser, const simdjson::padded_string& json,
                                    char* statements);

#endif
