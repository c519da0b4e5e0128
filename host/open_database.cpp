#include "open_database.h"

#include <utility>

#include "cf/utilities.h"
#include "conversation/instructions.h"
#include "engine/structure_filter.h"
#include "host_error.h"
#include "terminal/interrupts.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

DatabaseStructure readWithSignsOfLife(Database& database, StructureDetail detail, Console& console) {
    console.beginProgress();
    const CODefer endProgress([&] { console.endProgress(); });
    return database.readStructure(detail, [&] {
        console.updateProgress();
        return Interrupts::isRequested();
    });
}

std::string describeLeftOut(const FittedStructure& fitted, const Budget& budget) {
    std::string names;
    for (const std::string& name : fitted.leftOut) {
        names += (names.empty() ? "" : ", ") + name;
    }
    return "the model is told of " + formatCount(countRelations(fitted.structure)) + " tables and views; " +
           formatCount(fitted.leftOut.size()) + " are left out " + budget.reason + ": " + makeOneLine(names);
}

/// Keeps the parts of the structure that the command line selects, and adds a warning for patterns that look mistyped.
void choose(DatabaseStructure& structure, const StructureChoice& choice) {
    const FilterSummary summary = filterStructure(structure, {.schemas = splitPatterns(choice.schemas),
                                                              .relations = splitPatterns(choice.tables),
                                                              .excluded = splitPatterns(choice.exclude)});
    for (const std::string& pattern : summary.unusedPatterns) {
        structure.warnings.push_back("nothing fits the pattern '" + makeOneLine(pattern) + "'");
    }
    if (std::string warning = warnOfHiddenCharacters(structure); !warning.empty()) {
        structure.warnings.push_back(std::move(warning));
    }
}

}  // namespace

OpenDatabase openDatabase(const std::string& source, const StructureChoice& choice, Console& console) {
    Database database(source);
    DatabaseStructure structure = readWithSignsOfLife(database, choice.obtainDetail(), console);
    const std::size_t count = countRelations(structure);
    choose(structure, choice);
    const std::string name = "the database '" + makeOneLine(database.obtainName()) + "'";
    if (count != 0 && countRelations(structure) == 0) {
        throw HostError(ExitCode::Usage, "--tables, --exclude and --schema leave none of the " + formatCount(count) +
                                             " tables and views of " + name);
    }
    for (const std::string& warning : structure.warnings) {
        console.note("in " + name + ", " + warning);
    }
    if (count == 0) {
        console.note(name + " has no tables and no views");
    }
    return {std::move(database), std::move(structure)};
}

Budget obtainChosenBudget(const StructureChoice& choice) {
    return {.tokens = choice.budget, .reason = "for --budget " + std::to_string(choice.budget)};
}

std::string describeDatabase(AssistantSettings& settings, const OpenDatabase& database, const StructureChoice& choice,
                             const Budget& budget, std::string_view question) {
    for (auto& [name, text] :
         makeSystemInstructions(database.database.obtainEngine().name, database.database.obtainVersion())) {
        settings.systemInstructions.insert_or_assign(name, text);
    }
    FittedStructure fitted;
    if (budget.tokens == 0) {
        fitted.structure = database.structure;
    } else {
        fitted = fitToBudget(database.structure, budget.tokens, question);
    }
    if (choice.isDetailed) {
        // An empty text would remove the entry, and a former text would then be missing.
        settings.systemInstructions["4_detail"] = "More about the tables:\n" + writeDetail(fitted.structure);
    }
    settings.structure = makeStructureVariant(fitted.structure);
    return fitted.leftOut.empty() ? std::string() : describeLeftOut(fitted, budget);
}

}  // namespace host
