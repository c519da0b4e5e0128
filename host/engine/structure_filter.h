#ifndef HOST_ENGINE_STRUCTURE_FILTER_H
#define HOST_ENGINE_STRUCTURE_FILTER_H

#include <cstddef>
#include <functional>
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

/// Whether a relation is kept, by the names of its schema and its own.
using RelationTest = std::function<bool(const std::string& schema, const std::string& relation)>;

struct RemovedCounts {
    std::size_t relations = 0;
    std::size_t foreignKeys = 0;  ///< of the relations that stay, to some that do not
};

/// Takes out of a structure the relations that are not kept, and the foreign keys that lead to them: not even their
/// names are told. Schemas without relations go too.
RemovedCounts keepRelations(DatabaseStructure& structure, const RelationTest& isKept);

/// What a filter left out.
struct FilterSummary {
    RemovedCounts removed;
    std::vector<std::string> unusedPatterns;  ///< that no relation or schema fits: mistyped, most likely
};

/// Takes out of a structure what a filter leaves out, as keepRelations does.
FilterSummary filterStructure(DatabaseStructure& structure, const StructureFilter& filter);

/// The patterns of a list with commas between them, blanks around each dropped, empty ones left out.
[[nodiscard]] std::vector<std::string> splitPatterns(std::string_view list);

/// Whether a name fits a pattern with "*".
[[nodiscard]] bool fitsPattern(std::string_view name, std::string_view pattern);

}  // namespace host

#endif
