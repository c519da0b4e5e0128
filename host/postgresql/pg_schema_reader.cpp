#include "postgresql/pg_schema_reader.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace host {
namespace {

/// In the queries, $1 says whether to read the details.
///
/// The relations to describe. A partition is a part of its table.
constexpr const char* kRelations =
    "kai_relations AS (SELECT c.oid, c.relname, c.relkind, n.nspname FROM pg_catalog.pg_class c "
    "JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace "
    "WHERE c.relkind IN ('r', 'p', 'f', 'v', 'm') AND NOT c.relispartition "
    "AND n.nspname !~ '^pg_' AND n.nspname <> 'information_schema') ";

constexpr const char* kRelationQuery =
    "SELECT oid, nspname, relname, relkind, pg_catalog.pg_table_is_visible(oid), "
    "CASE WHEN $1 THEN pg_catalog.obj_description(oid, 'pg_class') END FROM kai_relations ORDER BY oid";

constexpr const char* kColumnQuery =
    "SELECT a.attrelid, a.attname, pg_catalog.format_type(a.atttypid, a.atttypmod), NOT a.attnotnull, "
    "CASE WHEN $1 AND a.attgenerated = '' THEN pg_catalog.pg_get_expr(d.adbin, d.adrelid) END, "
    "CASE WHEN $1 THEN pg_catalog.col_description(a.attrelid, a.attnum) END "
    "FROM pg_catalog.pg_attribute a JOIN kai_relations r ON r.oid = a.attrelid "
    "LEFT JOIN pg_catalog.pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum "
    "WHERE a.attnum > 0 AND NOT a.attisdropped ORDER BY a.attrelid, a.attnum";

/// One row per column of a key. Copies of a key that refer to partitions of the parent table have a parent constraint
/// themselves.
constexpr const char* kKeyQuery =
    "SELECT c.conrelid, c.oid, c.contype, a.attname, pn.nspname, pc.relname, pa.attname "
    "FROM pg_catalog.pg_constraint c JOIN kai_relations r ON r.oid = c.conrelid "
    "CROSS JOIN LATERAL unnest(c.conkey, CASE WHEN c.contype = 'f' THEN c.confkey END) "
    "WITH ORDINALITY AS k (own, parent, place) "
    "JOIN pg_catalog.pg_attribute a ON a.attrelid = c.conrelid AND a.attnum = k.own "
    "LEFT JOIN pg_catalog.pg_class pc ON pc.oid = c.confrelid "
    "LEFT JOIN pg_catalog.pg_namespace pn ON pn.oid = pc.relnamespace "
    "LEFT JOIN pg_catalog.pg_attribute pa ON pa.attrelid = c.confrelid AND pa.attnum = k.parent "
    "WHERE c.contype IN ('p', 'f') AND c.conparentid = 0 ORDER BY c.conrelid, c.oid, k.place";

constexpr const char* kIndexQuery =
    "SELECT i.indrelid, pg_catalog.pg_get_indexdef(i.indexrelid) FROM pg_catalog.pg_index i "
    "JOIN kai_relations r ON r.oid = i.indrelid WHERE $1 AND NOT i.indisprimary ORDER BY i.indrelid, i.indexrelid";

constexpr const char* kConstraintQuery =
    "SELECT c.conrelid, pg_catalog.pg_get_constraintdef(c.oid) FROM pg_catalog.pg_constraint c "
    "JOIN kai_relations r ON r.oid = c.conrelid WHERE $1 AND c.contype IN ('c', 'x') ORDER BY c.conrelid, c.oid";

std::string makeQuery(const char* sql, StructureDetail detail) {
    std::string query = std::string("WITH ") + kRelations + sql;
    for (std::size_t place = 0; (place = query.find("$1", place)) != std::string::npos;) {
        query.replace(place, 2, detail == StructureDetail::Full ? "true" : "false");
    }
    return query;
}

class PgStructureReader {
public:
    PgStructureReader(const PgConnection& connection, StructureDetail detail)
        : m_connection(connection), m_detail(detail) {}

