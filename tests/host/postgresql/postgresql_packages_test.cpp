#include <gmock/gmock.h>

#include <algorithm>

#include "debian_package.h"
#include "engine/database_probe.h"
#include "postgresql/postgresql_server.h"

namespace {

/// The structure as information_schema tells it, one line a column, a key column and a foreign key's column.
constexpr const char* kCatalogQuery =
    "SELECT format('%s.%s %s', table_name, ordinal_position, column_name) FROM information_schema.columns "
    "WHERE table_schema = 'public' UNION ALL "
    "SELECT format('%s PK %s %s', c.table_name, k.ordinal_position, k.column_name) "
    "FROM information_schema.table_constraints c JOIN information_schema.key_column_usage k "
    "ON k.constraint_name = c.constraint_name AND k.table_name = c.table_name "
    "WHERE c.constraint_type = 'PRIMARY KEY' AND c.table_schema = 'public' UNION ALL "
    "SELECT format('%s FK %s %s %s', k.table_name, k.column_name, p.table_name, p.column_name) "
    "FROM information_schema.referential_constraints r "
    "JOIN information_schema.key_column_usage k ON k.constraint_name = r.constraint_name "
    "JOIN information_schema.key_column_usage p ON p.constraint_name = r.unique_constraint_name "
    "AND p.ordinal_position = k.position_in_unique_constraint WHERE k.table_schema = 'public'";

/// The same lines from a structure that was read.
std::vector<std::string> listLines(const host::DatabaseStructure& structure) {
    std::vector<std::string> lines;
    host::visitRelations(structure, [&](const host::SchemaDescription&, const host::RelationDescription& relation) {
        for (const host::ColumnDescription& column : relation.columns) {
            lines.push_back(relation.name + "." + std::to_string(&column - relation.columns.data() + 1) + " " +
                            column.name);
        }
        for (std::size_t i = 0; i < relation.primaryKey.size(); ++i) {
            lines.push_back(relation.name + " PK " + std::to_string(i + 1) + " " + relation.primaryKey[i]);
        }
        for (const host::ForeignKeyDescription& key : relation.foreignKeys) {
            for (std::size_t i = 0; i < key.columns.size(); ++i) {
                lines.push_back(relation.name + " FK " + key.columns[i] + " " + key.parentTable + " " +
                                key.parentColumns[i]);
            }
        }
    });
    return lines;
}

class PostgresqlPackages : public testing::TestWithParam<PackagedSchema> {};

TEST_P(PostgresqlPackages, AreReadAsTheServersOwnCatalogTellsThem) {
    PostgresqlServer& server = PostgresqlServer::obtain();
    server.execute("postgres", "DROP DATABASE IF EXISTS packaged");
    server.execute("postgres", "CREATE DATABASE packaged");
    server.execute("packaged", DebianPackage(GetParam().package).read(GetParam().path));

    const host::DatabaseStructure structure = probeStructure(server.makeUrl("reader", "packaged"));
    EXPECT_THAT(structure.warnings, testing::IsEmpty());
    std::size_t foreignKeys = 0;
    host::visitRelations(structure, [&](const host::SchemaDescription&, const host::RelationDescription& relation) {
        foreignKeys += relation.foreignKeys.size();
    });
    EXPECT_GE(host::countRelations(structure), GetParam().tables);
    EXPECT_GE(foreignKeys, GetParam().foreignKeys);
    std::vector<std::string> wanted = server.query("packaged", kCatalogQuery);
    std::vector<std::string> lines = listLines(structure);
    std::sort(wanted.begin(), wanted.end());
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, wanted);
    server.execute("postgres", "DROP DATABASE packaged WITH (FORCE)");
}

INSTANTIATE_TEST_SUITE_P(
    Schemas, PostgresqlPackages,
    testing::Values(PackagedSchema{"zabbix-server-pgsql", "usr/share/zabbix-server-pgsql/schema.sql.gz", 173, 226},
                    PackagedSchema{"roundcube-core", "usr/share/roundcube/SQL/postgres.initial.sql", 17, 14},
                    PackagedSchema{"mediawiki", "usr/share/mediawiki/maintenance/postgres/tables-generated.sql", 58,
                                   0}));

}  // namespace
