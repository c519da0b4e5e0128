#include "sqlite/schema_reader.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// The most that the engine may allocate for reading the structure, besides the schema itself. Otherwise views that
/// name other views twice could take all memory, and hours. Bytes.
constexpr sqlite3_int64 kMaxStructureBytes = sqlite3_int64{32} * 1024 * 1024;

/// A statement about one relation: ?1 is its name, ?2 its schema. Both are bound values, so no name needs quoting.
class RelationQuery {
public:
    RelationQuery(const SqliteDatabase& database, const char* sql)
        : m_database(database), m_statement(database.prepare(sql)) {}

    void begin(const std::string& relation, const std::string& schema) const {
        sqlite3_reset(m_statement.get());
        sqlite3_bind_text64(m_statement.get(), 1, relation.data(), relation.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        sqlite3_bind_text64(m_statement.get(), 2, schema.data(), schema.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    }

    /// Moves to the next row. Nothing if the engine cannot describe the relation.
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
    /// Resets the statement: no statement may stay open between two relations.
    void end() const { sqlite3_reset(m_statement.get()); }

private:
    const SqliteDatabase& m_database;
    SqliteStatementHandle m_statement;
};

/// A name as SQLite compares it: ASCII letters without case.
std::string foldName(std::string_view name) {
    std::string folded(name);
    for (char& character : folded) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return folded;
}

std::string joinNames(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

/// The foreign keys of a schema whose parent is missing, reported in one line.
class LostForeignKeys {
public:
    void add(const std::string& table, const ForeignKeyDescription& key) {
        constexpr std::size_t kNamed = 5;
        if (++m_count <= kNamed) {
            m_text += (m_text.empty() ? "" : ", ") + table + " (" + joinNames(key.columns) + ") to " + key.parentTable;
        } else if (m_count == kNamed + 1) {
            m_text += ", and more";
        }
    }

    void report(std::vector<std::string>& warnings) const {
        if (m_count != 0) {
            warnings.push_back((m_count == 1 ? "a foreign key leads" : std::to_string(m_count) + " foreign keys lead") +
                               " to a table, key or column that does not exist: " + makeOneLine(m_text));
        }
    }

private:
    std::size_t m_count = 0;
    std::string m_text;
};

class StructureReader {
public:
    StructureReader(const SqliteDatabase& database, StructureDetail detail)
        : m_database(database),
          m_detail(detail),
          // Hidden columns of kind 1 are arguments of virtual tables; 2 and 3 are generated columns.
          m_columnQuery(database,
                        "SELECT name, type, pk, \"notnull\", dflt_value FROM pragma_table_xinfo(?1, ?2) "
                        "WHERE hidden <> 1 ORDER BY cid"),
          m_foreignKeyQuery(database,
                            "SELECT id, \"table\", \"from\", \"to\" FROM pragma_foreign_key_list(?1, ?2) "
                            // The engine numbers foreign keys from the last one declared.
                            "ORDER BY id DESC, seq"),
          m_indexQuery(database,
                       "SELECT i.\"unique\", i.partial, (SELECT group_concat(coalesce(name, 'expression'), ', ') FROM "
                       "pragma_index_info(i.name, ?2)) FROM pragma_index_list(?1, ?2) AS i WHERE i.origin <> 'pk' "
                       "ORDER BY i.seq DESC") {}

    [[nodiscard]] DatabaseStructure read() {
        CatalogDescription catalog;
        for (const std::string& schema : readSchemaNames()) {
            catalog.schemas.push_back(readSchema(schema));
        }
        m_structure.catalogs.push_back(std::move(catalog));
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
        description.isDefault = schema == "main";
        std::vector<std::string> viewNames;
        for (auto& [name, isView] : readRelationNames(schema)) {
            if (isView) {
                viewNames.push_back(std::move(name));
            } else if (std::optional<RelationDescription> table = readRelation(name, schema)) {
                readForeignKeys(*table, schema);
                readIndexes(*table, schema);
                description.tables.push_back(std::move(*table));
            }
        }
        reportLostForeignKeys(description.tables);
        readViews(description, viewNames);
        return description;
    }

    /// Views can take long: a view that names two others twice is expanded into all of them. When the time is over, the
    /// rest is left out.
    void readViews(SchemaDescription& schema, const std::vector<std::string>& names) {
        const auto deadline = std::chrono::steady_clock::now() + kMaxViewTime;
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (std::chrono::steady_clock::now() >= deadline) {
                m_structure.warnings.push_back(std::to_string(names.size() - i) + " views are left out, '" +
                                               makeOneLine(names[i]) + "' the first: reading the views takes longer " +
                                               "than " + std::to_string(kMaxViewTime.count()) + " s");
                return;
            }
            if (std::optional<RelationDescription> view = readRelation(names[i], schema.name)) {
                schema.views.push_back(std::move(*view));
            }
        }
    }

    [[nodiscard]] std::vector<std::pair<std::string, bool>> readRelationNames(const std::string& schema) {
        const SqliteStatementHandle statement =
            m_database.prepare("SELECT name, type = 'view' FROM " + quoteIdentifier(schema) +
                               ".sqlite_schema WHERE type IN ('table', 'view') AND name NOT LIKE 'sqlite\\_%' ESCAPE "
                               "'\\' ORDER BY rowid");
        const std::set<std::string> shadows = readShadowNames(schema);
        std::vector<std::pair<std::string, bool>> names;
        while (m_database.step(statement)) {
            std::string name = readColumnText(statement.get(), 0);
            if (!shadows.contains(name)) {
                names.emplace_back(std::move(name), sqlite3_column_int(statement.get(), 1) != 0);
            }
        }
        return names;
    }

    /// The tables behind virtual tables. The list that names them expands every view, so it is read only if there are
    /// virtual tables.
    [[nodiscard]] std::set<std::string> readShadowNames(const std::string& schema) {
        std::set<std::string> names;
        if (m_database.listVirtualTables(schema).empty()) {
            return names;
        }
        const SqliteStatementHandle statement =
            m_database.prepare("SELECT name FROM pragma_table_list WHERE schema = ?1 AND type = 'shadow'");
        sqlite3_bind_text64(statement.get(), 1, schema.data(), schema.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        int code = SQLITE_ROW;
        while ((code = sqlite3_step(statement.get())) == SQLITE_ROW) {
            names.insert(readColumnText(statement.get(), 0));
        }
        if (code != SQLITE_DONE) {
            m_structure.warnings.push_back("the tables behind virtual tables cannot be told from others: " +
                                           makeOneLine(sqlite3_errmsg(m_database.obtainHandle())));
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
        return relation;
    }

    [[nodiscard]] bool readColumns(RelationDescription& relation, const std::string& schema) const {
        std::map<int, std::string> primaryKey;
        m_columnQuery.begin(relation.name, schema);
        std::optional<bool> hasRow;
        while ((hasRow = m_columnQuery.moveNext()).value_or(false)) {
            ColumnDescription column = readColumn();
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

    [[nodiscard]] ColumnDescription readColumn() const {
        ColumnDescription column;
        column.name = m_columnQuery.readText(0);
        column.type = m_columnQuery.readText(1);
        if (column.type.empty()) {
            column.type = "ANY";
        }
        if (m_detail == StructureDetail::Full) {
            column.isNullable = m_columnQuery.readInteger(3) == 0;
            column.defaultText = m_columnQuery.readText(4);
        }
        return column;
    }

    void readForeignKeys(RelationDescription& relation, const std::string& schema) {
        m_foreignKeyQuery.begin(relation.name, schema);
        int lastId = -1;
        bool isShorthand = false;
        while (m_foreignKeyQuery.moveNext().value_or(false)) {
            if (m_foreignKeyQuery.readInteger(0) != lastId) {
                lastId = m_foreignKeyQuery.readInteger(0);
                ForeignKeyDescription& key = relation.foreignKeys.emplace_back();
                key.parentTable = m_foreignKeyQuery.readText(1);
                isShorthand = m_foreignKeyQuery.isNull(3);
                if (isShorthand) {
                    key.parentColumns = readPrimaryKey(key.parentTable, schema);
                }
            }
            relation.foreignKeys.back().columns.push_back(m_foreignKeyQuery.readText(2));
            if (!isShorthand) {
                relation.foreignKeys.back().parentColumns.push_back(m_foreignKeyQuery.readText(3));
            }
        }
        m_foreignKeyQuery.end();
    }

    [[nodiscard]] std::vector<std::string> readPrimaryKey(const std::string& table, const std::string& schema) const {
        RelationDescription parent;
        parent.name = table;
        if (!readColumns(parent, schema)) {
            m_columnQuery.end();
        }
        return parent.primaryKey;
    }

    /// Reports the keys whose parent is missing, and drops those of them without parent columns.
    void reportLostForeignKeys(std::vector<RelationDescription>& tables) {
        std::map<std::string, std::set<std::string>> columns;
        for (const RelationDescription& table : tables) {
            for (const ColumnDescription& column : table.columns) {
                columns[foldName(table.name)].insert(foldName(column.name));
            }
        }
        LostForeignKeys lost;
        for (RelationDescription& table : tables) {
            for (const ForeignKeyDescription& key : table.foreignKeys) {
                if (!hasParent(key, columns)) {
                    lost.add(table.name, key);
                }
            }
            std::erase_if(table.foreignKeys, [](const ForeignKeyDescription& key) {
                return key.columns.size() != key.parentColumns.size();
            });
        }
        lost.report(m_structure.warnings);
    }

    [[nodiscard]] static bool hasParent(const ForeignKeyDescription& key,
                                        const std::map<std::string, std::set<std::string>>& columns) {
        const auto parent = columns.find(foldName(key.parentTable));
        return parent != columns.end() && key.columns.size() == key.parentColumns.size() &&
               std::all_of(key.parentColumns.begin(), key.parentColumns.end(), [&](const std::string& column) {
                   return parent->second.contains(foldName(column)) || foldName(column) == "rowid";
               });
    }

    void readIndexes(RelationDescription& relation, const std::string& schema) const {
        if (m_detail != StructureDetail::Full) {
            return;
        }
        m_indexQuery.begin(relation.name, schema);
        while (m_indexQuery.moveNext().value_or(false)) {
            relation.indexes.push_back((m_indexQuery.readInteger(0) != 0 ? "UNIQUE (" : "INDEX (") +
                                       m_indexQuery.readText(2) + ")" +
                                       (m_indexQuery.readInteger(1) != 0 ? " of some rows" : ""));
        }
        m_indexQuery.end();
    }

    static constexpr std::chrono::seconds kMaxViewTime{10};

    const SqliteDatabase& m_database;
    StructureDetail m_detail;
    RelationQuery m_columnQuery;
    RelationQuery m_foreignKeyQuery;
    RelationQuery m_indexQuery;
    DatabaseStructure m_structure;
};

}  // namespace

DatabaseStructure readSqliteStructure(const SqliteDatabase& database, StructureDetail detail) {
    sqlite3_hard_heap_limit64(sqlite3_memory_used() + kMaxStructureBytes);
    return StructureReader(database, detail).read();
}

}  // namespace host
