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

/// The user's database and its structure.
struct OpenDatabase {
    Database database;
    DatabaseStructure structure;
};

/// Opens a database and reads its structure; reports on standard error what is left out.
/// @param choice  the parts of the structure to keep; describeDatabase applies its budget
/// Throws HostError: Usage, Database, or Cancelled after Ctrl-C.
[[nodiscard]] OpenDatabase openDatabase(const std::string& source, const StructureChoice& choice, Console& console);

/// The most tokens for the structure, and the reason.
struct Budget {
    std::size_t tokens = 0;  ///< 0: no limit
    std::string reason{};    ///< "for --budget 4096"
};

/// The budget from the command line.
[[nodiscard]] Budget obtainChosenBudget(const StructureChoice& choice);

/// Adds the description of a database to an assistant's settings.
/// @param question  the tables that it names are left out last if the budget is too small
/// @return one line that says what the budget left out; empty if nothing
[[nodiscard]] std::string describeDatabase(AssistantSettings& settings, const OpenDatabase& database,
                                           const StructureChoice& choice, const Budget& budget,
                                           std::string_view question);

}  // namespace host

#endif
