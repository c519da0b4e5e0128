#include <gmock/gmock.h>
#include <sqlite3.h>

#include <algorithm>
#include <memory>

#include "debian_package.h"
#include "sqlite/schema_reader.h"
#include "test_folder.h"

namespace {

/// The columns of a table as the engine gives them to a query, and its key as the engine's own function tells it.
struct EngineColumns {
    std::vector<std::string> columns;
    std::vector<std::string> keys;
};

EngineColumns askEngine(sqlite3* handle, const std::string& table) {
    EngineColumns answer;
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(handle, ("SELECT * FROM \"" + table + "\"").c_str(), -1, &statement, nullptr),
              SQLITE_OK);
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
        const std::string name = sqlite3_column_name(statement, i);
        const char* type = sqlite3_column_decltype(statement, i);
        answer.columns.push_back(name + " " + (type != nullptr ? type : "ANY"));
        int isKey = 0;
        sqlite3_table_column_metadata(handle, "main", table.c_str(), name.c_str(), nullptr, nullptr, nullptr, &isKey,
                                      nullptr);
        if (isKey != 0) {
            answer.keys.push_back(name);
        }
    }
    sqlite3_finalize(statement);
    return answer;
}

class SqlitePackages : public testing::TestWithParam<PackagedSchema> {};

TEST_P(SqlitePackages, AreReadAsTheEngineItselfTellsThem) {
    const TestFolder folder;
    const host::SqliteDatabase database(
        folder.makeDatabase("packaged.db", DebianPackage(GetParam().package).read(GetParam().path)));
    const host::DatabaseStructure structure = host::readSqliteStructure(database, host::StructureDetail::Keys);
    EXPECT_THAT(structure.warnings, testing::IsEmpty());
    EXPECT_GE(host::countRelations(structure), GetParam().tables);
    std::size_t foreignKeys = 0;
    for (const host::RelationDescription& table : structure.catalogs.at(0).schemas.at(0).tables) {
        const EngineColumns answer = askEngine(database.obtainHandle(), table.name);
        std::vector<std::string> columns;
        for (const host::ColumnDescription& column : table.columns) {
            columns.push_back(column.name + " " + column.type);
        }
        EXPECT_EQ(columns, answer.columns) << table.name;
        EXPECT_THAT(table.primaryKey, testing::UnorderedElementsAreArray(answer.keys)) << table.name;
        foreignKeys += table.foreignKeys.size();
    }
    EXPECT_EQ(foreignKeys, GetParam().foreignKeys);
}

INSTANTIATE_TEST_SUITE_P(
    Schemas, SqlitePackages,
    testing::Values(PackagedSchema{"zabbix-proxy-sqlite3", "usr/share/zabbix-proxy-sqlite3/schema.sql.gz", 173, 226},
                    PackagedSchema{"roundcube-core", "usr/share/roundcube/SQL/sqlite.initial.sql", 17, 14},
                    PackagedSchema{"mediawiki", "usr/share/mediawiki/maintenance/sqlite/tables-generated.sql", 58, 0}));

}  // namespace
