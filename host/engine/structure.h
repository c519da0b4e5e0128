#ifndef HOST_ENGINE_STRUCTURE_H
#define HOST_ENGINE_STRUCTURE_H

#include <cstddef>
#include <string>
#include <vector>

#include "cf/variant.h"

namespace host {

struct ColumnDescription {
    std::string name{};
    std::string type{};  ///< as the engine spells it; "ANY" if it declares none
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
    bool isDefault = false;  ///< statements find its relations without qualifier
    std::vector<RelationDescription> tables{};
    std::vector<RelationDescription> views{};
    std::vector<RelationDescription> materializedViews{};
};

struct CatalogDescription {
    std::string name{};  ///< empty: the connection's own
    std::vector<SchemaDescription> schemas{};
};

struct DatabaseStructure {
    std::vector<CatalogDescription> catalogs{};
    std::vector<std::string> warnings{};  ///< one line each: what is left out or looks wrong, and why
};

/// How much of the structure is read.
enum class StructureDetail {
    Keys,  ///< the content of the "db_structure" property
    Full,  ///< comments, defaults, indexes and constraints as well
};

/// The structure as a value of the "db_structure" property.
///
/// If only the default schema has relations, its name is left out: then statements need no qualifier. Names and types
/// are written by makeNameVisible(), so each statement stays on one line.
[[nodiscard]] CMVariantList makeStructureVariant(const DatabaseStructure& structure);

/// The number of tables, views and materialized views.
[[nodiscard]] std::size_t countRelations(const DatabaseStructure& structure);

/// Whether statements need the schema's name before a relation's: some relation is not in the default schema.
[[nodiscard]] bool needsQualifiers(const CatalogDescription& catalog);

/// Calls visit(schema, relation) for each relation; in a schema first the tables, then the views, then the materialized
/// views.
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

/// One warning about the names and types that are changed for the model. Empty if there are none.
[[nodiscard]] std::string warnOfHiddenCharacters(const DatabaseStructure& structure);

}  // namespace host

#endif
