#ifndef BENCH_JSON_FLOOR_H
#define BENCH_JSON_FLOOR_H

#include <simdjson.h>

#include <string>

/// The database structure as statements, by the JSON engine's fastest way of reading: on demand, in the order in which
/// the members stand, each value looked at once, written into a buffer that is there already. It gives what the library
/// gives for a well-formed description without catalog names; anything else throws simdjson::simdjson_error.
/// @param statements  is overwritten; its capacity suffices when it is that of the JSON text
void writeStatementsOnDemand(simdjson::ondemand::parser& parser, const simdjson::padded_string& json,
                             std::string& statements);

#endif
