#ifndef HOST_ENGINE_STRUCTURE_FILTER_H
#define HOST_ENGINE_STRUCTURE_FILTER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "engine/structure.h"

namespace host {

/// Which relations of a structure are told of, as patterns in which "*" stands for any characters, none included.
/// Letters count without their case (ASCII). A pattern with a dot is compared with "schema.relation", one without with
/// the relation's name alone.
struct StructureFilter {
    std::vector<std::string> schemas;    ///< empty: all
    std::vector<std::string> relations;  ///< empty: all
    std::vector<std::string> excluded;   ///< taken out of those
};

/// What a filter left out.
struct FilterSummary {
    std::size_t relationCount = 0;
    std::size_t foreignKeyCount = 0;          ///< of the relations that stay, to some that do not
    std::vector<std::string> unusedPatterns;  ///< that no relation or schema fits: mistyped, most likely
};

/// Takes out of a structure what a filter leaves out, and the foreign keys that lead there: not even the names of
/// excluded relations are told. Schemas without relations go too.
FilterSummary filterStructure(DatabaseStructure& structure, const StructureFilter& filter);

/// The patterns of a list with commas between them, blanks around each dropped, empty ones left out.
[[nodiscard]] std::vector<std::string> splitPatterns(std::string_view list);

/// Whether a name fits a pattern with "*".
[[nodiscard]] bool fitsPattern(std::string_view name, std::string_view pattern);

}  // namespace host

#endif
