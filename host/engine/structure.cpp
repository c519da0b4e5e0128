#include "engine/structure.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "engine/hidden_characters.h"

namespace host {
namespace {

CMVariantList makeNameList(const std::vector<std::string>& names) {
    CMVariantList list;
    for (const std::string& name : names) {
        list.emplace_back(makeNameVisible(name));
    }
    return list;
}

/// @param qualifier  the schema's name in statements; empty: none
CMVariantMap makeForeignKeyVariant(const ForeignKeyDescription& key, const std::string& qualifier) {
    CMVariantMap variant{{"fields", makeNameList(key.columns)},
                         {"ref_table", makeNameVisible(key.parentTable)},
                         {"ref_fields", makeNameList(key.parentColumns)}};
    const std::string& parentSchema = key.parentSchema.empty() ? qualifier : key.parentSchema;
    if (!parentSchema.empty()) {
        variant.emplace("ref_schema", makeNameVisible(parentSchema));
    }
    return variant;
}

CMVariantMap makeRelationVariant(const RelationDescription& relation, const std::string& qualifier) {
    CMVariantList fields;
    for (const ColumnDescription& column : relation.columns) {
        fields.emplace_back(
            CMVariantMap{{"name", makeNameVisible(column.name)}, {"type", makeNameVisible(column.type)}});
    }
    CMVariantMap variant{{"name", makeNameVisible(relation.name)}, {"fields", std::move(fields)}};
    if (!relation.primaryKey.empty()) {
        variant.emplace("pkeys", makeNameList(relation.primaryKey));
    }
    CMVariantList foreignKeys;
    for (const ForeignKeyDescription& key : relation.foreignKeys) {
        foreignKeys.emplace_back(makeForeignKeyVariant(key, qualifier));
    }
    if (!foreignKeys.empty()) {
        variant.emplace("fkeys", std::move(foreignKeys));
    }
    return variant;
}

CMVariantList makeRelationList(const std::vector<RelationDescription>& relations, const std::string& qualifier) {
    CMVariantList list;
    for (const RelationDescription& relation : relations) {
        list.emplace_back(makeRelationVariant(relation, qualifier));
    }
    return list;
}

bool hasRelations(const SchemaDescription& schema) {
    return !schema.tables.empty() || !schema.views.empty() || !schema.materializedViews.empty();
}

CMVariantMap makeSchemaVariant(const SchemaDescription& schema, const std::string& qualifier) {
    CMVariantMap variant{{"tables", makeRelationList(schema.tables, qualifier)},
                         {"views", makeRelationList(schema.views, qualifier)}};
    if (!schema.materializedViews.empty()) {
        variant.emplace("mviews", makeRelationList(schema.materializedViews, qualifier));
    }
    if (!qualifier.empty()) {
        variant.emplace("schema_name", makeNameVisible(qualifier));
    }
    return variant;
}

CMVariantMap makeCatalogVariant(const CatalogDescription& catalog) {
    const bool isQualified = needsQualifiers(catalog);
    CMVariantList schemas;
    for (const SchemaDescription& schema : catalog.schemas) {
        schemas.emplace_back(makeSchemaVariant(schema, isQualified ? schema.name : std::string()));
    }
    CMVariantMap variant{{"schemas", std::move(schemas)}};
    if (!catalog.name.empty()) {
        variant.emplace("catalog_name", makeNameVisible(catalog.name));
    }
    return variant;
}

/// Counts the names and types of a structure that are changed for the model.
class HiddenCharacterCount {
public:
    void add(const std::string& name) {
        const std::string visible = makeNameVisible(name);
        if (visible == name) {
            return;
        }
        ++m_count;
        if (m_first.empty()) {
            m_first = visible;
        }
    }

    [[nodiscard]] std::string describe() const {
        if (m_count == 0) {
            return {};
        }
        const std::string what =
            m_count == 1 ? "a name or type has" : std::to_string(m_count) + " names and types have";
        return what + " control or invisible characters, which could pass for instructions; the model is told '" +
               m_first + "'" + (m_count == 1 ? "" : " and the like");
    }

private:
    std::size_t m_count = 0;
    std::string m_first;
};

}  // namespace

CMVariantList makeStructureVariant(const DatabaseStructure& structure) {
    CMVariantList catalogs;
    for (const CatalogDescription& catalog : structure.catalogs) {
        catalogs.emplace_back(makeCatalogVariant(catalog));
    }
    return catalogs;
}

bool needsQualifiers(const CatalogDescription& catalog) {
    return std::any_of(catalog.schemas.begin(), catalog.schemas.end(),
                       [](const SchemaDescription& schema) { return !schema.isDefault && hasRelations(schema); });
}

std::size_t countRelations(const DatabaseStructure& structure) {
    std::size_t count = 0;
    visitRelations(structure, [&](const SchemaDescription&, const RelationDescription&) { ++count; });
    return count;
}

std::string warnOfHiddenCharacters(const DatabaseStructure& structure) {
    HiddenCharacterCount count;
    for (const CatalogDescription& catalog : structure.catalogs) {
        for (const SchemaDescription& schema : catalog.schemas) {
            count.add(schema.name);
        }
    }
    visitRelations(structure, [&](const SchemaDescription&, const RelationDescription& relation) {
        count.add(relation.name);
        for (const ColumnDescription& column : relation.columns) {
            count.add(column.name);
            count.add(column.type);
        }
    });
    return count.describe();
}

}  // namespace host
