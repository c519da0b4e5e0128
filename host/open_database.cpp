#include "open_database.h"

#include <utility>

#include "conversation/instructions.h"
#include "terminal/text_safety.h"

namespace host {

OpenDatabase openDatabase(const std::string& fileName, Console& console) {
    SqliteDatabase database(fileName);
    DatabaseStructure structure = readDatabaseStructure(database);
    for (const std::string& warning : structure.warnings) {
        console.note("in the database '" + makeOneLine(fileName) + "', " + warning);
    }
    if (countRelations(structure) == 0) {
        console.note("the database '" + makeOneLine(fileName) + "' has no tables and no views");
    }
    return {std::move(database), std::move(structure)};
}

void describeDatabase(AssistantSettings& settings, const OpenDatabase& database) {
    for (auto& [name, text] : makeSystemInstructions()) {
        settings.systemInstructions.insert_or_assign(name, text);
    }
    settings.structure = makeStructureVariant(database.structure);
}

}  // namespace host
