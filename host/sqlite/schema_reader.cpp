#include "sqlite/schema_reader.h"

#include <map>
#include <optional>
#include <utility>

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// A statement about one relation: ?1 is its name, ?2 its schema. Both go in as values, so no name needs quoting.
class RelationQuery {
public:
    RelationQuery(const SqliteDatabase& database, const char* sql)
        : m_database(database), m_statement(database.prepare(sql)) {}

    void begin(const std::string& relation, const std::string& schema) const {
        sqlite3_reset(m_statement.get());
        sqlite3_bind_text64(m_statement.get(), 1, relation.data(), relation.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        sqlite3_bind_text64(m_statement.get(), 2, schema.data(), schema.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    }

    /// Moves to the next row. Nothing when the engine cannot describe the relation.
    [[nodiscard]] std::optional<bool> moveNext() const {
        const int code = sqlite3_step(m_statement.get());
        if (code == SQLITE_ROW || code == SQLITE_DONE) {
            return code == SQLITE_ROW;
        }
        if (isDatabaseFailure(code)) {
            throw HostError(ExitCode::Database, m_database.describeFailure());
        }
        return std::nullopt;
    }

    [[nodiscard]] std::string readText(int column) const { return readColumnText(m_statement.get(), column); }
    [[nodiscard]] int readInteger(int column) const { return sqlite3_column_int(m_statement.get(), column); }
    [[nodiscard]] bool isNull(int column) const {
        return sqlite3_column_type(m_statement.get(), column) == SQLITE_NULL;
    }
    /// Lets go of the last relation: no statement may stay open between two of them.
    void end() const { sqlite3_reset(m_statement.get()); }

private:
    const SqliteDatabase& m_database;
    SqliteStatementHandle m_statement;
};

class StructureReader {
public:
    explicit StructureReader(const SqliteDatabase& database)
        : m_database(database),
          // Hidden columns of kind 1 are arguments of virtual tables; 2 and 3 are generated columns.
          m_columnQuery(database,
                        "SELECT name, type, pk FROM pragma_table_xinfo(?1, ?2) WHERE hidden <> 1 ORDER BY cid"),
          m_foreignKeyQuery(database,
                            "SELECT id, \"table\", \"from\", \"to\" FROM pragma_foreign_key_list(?1, ?2) "
                            // The engine numbers foreign keys from the last one declared.
                            "ORDER BY id DESC, seq") {}

    [[nodiscard]] DatabaseStructure read() {
        for (const std::string& schema : readSchemaNames()) {
            m_structure.schemas.push_back(readSchema(schema));
        }
        return std::move(m_structure);
    }

private:
    [[nodiscard]] std::vector<std::string> readSchemaNames() const {
        std::vector<std::string> names;
        const SqliteStatementHandle statement =
            m_database.prepare("SELECT name FROM pragma_database_list WHERE name <> 'temp' ORDER BY seq");
        while (m_database.step(statement)) {
            names.push_back(readColumnText(statement.get(), 0));
        }
        return names;
    }

    [[nodiscard]] SchemaDescription readSchema(const std::string& schema) {
        SchemaDescription description;
        description.name = schema;
        for (const auto& [name, isView] : readRelationNames(schema)) {
            if (std::optional<RelationDescription> relation = readRelation(name, schema)) {
                (isView ? description.views : description.tables).push_back(std::move(*relation));
            }
        }
        return description;
    }

    [[nodiscard]] std::vector<std::pair<std::string, bool>> readRelationNames(const std::string& schema) const {
        const SqliteStatementHandle statement =
            m_database.prepare("SELECT name, type = 'view' FROM " + quoteIdentifier(schema) +
                               ".sqlite_schema WHERE type IN ('table', 'view') AND name NOT LIKE 'sqlite\\_%' ESCAPE "
                               "'\\' AND name NOT IN (SELECT name FROM pragma_table_list WHERE schema = ?1 AND type = "
                               "'shadow') ORDER BY rowid");
        sqlite3_bind_text64(statement.get(), 1, schema.data(), schema.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        std::vector<std::pair<std::string, bool>> names;
        while (m_database.step(statement)) {
            names.emplace_back(readColumnText(statement.get(), 0), sqlite3_column_int(statement.get(), 1) != 0);
        }
        return names;
    }

    [[nodiscard]] std::optional<RelationDescription> readRelation(const std::string& name, const std::string& schema) {
        RelationDescription relation;
        relation.name = name;
        if (!readColumns(relation, schema)) {
            m_structure.warnings.push_back("'" + makeOneLine(name) +
                                           "' is left out: " + makeOneLine(sqlite3_errmsg(m_database.obtainHandle())));
            m_columnQuery.end();
            return std::nullopt;
        }
        readForeignKeys(relation, schema);
        return relation;
    }

    [[nodiscard]] bool readColumns(RelationDescription& relation, const std::string& schema) const {
        std::map<int, std::string> primaryKey;
        m_columnQuery.begin(relation.name, schema);
        std::optional<bool> hasRow;
        while ((hasRow = m_columnQuery.moveNext()).value_or(false)) {
            ColumnDescription column{m_columnQuery.readText(0), m_columnQuery.readText(1)};
            if (column.type.empty()) {
                column.type = "ANY";
            }
            if (const int place = m_columnQuery.readInteger(2); place > 0) {
                primaryKey.emplace(place, column.name);
            }
            relation.columns.push_back(std::move(column));
        }
        if (!hasRow.has_value()) {
            return false;
        }
        m_columnQuery.end();
        for (auto& [place, name] : primaryKey) {
            relation.primaryKey.push_back(std::move(name));
        }
        return true;
    }

    void readForeignKeys(RelationDescription& relation, const std::string& schema) const {
        m_foreignKeyQuery.begin(relation.name, schema);
        int lastId = -1;
        bool isShorthand = false;
        while (m_foreignKeyQuery.moveNext().value_or(false)) {
            if (m_foreignKeyQuery.readInteger(0) != lastId) {
                lastId = m_foreignKeyQuery.readInteger(0);
                relation.foreignKeys.push_back({{}, m_foreignKeyQuery.readText(1), {}});
                isShorthand = m_foreignKeyQuery.isNull(3);
                if (isShorthand) {
                    relation.foreignKeys.back().parentColumns =
                        readPrimaryKey(relation.foreignKeys.back().parentTable, schema);
                }
            }
            relation.foreignKeys.back().columns.push_back(m_foreignKeyQuery.readText(2));
            if (!isShorthand) {
                relation.foreignKeys.back().parentColumns.push_back(m_foreignKeyQuery.readText(3));
            }
        }
        m_foreignKeyQuery.end();
        // A shorthand key whose parent is gone, or has another number of key columns, leads nowhere.
        std::erase_if(relation.foreignKeys,
                      [](const ForeignKeyDescription& key) { return key.columns.size() != key.parentColumns.size(); });
    }

    [[nodiscard]] std::vector<std::string> readPrimaryKey(const std::string& table, const std::string& schema) const {
        RelationDescription parent;
        parent.name = table;
        if (!readColumns(parent, schema)) {
            m_columnQuery.end();
        }
        return parent.primaryKey;
    }

    const SqliteDatabase& m_database;
    RelationQuery m_columnQuery;
    RelationQuery m_foreignKeyQuery;
    DatabaseStructure m_structure;
};

CMVariantList makeNameList(const std::vector<std::string>& names) {
    return {names.begin(), names.end()};
}

CMVariantMap makeForeignKeyVariant(const ForeignKeyDescription& key) {
    return {{"fields", makeNameList(key.columns)},
            {"ref_table", key.parentTable},
            {"ref_fields", makeNameList(key.parentColumns)}};
}

CMVariantMap makeRelationVariant(const RelationDescription& relation, const std::string& qualifier) {
    CMVariantList fields;
    for (const ColumnDescription& column : relation.columns) {
        fields.emplace_back(CMVariantMap{{"name", column.name}, {"type", column.type}});
    }
    CMVariantMap variant{{"name", relation.name}, {"fields", std::move(fields)}};
    if (!relation.primaryKey.empty()) {
        variant.emplace("pkeys", makeNameList(relation.primaryKey));
    }
    CMVariantList foreignKeys;
    for (const ForeignKeyDescription& key : relation.foreignKeys) {
        CMVariantMap keyVariant = makeForeignKeyVariant(key);
        if (!qualifier.empty()) {
            keyVariant.emplace("ref_schema", qualifier);
        }
        foreignKeys.emplace_back(std::move(keyVariant));
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

}  // namespace

DatabaseStructure readDatabaseStructure(const SqliteDatabase& database) {
    return StructureReader(database).read();
}

CMVariantList makeStructureVariant(const DatabaseStructure& structure) {
    CMVariantList schemas;
    for (const SchemaDescription& schema : structure.schemas) {
        const std::string qualifier = structure.schemas.size() > 1 ? schema.name : std::string();
        CMVariantMap variant{{"tables", makeRelationList(schema.tables, qualifier)},
                             {"views", makeRelationList(schema.views, qualifier)}};
        if (!qualifier.empty()) {
            variant.emplace("schema_name", qualifier);
        }
        schemas.emplace_back(std::move(variant));
    }
    return {CMVariantMap{{"schemas", std::move(schemas)}}};
}

std::size_t countRelations(const DatabaseStructure& structure) {
    std::size_t count = 0;
    for (const SchemaDescription& schema : structure.schemas) {
        count += schema.tables.size() + schema.views.size();
    }
    return count;
}

}  // namespace host
