#ifndef HOST_STRUCTURE_CHOICE_H
#define HOST_STRUCTURE_CHOICE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "engine/structure.h"

namespace host {

/// Which parts of a database the model is told about.
struct StructureChoice {
    /// Patterns of StructureFilter, separated by commas. Empty: no limit.
    std::string tables;
    std::string exclude;
    std::string schemas;
    std::size_t budget = 0;   ///< tokens for the structure, by estimateTokens; 0: no limit
    bool isDetailed = false;  ///< with comments, defaults, indexes and constraints

    [[nodiscard]] StructureDetail obtainDetail() const noexcept {
        return isDetailed ? StructureDetail::Full : StructureDetail::Keys;
    }
};

/// A structure within a budget, and what was left out of it.
struct FittedStructure {
    DatabaseStructure structure;
    std::vector<std::string> leftOut;  ///< names of tables and views, in the order of the structure
};

/// Leaves out whole tables and views until the rest fits the budget. It begins at the end of the structure. Tables that
/// a foreign key connects with one that the question names are left out later, and the tables that it names last of
/// all.
/// @param question  names a table if it contains the table's name as a word, in the singular or the plural
[[nodiscard]] FittedStructure fitToBudget(const DatabaseStructure& structure, std::size_t budget,
                                          std::string_view question);

/// The details that the structure's own form cannot express, as lines of text: comments, columns that must have a
/// value, defaults, indexes, constraints. Empty if there are none.
[[nodiscard]] std::string writeDetail(const DatabaseStructure& structure);

}  // namespace host

#endif