    [[nodiscard]] DatabaseStructure read() {
        m_connection.execute("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
        const std::vector<std::string> queries = listPgStructureQueries(m_detail);
        readRelations(queries.at(0));
        readColumns(queries.at(1));
        readKeys(queries.at(2));
        if (m_detail == StructureDetail::Full) {
            readDetail(queries.at(3), &RelationDescription::indexes);
            readDetail(queries.at(4), &RelationDescription::constraints);
        }
        m_connection.execute("ROLLBACK");
        return build();
    }

private:
    struct Relation {
        std::string schema;
        char kind = 'r';
        RelationDescription description;
    };

    /// The relation of a row; null if it was created after the relations were read.
    [[nodiscard]] RelationDescription* findRelation(const PGresult* rows, int row) {
        const auto found = m_places.find(readPgText(rows, row, 0));
        return found == m_places.end() ? nullptr : &m_relations[found->second].description;
    }

    void readRelations(const std::string& query) {
        const PgResult rows = m_connection.execute(query);
        for (int i = 0; i < PQntuples(rows.get()); ++i) {
            Relation& relation = m_relations.emplace_back();
            relation.schema = readPgText(rows.get(), i, 1);
            relation.kind = readPgText(rows.get(), i, 3).front();
            relation.description.name = readPgText(rows.get(), i, 2);
            relation.description.comment = readPgText(rows.get(), i, 5);
            m_places.emplace(readPgText(rows.get(), i, 0), m_relations.size() - 1);
            // A schema needs no qualifier if each of its relations is found without one.
            const bool isVisible = readPgText(rows.get(), i, 4) == "t";
            const auto schema = m_isSchemaVisible.emplace(relation.schema, true).first;
            schema->second = schema->second && isVisible;
        }
    }

    void readColumns(const std::string& query) {
        const PgResult rows = m_connection.execute(query);
        for (int i = 0; i < PQntuples(rows.get()); ++i) {
            if (RelationDescription* relation = findRelation(rows.get(), i)) {
                ColumnDescription& column = relation->columns.emplace_back();
                column.name = readPgText(rows.get(), i, 1);
                column.type = readPgText(rows.get(), i, 2);
                column.isNullable = readPgText(rows.get(), i, 3) == "t";
                column.defaultText = readPgText(rows.get(), i, 4);
                column.comment = readPgText(rows.get(), i, 5);
            }
        }
    }

    void readKeys(const std::string& query) {
        const PgResult rows = m_connection.execute(query);
        std::string_view lastKey;
        for (int i = 0; i < PQntuples(rows.get()); ++i) {
            RelationDescription* relation = findRelation(rows.get(), i);
            if (relation == nullptr) {
                continue;
            }
            const bool isNew = readPgText(rows.get(), i, 1) != lastKey;
            lastKey = readPgText(rows.get(), i, 1);
            if (readPgText(rows.get(), i, 2) == "p") {
                relation->primaryKey.emplace_back(readPgText(rows.get(), i, 3));
            } else {
                addForeignKeyColumn(*relation, rows.get(), i, isNew);
            }
        }
    }

    static void addForeignKeyColumn(RelationDescription& relation, const PGresult* rows, int row, bool isNew) {
        if (isNew) {
            ForeignKeyDescription& key = relation.foreignKeys.emplace_back();
            key.parentSchema = readPgText(rows, row, 4);
            key.parentTable = readPgText(rows, row, 5);
        }
        relation.foreignKeys.back().columns.emplace_back(readPgText(rows, row, 3));
        relation.foreignKeys.back().parentColumns.emplace_back(readPgText(rows, row, 6));
    }

    void readDetail(const std::string& query, std::vector<std::string> RelationDescription::*target) {
        const PgResult rows = m_connection.execute(query);
        for (int i = 0; i < PQntuples(rows.get()); ++i) {
            if (RelationDescription* relation = findRelation(rows.get(), i)) {
                (relation->*target).emplace_back(readPgText(rows.get(), i, 1));
            }
        }
    }

    [[nodiscard]] DatabaseStructure build() {
        std::map<std::string, SchemaDescription> schemas;
        for (Relation& relation : m_relations) {
            SchemaDescription& schema = schemas[relation.schema];
            schema.name = relation.schema;
            schema.isDefault = m_isSchemaVisible[relation.schema];
            for (ForeignKeyDescription& key : relation.description.foreignKeys) {
                if (key.parentSchema == relation.schema) {
                    key.parentSchema.clear();
                }
            }
            (relation.kind == 'v'   ? schema.views
             : relation.kind == 'm' ? schema.materializedViews
                                    : schema.tables)
                .push_back(std::move(relation.description));
        }
        DatabaseStructure structure;
        CatalogDescription& catalog = structure.catalogs.emplace_back();
        for (auto& [name, schema] : schemas) {
            catalog.schemas.push_back(std::move(schema));
        }
        return structure;
    }

    const PgConnection& m_connection;
    StructureDetail m_detail;
    std::vector<Relation> m_relations;
    std::map<std::string, std::size_t, std::less<>> m_places;
    std::map<std::string, bool> m_isSchemaVisible;
};

}  // namespace

DatabaseStructure readPgStructure(const PgConnection& connection, StructureDetail detail) {
    return PgStructureReader(connection, detail).read();
}

std::vector<std::string> listPgStructureQueries(StructureDetail detail) {
    std::vector<std::string> queries{makeQuery(kRelationQuery, detail), makeQuery(kColumnQuery, detail),
                                     makeQuery(kKeyQuery, detail)};
    if (detail == StructureDetail::Full) {
        queries.push_back(makeQuery(kIndexQuery, detail));
        queries.push_back(makeQuery(kConstraintQuery, detail));
    }
    return queries;
}

}  // namespace host
