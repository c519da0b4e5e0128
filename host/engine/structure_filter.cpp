#include "engine/structure_filter.h"

#include <algorithm>
#include <set>

namespace host {
namespace {

char foldCase(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

std::string_view trimBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// A list of patterns that records which of them have matched.
class PatternList {
public:
    explicit PatternList(const std::vector<std::string>& patterns) : m_patterns(patterns) {}

    [[nodiscard]] bool isEmpty() const noexcept { return m_patterns.empty(); }

    bool fitsSchema(const std::string& schema) {
        return fitsAny([&](std::string_view) { return schema; });
    }

    bool fitsRelation(const std::string& schema, const std::string& relation) {
        return fitsAny([&](std::string_view pattern) {
            return pattern.find('.') == std::string_view::npos ? relation : schema + "." + relation;
        });
    }

    void reportUnused(std::vector<std::string>& target) const {
        for (const std::string& pattern : m_patterns) {
            if (!m_used.contains(pattern)) {
                target.push_back(pattern);
            }
        }
    }

private:
    template <typename ChooseName>
    bool fitsAny(const ChooseName& chooseName) {
        bool isFitting = false;
        for (const std::string& pattern : m_patterns) {
            if (fitsPattern(chooseName(pattern), pattern)) {
                m_used.insert(pattern);
                isFitting = true;
            }
        }
        return isFitting;
    }

    const std::vector<std::string>& m_patterns;
    std::set<std::string> m_used;
};

template <typename Action>
void forEachList(DatabaseStructure& structure, const Action& action) {
    for (CatalogDescription& catalog : structure.catalogs) {
        for (SchemaDescription& schema : catalog.schemas) {
            action(schema.name, schema.tables);
            action(schema.name, schema.views);
            action(schema.name, schema.materializedViews);
        }
    }
}

}  // namespace

RemovedCounts keepRelations(DatabaseStructure& structure, const RelationTest& isKept) {
    RemovedCounts removed;
    forEachList(structure, [&](const std::string& schema, std::vector<RelationDescription>& relations) {
        removed.relations += std::erase_if(
            relations, [&](const RelationDescription& relation) { return !isKept(schema, relation.name); });
        for (RelationDescription& relation : relations) {
            removed.foreignKeys += std::erase_if(relation.foreignKeys, [&](const ForeignKeyDescription& key) {
                return !isKept(key.parentSchema.empty() ? schema : key.parentSchema, key.parentTable);
            });
        }
    });
    for (CatalogDescription& catalog : structure.catalogs) {
        std::erase_if(catalog.schemas, [](const SchemaDescription& schema) {
            return schema.tables.empty() && schema.views.empty() && schema.materializedViews.empty();
        });
    }
    return removed;
}

FilterSummary filterStructure(DatabaseStructure& structure, const StructureFilter& filter) {
    PatternList schemas(filter.schemas);
    PatternList relations(filter.relations);
    PatternList excluded(filter.excluded);
    FilterSummary summary;
    // Asks every list, so that each records its matches.
    summary.removed = keepRelations(structure, [&](const std::string& schema, const std::string& relation) {
        const bool isInSchema = schemas.fitsSchema(schema) || schemas.isEmpty();
        const bool isNamed = relations.fitsRelation(schema, relation) || relations.isEmpty();
        const bool isExcluded = excluded.fitsRelation(schema, relation);
        return isInSchema && isNamed && !isExcluded;
    });
    for (const PatternList* patterns : {&schemas, &relations, &excluded}) {
        patterns->reportUnused(summary.unusedPatterns);
    }
    return summary;
}

std::vector<std::string> splitPatterns(std::string_view list) {
    std::vector<std::string> patterns;
    while (!list.empty()) {
        const std::size_t end = list.find(',');
        if (const std::string_view pattern = trimBlanks(list.substr(0, end)); !pattern.empty()) {
            patterns.emplace_back(pattern);
        }
        list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
    }
    return patterns;
}

bool fitsPattern(std::string_view name, std::string_view pattern) {
    // If a character does not match, the last "*" takes one character more: never more than name times pattern steps.
    std::size_t place = 0;
    std::size_t patternPlace = 0;
    std::size_t starPlace = std::string_view::npos;
    std::size_t starEnd = 0;
    while (place < name.size()) {
        if (patternPlace < pattern.size() && pattern[patternPlace] == '*') {
            starPlace = patternPlace++;
            starEnd = place;
        } else if (patternPlace < pattern.size() && foldCase(pattern[patternPlace]) == foldCase(name[place])) {
            ++patternPlace;
            ++place;
        } else if (starPlace != std::string_view::npos) {
            patternPlace = starPlace + 1;
            place = ++starEnd;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', patternPlace) == std::string_view::npos;
}

}  // namespace host
