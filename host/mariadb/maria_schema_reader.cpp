#include "mariadb/maria_schema_reader.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "terminal/text_safety.h"

namespace host {
namespace {

/// The condition on a column that names the schema.
std::string restrictSchema(const MariaConnection& connection, const std::string& column) {
    return connection.obtainDatabase().empty()
               ? column + " NOT IN ('information_schema', 'mysql', 'performance_schema', 'sys')"
               : column + " = " + connection.quote(connection.obtainDatabase());
}

class MariaStructureReader {
public:
    MariaStructureReader(const MariaConnection& connection, StructureDetail detail)
        : m_connection(connection), m_isFull(detail == StructureDetail::Full) {}

    [[nodiscard]] DatabaseStructure read() {
        m_connection.execute("START TRANSACTION READ ONLY");
        const std::vector<std::string> queries = listMariaStructureQueries(m_connection);
        readRelations(queries.at(0));
        readColumns(queries.at(1));
        readKeys(queries.at(2));
        if (m_isFull) {
            readIndexes();
            readConstraints();
        }
        m_connection.execute("ROLLBACK");
        return build();
    }

private:
    using Row = MariaConnection::Row;
    using Place = std::pair<std::string, std::string>;  ///< schema, relation

    struct Relation {
        bool isView = false;
        RelationDescription description;
    };

    /// The relation in a row's first two columns; null if it is none of the relations read.
    [[nodiscard]] RelationDescription* findRelation(const Row& row) {
        const auto found = m_relations.find({row[0], row[1]});
        return found == m_relations.end() ? nullptr : &found->second.description;
    }

    void readRelations(const std::string& query) {
        for (const Row& row : m_connection.query(query)) {
            Relation& relation = m_relations[{row[0], row[1]}];
            relation.isView = row[2] == "VIEW";
            relation.description.name = row[1];
            relation.description.comment = m_isFull && !relation.isView ? row[3] : "";
        }
    }

    void readColumns(const std::string& query) {
        for (const Row& row : m_connection.query(query)) {
            if (RelationDescription* relation = findRelation(row)) {
                ColumnDescription& column = relation->columns.emplace_back();
                column.name = row[2];
                column.type = row[3];
                if (m_isFull) {
                    column.isNullable = row[4] == "YES";
                    column.defaultText = row[5];
                    column.comment = row[6];
                }
            }
        }
    }

    void readKeys(const std::string& query) {
        std::string lastKey;
        for (const Row& row : m_connection.query(query)) {
            RelationDescription* relation = findRelation(row);
            if (relation == nullptr) {
                continue;
            }
            std::string key = row[0] + '\0' + row[1] + '\0' + row[2];
            if (row[5].empty()) {
                relation->primaryKey.push_back(row[3]);
            } else {
                addForeignKeyColumn(*relation, row, key != lastKey);
            }
            lastKey = std::move(key);
        }
    }

    static void addForeignKeyColumn(RelationDescription& relation, const Row& row, bool isNew) {
        if (isNew) {
            ForeignKeyDescription& key = relation.foreignKeys.emplace_back();
            key.parentSchema = row[4] == row[0] ? "" : row[4];
            key.parentTable = row[5];
        }
        relation.foreignKeys.back().columns.push_back(row[3]);
        relation.foreignKeys.back().parentColumns.push_back(row[6]);
    }

    void readIndexes() {
        for (const Row& row : m_connection.query(
                 "SELECT TABLE_SCHEMA, TABLE_NAME, MAX(NON_UNIQUE), GROUP_CONCAT(COLUMN_NAME ORDER BY SEQ_IN_INDEX "
                 "SEPARATOR ', ') FROM information_schema.STATISTICS WHERE INDEX_NAME <> 'PRIMARY' AND " +
                 restrictSchema(m_connection, "TABLE_SCHEMA") + " GROUP BY TABLE_SCHEMA, TABLE_NAME, INDEX_NAME")) {
            if (RelationDescription* relation = findRelation(row)) {
                relation->indexes.push_back((row[2] == "0" ? "UNIQUE (" : "INDEX (") + row[3] + ")");
            }
        }
    }

    void readConstraints() {
        if (!m_connection.isMariaDb()) {
            return;  // MySQL's list does not contain the table's name
        }
        for (const Row& row : m_connection.query(
                 "SELECT CONSTRAINT_SCHEMA, TABLE_NAME, CHECK_CLAUSE FROM information_schema.CHECK_CONSTRAINTS WHERE " +
                 restrictSchema(m_connection, "CONSTRAINT_SCHEMA"))) {
            if (RelationDescription* relation = findRelation(row)) {
                relation->constraints.push_back("CHECK (" + row[2] + ")");
            }
        }
    }

    [[nodiscard]] DatabaseStructure build() {
        DatabaseStructure structure;
        std::map<std::string, SchemaDescription> schemas;
        for (auto& [place, relation] : m_relations) {
            SchemaDescription& schema = schemas[place.first];
            schema.name = place.first;
            schema.isDefault = !m_connection.obtainDatabase().empty();
            if (relation.description.columns.empty()) {
                // The server lists no columns of a view whose tables are missing.
                structure.warnings.push_back("'" + makeOneLine(place.second) +
                                             "' is left out: the server tells no columns of it");
                continue;
            }
            (relation.isView ? schema.views : schema.tables).push_back(std::move(relation.description));
        }
        CatalogDescription& catalog = structure.catalogs.emplace_back();
        for (auto& [name, schema] : schemas) {
            catalog.schemas.push_back(std::move(schema));
        }
        return structure;
    }

    const MariaConnection& m_connection;
    bool m_isFull;
    std::map<Place, Relation> m_relations;
};

}  // namespace

DatabaseStructure readMariaStructure(const MariaConnection& connection, StructureDetail detail) {
    return MariaStructureReader(connection, detail).read();
}

std::vector<std::string> listMariaStructureQueries(const MariaConnection& connection) {
    const std::string isWanted = restrictSchema(connection, "TABLE_SCHEMA");
    return {
        "SELECT TABLE_SCHEMA, TABLE_NAME, TABLE_TYPE, TABLE_COMMENT FROM information_schema.TABLES "
        "WHERE TABLE_TYPE IN ('BASE TABLE', 'SYSTEM VERSIONED', 'VIEW') AND " +
            isWanted,
        "SELECT TABLE_SCHEMA, TABLE_NAME, COLUMN_NAME, COLUMN_TYPE, IS_NULLABLE, COLUMN_DEFAULT, COLUMN_COMMENT "
        "FROM information_schema.COLUMNS WHERE " +
            isWanted + " ORDER BY TABLE_SCHEMA, TABLE_NAME, ORDINAL_POSITION",
        "SELECT TABLE_SCHEMA, TABLE_NAME, CONSTRAINT_NAME, COLUMN_NAME, REFERENCED_TABLE_SCHEMA, "
        "REFERENCED_TABLE_NAME, REFERENCED_COLUMN_NAME FROM information_schema.KEY_COLUMN_USAGE WHERE " +
            isWanted +
            " AND (CONSTRAINT_NAME = 'PRIMARY' OR REFERENCED_TABLE_NAME IS NOT NULL) "
            "ORDER BY TABLE_SCHEMA, TABLE_NAME, CONSTRAINT_NAME, ORDINAL_POSITION"};
}

}  // namespace host
