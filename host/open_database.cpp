#include "open_database.h"

#include <utility>

#include "conversation/instructions.h"
#include "terminal/interrupts.h"
#include "terminal/text_safety.h"

namespace host {

OpenDatabase openDatabase(const std::string& source, Console& console) {
    Database database(source);
    DatabaseStructure structure = database.readStructure(StructureDetail::Keys, &Interrupts::isRequested);
    if (std::string warning = warnOfHiddenCharacters(structure); !warning.empty()) {
        structure.warnings.push_back(std::move(warning));
    }
    const std::string name = "the database '" + makeOneLine(database.obtainName()) + "'";
    for (const std::string& warning : structure.warnings) {
        console.note("in " + name + ", " + warning);
    }
    if (countRelations(structure) == 0) {
        console.note(name + " has no tables and no views");
    }
    return {std::move(database), std::move(structure)};
}

void describeDatabase(AssistantSettings& settings, const OpenDatabase& database) {
    for (auto& [name, text] :
         makeSystemInstructions(database.database.obtainEngine().name, database.database.obtainVersion())) {
        settings.systemInstructions.insert_or_assign(name, text);
    }
    settings.structure = makeStructureVariant(database.structure);
}

}  // namespace host
