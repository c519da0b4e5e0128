#ifndef HOST_OPEN_DATABASE_H
#define HOST_OPEN_DATABASE_H

#include <cstddef>
#include <string>
#include <string_view>

#include "conversation/assistant.h"
#include "conversation/structure_choice.h"
#include "engine/database.h"
#include "terminal/console.h"

namespace host {

/// The user's database and what was read of its structure.
struct OpenDatabase {
    Database database;
    DatabaseStructure structure;
};

/// Opens a database and reads its structure; says on standard error what had to be left out.
/// @param choice  what of the structure is kept; its budget is left to describeDatabase
/// Throws HostError: Usage, Database, or Cancelled after Ctrl-C.
[[nodiscard]] OpenDatabase openDatabase(const std::string& source, const StructureChoice& choice, Console& console);

/// How many tokens the structure may take, and who says so.
struct Budget {
    std::size_t tokens = 0;  ///< 0: no limit
    std::string reason{};    ///< "for --budget 4096"
};

/// The budget that the command line gives.
[[nodiscard]] Budget obtainChosenBudget(const StructureChoice& choice);

/// Adds to an assistant's settings what it is told about a database.
/// @param question  tables that it names are the last to be left out where the budget is short
/// @return one line that says what the budget left out; empty where nothing is
[[nodiscard]] std::string describeDatabase(AssistantSettings& settings, const OpenDatabase& database,
                                           const StructureChoice& choice, const Budget& budget,
                                           std::string_view question);

}  // namespace host

#endif
