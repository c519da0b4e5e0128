#ifndef HOST_ENGINE_STRUCTURE_FILTER_H
#define HOST_ENGINE_STRUCTURE_FILTER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/structure.h"

namespace host {

/// Selects relations of a structure with patterns, in which "*" stands for any number of characters. Case is ignored
/// (ASCII). A pattern with a dot is compared with "schema.relation", a pattern without one with the relation's name.
struct StructureFilter {
    std::vector<std::string> schemas;    ///< empty: all
    std::vector<std::string> relations;  ///< empty: all
    std::vector<std::string> excluded;   ///< removed from those
};

/// Whether to keep a relation, by its schema's name and its own.
using RelationTest = std::function<bool(const std::string& schema, const std::string& relation)>;

struct RemovedCounts {
    std::size_t relations = 0;
    std::size_t foreignKeys = 0;  ///< from kept relations to removed ones
};

/// Removes relations from a structure, and the foreign keys that refer to them, so that not even their names remain.
/// Schemas without relations are removed too.
RemovedCounts keepRelations(DatabaseStructure& structure, const RelationTest& isKept);

/// The effect of a filter.
struct FilterSummary {
    RemovedCounts removed;
    std::vector<std::string> unusedPatterns;  ///< match no relation or schema: probably mistyped
};

/// Removes from a structure what a filter excludes, as keepRelations does.
FilterSummary filterStructure(DatabaseStructure& structure, const StructureFilter& filter);

/// The patterns of a comma-separated list, trimmed, without empty ones.
[[nodiscard]] std::vector<std::string> splitPatterns(std::string_view list);

/// Whether a name matches a pattern with "*".
[[nodiscard]] bool fitsPattern(std::string_view name, std::string_view pattern);

}  // namespace host

#endif
