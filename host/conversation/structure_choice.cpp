#include "conversation/structure_choice.h"

#include <algorithm>
#include <set>
#include <utility>

#include "conversation/instructions.h"
#include "engine/hidden_characters.h"
#include "engine/structure_filter.h"

namespace host {
namespace {

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return lower;
}

std::size_t measureNames(const std::vector<std::string>& names) {
    constexpr std::size_t kQuotes = 2;
    std::size_t bytes = 0;
    for (const std::string& name : names) {
        bytes += name.size() + kQuotes;
    }
    return bytes;
}

/// The approximate size in bytes of a relation's statement.
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

/// A relation and its rank: the higher the rank, the later it is left out.
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

/// @param qualifier  precedes the relation's name; empty: none
std::string describeRelation(const std::string& qualifier, const RelationDescription& relation) {
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
    return (qualifier.empty() ? "" : makeNameVisible(qualifier) + ".") + makeNameVisible(relation.name) +
           (relation.comment.empty() ? ":" : ": -- " + makeNameVisible(relation.comment)) + "\n" + text;
}

}  // namespace

FittedStructure fitToBudget(const DatabaseStructure& structure, std::size_t budget, std::string_view question) {
    std::vector<Candidate> candidates = rankRelations(structure, question);
    std::size_t bytes = 0;
    for (const Candidate& candidate : candidates) {
        bytes += measureStatement(*candidate.schema, *candidate.relation);
    }
    for (const int rank : {kOther, kNeighbour, kNamed}) {
        std::for_each(candidates.rbegin(), candidates.rend(), [&](Candidate& candidate) {
            if (estimateTokens(bytes) > budget && candidate.rank == rank) {
                bytes -= measureStatement(*candidate.schema, *candidate.relation);
                candidate.isKept = false;
            }
        });
    }
    FittedStructure fitted{.structure = structure, .leftOut = {}};
    std::set<std::pair<std::string, std::string>> leftOut;
    for (const Candidate& candidate : candidates) {
        if (!candidate.isKept) {
            fitted.leftOut.push_back(candidate.relation->name);
            leftOut.emplace(candidate.schema->name, candidate.relation->name);
        }
    }
    if (!leftOut.empty()) {
        keepRelations(fitted.structure, [&](const std::string& schema, const std::string& relation) {
            return !leftOut.contains({schema, relation});
        });
    }
    return fitted;
}

std::string writeDetail(const DatabaseStructure& structure) {
    std::string text;
    for (const CatalogDescription& catalog : structure.catalogs) {
        const bool isQualified = needsQualifiers(catalog);
        visitRelations(catalog, [&](const SchemaDescription& schema, const RelationDescription& relation) {
            text += describeRelation(isQualified ? schema.name : std::string(), relation);
        });
    }
    return text;
}

}  // namespace host
