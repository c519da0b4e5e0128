#ifndef KAI_DATABASE_STRUCTURE_H
#define KAI_DATABASE_STRUCTURE_H

#include <string>
#include <string_view>

#include "cf/json.h"
#include "cf/variant.h"
#include "kai_create_statement.h"

namespace kai {

/// Converts the JSON description of a database to CREATE statements for the model's instructions.
///
/// The description is an array of catalogs with schemas, which contain tables, views and materialized views;
/// buildDatabaseStructureTemplate() shows its form. Nothing is cached: every call parses the text again. Malformed
/// parts are left out, and each of them is reported to `malformed`.

/// The form of a description, as a document. A member whose value is "optional" may be omitted.
COJson buildDatabaseStructureTemplate();

/// The description as a list of catalog maps with generated "instructions": the lines of each catalog and the
/// statements of each schema. Catalogs without a name come first. Empty for a text that is not a JSON array.
CMVariantList readDatabaseStructure(std::string_view json, MalformedPlaces& malformed);

/// Appends all lines of the description, each followed by a line feed, in the order of readDatabaseStructure.
void appendDatabaseStructureText(std::string& text, std::string_view json, MalformedPlaces& malformed);

}  // namespace kai

#endif
