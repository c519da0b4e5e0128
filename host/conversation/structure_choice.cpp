#include "conversation/structure_choice.h"

#include <algorithm>
#include <set>
#include <utility>

#include "cf/utilities.h"
#include "conversation/instructions.h"
#include "engine/hidden_characters.h"

namespace host {
namespace {

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return lower;
}

/// Whether a text fits a pattern; both in lower case.
bool fits(std::string_view text, std::string_view pattern) {
    std::size_t position = 0;
    std::size_t place = 0;
    std::size_t star = std::string_view::npos;
    std::size_t starPosition = 0;
    while (position < text.size()) {
        if (place < pattern.size() && pattern[place] == '*') {
            star = place++;
            starPosition = position;
        } else if (place < pattern.size() && pattern[place] == text[position]) {
            ++place;
            ++position;
        } else if (star != std::string_view::npos) {
            place = star + 1;
            position = ++starPosition;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', place) == std::string_view::npos;
}

class Patterns {
public:
    explicit Patterns(const std::string& list) {
        for (std::size_t start = 0; start < list.size();) {
            const std::size_t end = std::min(list.find(',', start), list.size());
            if (std::string pattern = lowerCase(cfTrimAsString(list.substr(start, end - start))); !pattern.empty()) {
                m_patterns.push_back(std::move(pattern));
            }
            start = end + 1;
        }
    }

    [[nodiscard]] bool isEmpty() const noexcept { return m_patterns.empty(); }

    [[nodiscard]] bool fitsName(std::string_view name) const {
        return std::any_of(m_patterns.begin(), m_patterns.end(),
                           [&](const std::string& pattern) { return fits(lowerCase(name), pattern); });
    }

    [[nodiscard]] bool fitsRelation(std::string_view schema, std::string_view name) const {
        const std::string bare = lowerCase(name);
        const std::string qualified = lowerCase(schema) + "." + bare;
        return std::any_of(m_patterns.begin(), m_patterns.end(), [&](const std::string& pattern) {
            return fits(pattern.find('.') == std::string::npos ? bare : qualified, pattern);
        });
    }

private:
    std::vector<std::string> m_patterns;
};

/// Removes the relations of a structure for which the condition does not hold.
template <typename Condition>
void keepRelations(DatabaseStructure& structure, const Condition& isKept) {
    for (CatalogDescription& catalog : structure.catalogs) {
        for (SchemaDescription& schema : catalog.schemas) {
            for (auto* relations : {&schema.tables, &schema.views, &schema.materializedViews}) {
                std::erase_if(*relations,
                              [&](const RelationDescription& relation) { return !isKept(schema, relation); });
            }
        }
    }
}

std::size_t measureNames(const std::vector<std::string>& names) {
    constexpr std::size_t kQuotes = 2;
    std::size_t bytes = 0;
    for (const std::string& name : names) {
        bytes += name.size() + kQuotes;
    }
    return bytes;
}

/// About the bytes of the statement that a relation becomes.
std::size_t measureStatement(const SchemaDescription& schema, const RelationDescription& relation) {
    constexpr std::size_t kFrame = 18;
    constexpr std::size_t kColumnFrame = 5;
    constexpr std::size_t kKeyFrame = 30;
    std::size_t bytes = kFrame + relation.name.size() + (schema.isDefault ? 0 : schema.name.size() + 3);
    for (const ColumnDescription& column : relation.columns) {
        bytes += column.name.size() + column.type.size() + kColumnFrame;
    }
    bytes += relation.primaryKey.empty() ? 0 : measureNames(relation.primaryKey) + kKeyFrame;
    for (const ForeignKeyDescription& key : relation.foreignKeys) {
        bytes += measureNames(key.columns) + measureNames(key.parentColumns) + key.parentTable.size() + kKeyFrame;
    }
    return bytes;
}

/// The words of a question in lower case, each also without the "s" of a plural.
std::set<std::string> listWords(std::string_view question) {
    std::set<std::string> words;
    std::string word;
    for (const char character : lowerCase(question) + " ") {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') || byte == '_' || byte >= 0x80) {
            word += character;
        } else if (!word.empty()) {
            words.insert(word);
            if (word.size() > 1 && word.back() == 's') {
                words.insert(word.substr(0, word.size() - 1));
            }
            word.clear();
        }
    }
    return words;
}

bool isNamed(const std::string& table, const std::set<std::string>& words) {
    const std::string name = lowerCase(table);
    const bool isPlural = name.size() > 1 && name.back() == 's';
    return words.count(name) != 0 || (isPlural && words.count(name.substr(0, name.size() - 1)) != 0);
}

/// A relation and how much it matters: the larger the rank, the later it is left out.
struct Candidate {
    const SchemaDescription* schema;
    const RelationDescription* relation;
    int rank = 0;
    bool isKept = true;
};

enum Rank { kOther = 0, kNeighbour = 1, kNamed = 2 };

std::vector<Candidate> rankRelations(const DatabaseStructure& structure, std::string_view question) {
    const std::set<std::string> words = listWords(question);
    std::vector<Candidate> candidates;
    std::set<std::string> named;
    std::set<std::string> parents;
    visitRelations(structure, [&](const SchemaDescription& schema, const RelationDescription& relation) {
        const bool isInQuestion = isNamed(relation.name, words);
        candidates.push_back({&schema, &relation, isInQuestion ? kNamed : kOther});
        if (isInQuestion) {
            named.insert(relation.name);
            for (const ForeignKeyDescription& key : relation.foreignKeys) {
                parents.insert(key.parentTable);
            }
        }
    });
    for (Candidate& candidate : candidates) {
        const std::vector<ForeignKeyDescription>& keys = candidate.relation->foreignKeys;
        const bool hasNamedParent = std::any_of(keys.begin(), keys.end(), [&](const ForeignKeyDescription& key) {
            return named.count(key.parentTable) != 0;
        });
        if (candidate.rank == kOther && (hasNamedParent || parents.count(candidate.relation->name) != 0)) {
            candidate.rank = kNeighbour;
        }
    }
    return candidates;
}

std::string describeColumn(const ColumnDescription& column) {
    std::string text;
    text += column.isNullable ? "" : " NOT NULL";
    text += column.defaultText.empty() ? "" : " DEFAULT " + makeNameVisible(column.defaultText);
    text += column.comment.empty() ? "" : " -- " + makeNameVisible(column.comment);
    return text.empty() ? std::string() : "  " + makeNameVisible(column.name) + text + "\n";
}

std::string describeRelation(const RelationDescription& relation) {
    std::string text;
    for (const ColumnDescription& column : relation.columns) {
        text += describeColumn(column);
    }
    for (const std::string& index : relation.indexes) {
        text += "  index: " + makeNameVisible(index) + "\n";
    }
    for (const std::string& constraint : relation.constraints) {
        text += "  constraint: " + makeNameVisible(constraint) + "\n";
    }
    if (text.empty() && relation.comment.empty()) {
        return {};
    }
    return makeNameVisible(relation.name) +
           (relation.comment.empty() ? ":" : ": -- " + makeNameVisible(relation.comment)) + "\n" + text;
}

}  // namespace

DatabaseStructure selectByPatterns(DatabaseStructure structure, const StructureChoice& choice) {
    const Patterns tables(choice.tables);
    const Patterns exclude(choice.exclude);
    const Patterns schemas(choice.schemas);
    keepRelations(structure, [&](const SchemaDescription& schema, const RelationDescription& relation) {
        return (schemas.isEmpty() || schemas.fitsName(schema.name)) &&
               (tables.isEmpty() || tables.fitsRelation(schema.name, relation.name)) &&
               !exclude.fitsRelation(schema.name, relation.name);
    });
    return structure;
}

FittedStructure fitToBudget(const DatabaseStructure& structure, std::size_t budget, std::string_view question) {
    std::vector<Candidate> candidates = rankRelations(structure, question);
    std::size_t bytes = 0;
    for (const Candidate& candidate : candidates) {
        bytes += measureStatement(*candidate.schema, *candidate.relation);
    }
    for (const int rank : {kOther, kNeighbour, kNamed}) {
        for (auto candidate = candidates.rbegin(); candidate != candidates.rend(); ++candidate) {
            if (estimateTokens(bytes) > budget && candidate->rank == rank) {
                bytes -= measureStatement(*candidate->schema, *candidate->relation);
                candidate->isKept = false;
            }
        }
    }
    FittedStructure fitted;
    for (const Candidate& candidate : candidates) {
        if (!candidate.isKept) {
            fitted.leftOut.push_back(candidate.relation->name);
        }
    }
    // The copy has the same relations in the same order: what is kept is told by counting.
    fitted.structure = structure;
    std::size_t next = 0;
    keepRelations(fitted.structure,
                  [&](const SchemaDescription&, const RelationDescription&) { return candidates[next++].isKept; });
    return fitted;
}

std::string writeDetail(const DatabaseStructure& structure) {
    std::string text;
    visitRelations(structure, [&](const SchemaDescription&, const RelationDescription& relation) {
        text += describeRelation(relation);
    });
    return text;
}

}  // namespace host
