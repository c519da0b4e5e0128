#include "engine/structure_filter.h"

#include <algorithm>
#include <set>
#include <utility>

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

/// A list of patterns that notes which of them were of use.
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

class StructureFiltering {
public:
    explicit StructureFiltering(const StructureFilter& filter)
        : m_schemas(filter.schemas), m_relations(filter.relations), m_excluded(filter.excluded) {}

    FilterSummary apply(DatabaseStructure& structure) {
        for (CatalogDescription& catalog : structure.catalogs) {
            for (SchemaDescription& schema : catalog.schemas) {
                forEachList(schema, [&](std::vector<RelationDescription>& list) { keepChosen(schema.name, list); });
            }
            for (SchemaDescription& schema : catalog.schemas) {
                forEachList(schema, [&](std::vector<RelationDescription>& list) { cutForeignKeys(schema.name, list); });
            }
            std::erase_if(catalog.schemas, [](const SchemaDescription& schema) {
                return schema.tables.empty() && schema.views.empty() && schema.materializedViews.empty();
            });
        }
        for (const PatternList* patterns : {&m_schemas, &m_relations, &m_excluded}) {
            patterns->reportUnused(m_summary.unusedPatterns);
        }
        return std::move(m_summary);
    }

private:
    template <typename Action>
    static void forEachList(SchemaDescription& schema, const Action& action) {
        action(schema.tables);
        action(schema.views);
        action(schema.materializedViews);
    }

    /// Asks every list, so that each notes what fits.
    bool isChosen(const std::string& schema, const std::string& relation) {
        const bool isInSchema = m_schemas.fitsSchema(schema) || m_schemas.isEmpty();
        const bool isNamed = m_relations.fitsRelation(schema, relation) || m_relations.isEmpty();
        const bool isExcluded = m_excluded.fitsRelation(schema, relation);
        return isInSchema && isNamed && !isExcluded;
    }

    void keepChosen(const std::string& schema, std::vector<RelationDescription>& relations) {
        m_summary.relationCount += std::erase_if(relations, [&](const RelationDescription& relation) {
            const bool isKept = isChosen(schema, relation.name);
            if (!isKept) {
                m_leftOut.emplace(schema, relation.name);
            }
            return !isKept;
        });
    }

    void cutForeignKeys(const std::string& schema, std::vector<RelationDescription>& relations) {
        for (RelationDescription& relation : relations) {
            m_summary.foreignKeyCount += std::erase_if(relation.foreignKeys, [&](const ForeignKeyDescription& key) {
                const std::string& parentSchema = key.parentSchema.empty() ? schema : key.parentSchema;
                return m_leftOut.contains({parentSchema, key.parentTable}) || !isChosen(parentSchema, key.parentTable);
            });
        }
    }

    PatternList m_schemas;
    PatternList m_relations;
    PatternList m_excluded;
    std::set<std::pair<std::string, std::string>> m_leftOut;
    FilterSummary m_summary;
};

}  // namespace

FilterSummary filterStructure(DatabaseStructure& structure, const StructureFilter& filter) {
    return StructureFiltering(filter).apply(structure);
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
    // Where a character does not fit, the last "*" takes one character more: never more than name times pattern steps.
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
