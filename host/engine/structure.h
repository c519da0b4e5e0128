#ifndef HOST_ENGINE_STRUCTURE_H
#define HOST_ENGINE_STRUCTURE_H

#include <cstddef>
#include <string>
#include <vector>

#include "cf/variant.h"

namespace host {

struct ColumnDescription {
    std::string name{};
    std::string type{};  ///< as the engine spells it; "ANY" where it declares none
    // The detail, read only on request:
    bool isNullable = true;
    std::string defaultText{};  ///< the expression as SQL; empty: none
    std::string comment{};
};

struct ForeignKeyDescription {
    std::vector<std::string> columns{};
    std::string parentSchema{};  ///< empty: the schema of the table itself
    std::string parentTable{};
    std::vector<std::string> parentColumns{};
};

/// A table, a view or a materialized view.
struct RelationDescription {
    std::string name{};
    std::vector<ColumnDescription> columns{};
    std::vector<std::string> primaryKey{};  ///< in key order
    std::vector<ForeignKeyDescription> foreignKeys{};
    // The detail, read only on request:
    std::string comment{};
    std::vector<std::string> indexes{};      ///< each as the engine writes it ("UNIQUE (a, b)", "CREATE INDEX ...")
    std::vector<std::string> constraints{};  ///< each as SQL ("CHECK (a > 0)")
};

struct SchemaDescription {
    std::string name{};
    bool isDefault = false;  ///< statements find its relations without a qualifier
    std::vector<RelationDescription> tables{};
    std::vector<RelationDescription> views{};
    std::vector<RelationDescription> materializedViews{};
};

struct CatalogDescription {
    std::string name{};  ///< empty: the one that the connection is in
    std::vector<SchemaDescription> schemas{};
};

struct DatabaseStructure {
    std::vector<CatalogDescription> catalogs{};
    std::vector<std::string> warnings{};  ///< what is left out or looks wrong, and why; one line each
};

/// How much of the structure is read.
enum class StructureDetail {
    Keys,  ///< what the "db_structure" property has a place for
    Full,  ///< comments, defaults, indexes and constraints as well
};

/// The structure as a value of the "db_structure" property.
///
/// Where the default schema is the only one with relations, it has no name there: statements then need no qualifier.
/// Names and types are written as makeNameVisible() writes them, so that each statement stays on one line.
[[nodiscard]] CMVariantList makeStructureVariant(const DatabaseStructure& structure);

/// The number of tables, views and materialized views.
[[nodiscard]] std::size_t countRelations(const DatabaseStructure& structure);

/// Whether statements need the schema's name before a relation's: not every relation is in the default schema.
[[nodiscard]] bool needsQualifiers(const CatalogDescription& catalog);

/// Calls visit(schema, relation) for each relation: the tables of a schema, its views, its materialized views.
template <typename Visitor>
void visitRelations(const CatalogDescription& catalog, const Visitor& visit) {
    for (const SchemaDescription& schema : catalog.schemas) {
        for (const auto* relations : {&schema.tables, &schema.views, &schema.materializedViews}) {
            for (const RelationDescription& relation : *relations) {
                visit(schema, relation);
            }
        }
    }
}

template <typename Visitor>
void visitRelations(const DatabaseStructure& structure, const Visitor& visit) {
    for (const CatalogDescription& catalog : structure.catalogs) {
        visitRelations(catalog, visit);
    }
}

/// One warning for the names and types that are not told to the model as they are. Empty when there are none.
[[nodiscard]] std::string warnOfHiddenCharacters(const DatabaseStructure& structure);

}  // namespace host

#endif
