#ifndef HOST_STRUCTURE_CHOICE_H
#define HOST_STRUCTURE_CHOICE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "engine/structure.h"

namespace host {

/// What of a database the model is told.
struct StructureChoice {
    /// Patterns as StructureFilter has them, with commas between them. Empty: no limit.
    std::string tables;
    std::string exclude;
    std::string schemas;
    std::size_t budget = 0;   ///< tokens for the structure, by estimateTokens; 0: no limit
    bool isDetailed = false;  ///< comments, defaults, indexes and constraints are told too

    [[nodiscard]] StructureDetail obtainDetail() const noexcept {
        return isDetailed ? StructureDetail::Full : StructureDetail::Keys;
    }
};

/// A structure that fits a budget, and what was left out of it.
struct FittedStructure {
    DatabaseStructure structure;
    std::vector<std::string> leftOut;  ///< names of tables and views, in the order of the structure
};

/// Leaves whole tables and views out until the rest fits the budget: from the end of the structure, but last those that
/// a foreign key connects with one that the question names, and after these the ones that it names itself.
/// @param question  a table is named where its name stands there as a word, in the singular or the plural
[[nodiscard]] FittedStructure fitToBudget(const DatabaseStructure& structure, std::size_t budget,
                                          std::string_view question);

/// What the structure's own form has no place for, as lines of text: comments, columns that must have a value,
/// defaults, indexes, constraints. Empty where there is nothing of it.
[[nodiscard]] std::string writeDetail(const DatabaseStructure& structure);

}  // namespace host

#endif
