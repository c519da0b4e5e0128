#ifndef HOST_SCHEMA_READER_H
#define HOST_SCHEMA_READER_H

#include <string>
#include <vector>

#include "cf/variant.h"
#include "sqlite/sqlite_database.h"

namespace host {

struct ColumnDescription {
    std::string name;
    std::string type;  ///< as declared; "ANY" where the database declares none
};

struct ForeignKeyDescription {
    std::vector<std::string> columns;
    std::string parentTable;
    std::vector<std::string> parentColumns;
};

/// A table or a view.
struct RelationDescription {
    std::string name;
    std::vector<ColumnDescription> columns;
    std::vector<std::string> primaryKey;  ///< in key order
    std::vector<ForeignKeyDescription> foreignKeys;
};

struct SchemaDescription {
    std::string name;  ///< "main", or the name under which a database is attached
    std::vector<RelationDescription> tables;
    std::vector<RelationDescription> views;
};

struct DatabaseStructure {
    std::vector<SchemaDescription> schemas;
    std::vector<std::string> warnings;  ///< what had to be left out and why, one line each
};

/// Reads the structure of every database of a connection but the temporary one: tables (virtual ones too) and views in
/// the order in which they were made, without the engine's own tables and the shadow tables of virtual ones.
///
/// A foreign key that names no parent columns gets the parent's primary key. A relation that the engine cannot
/// describe (a view of a table that is gone, a virtual table of an unknown module) is left out with a warning.
/// Throws HostError (Database) when the file cannot be read.
[[nodiscard]] DatabaseStructure readDatabaseStructure(const SqliteDatabase& database);

/// The structure as a value of the "db_structure" property. A single schema has no name there, so that statements need
/// no qualifier.
[[nodiscard]] CMVariantList makeStructureVariant(const DatabaseStructure& structure);

/// The number of tables and views in all schemas.
[[nodiscard]] std::size_t countRelations(const DatabaseStructure& structure);

}  // namespace host

#endif
