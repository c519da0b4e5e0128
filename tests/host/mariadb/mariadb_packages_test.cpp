#include <gmock/gmock.h>

#include "debian_package.h"
#include "engine/database_probe.h"
#include "mariadb/mariadb_server.h"

namespace {

std::string quoteNames(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "`" : ", `") + name + "`";
    }
    return text;
}

/// What SHOW CREATE TABLE gives for each table, through the program itself: the server writes it, not the reader.
std::vector<std::string> showTables(const std::string& url, const std::vector<host::RelationDescription>& tables) {
    std::string script;
    for (const host::RelationDescription& table : tables) {
        script += "SHOW CREATE TABLE `" + table.name + "`;";
    }
    std::vector<std::string> texts;
    for (const host::ResultTable& result : probe(url, script).tables) {
        texts.push_back(result.rows.at(0).at(1).bytes);
    }
    return texts;
}

std::size_t countText(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t place = text.find(part); place != std::string::npos; place = text.find(part, place + 1)) {
        ++count;
    }
    return count;
}

class MariadbPackages : public testing::TestWithParam<PackagedSchema> {};

TEST_P(MariadbPackages, AreReadAsTheServerItselfWritesThem) {
    MariadbServer& server = MariadbServer::obtain();
    server.execute("", "CREATE DATABASE packaged CHARACTER SET utf8mb4 COLLATE utf8mb4_bin");
    server.executeScript("packaged", DebianPackage(GetParam().package).read(GetParam().path));

    const std::string url = server.makeUrl("reader", "packaged");
    const host::DatabaseStructure structure = probeStructure(url);
    EXPECT_THAT(structure.warnings, testing::IsEmpty());
    EXPECT_EQ(std::to_string(host::countRelations(structure)),
              server.query("packaged", "SELECT COUNT(*) FROM information_schema.TABLES WHERE TABLE_SCHEMA = 'packaged'")
                  .at(0));
    EXPECT_GE(host::countRelations(structure), GetParam().tables);
    std::size_t foreignKeys = 0;
    const std::vector<host::RelationDescription>& tables = structure.catalogs.at(0).schemas.at(0).tables;
    const std::vector<std::string> texts = showTables(url, tables);
    ASSERT_EQ(texts.size(), tables.size());
    for (const host::RelationDescription& table : tables) {
        foreignKeys += table.foreignKeys.size();
        const std::string& text = texts[static_cast<std::size_t>(&table - tables.data())];
        EXPECT_EQ(countText(text, "\n  `"), table.columns.size()) << text;
        EXPECT_EQ(countText(text, "FOREIGN KEY"), table.foreignKeys.size()) << text;
        for (const host::ColumnDescription& column : table.columns) {
            EXPECT_THAT(text, testing::HasSubstr("\n  `" + column.name + "` " + column.type));
        }
        std::string key = "PRIMARY KEY (" + quoteNames(table.primaryKey) + ")";
        for (std::size_t place = 0; (place = key.find(", `", place)) != std::string::npos;) {
            key.erase(place + 1, 1);
        }
        EXPECT_EQ(text.find("PRIMARY KEY") != std::string::npos, !table.primaryKey.empty()) << text;
        EXPECT_THAT(text, testing::HasSubstr(table.primaryKey.empty() ? "" : key));
        for (const host::ForeignKeyDescription& foreign : table.foreignKeys) {
            EXPECT_THAT(text,
                        testing::HasSubstr("FOREIGN KEY (" + quoteNames(foreign.columns) + ") REFERENCES `" +
                                           foreign.parentTable + "` (" + quoteNames(foreign.parentColumns) + ")"));
        }
    }
    EXPECT_GE(foreignKeys, GetParam().foreignKeys);
    server.execute("", "DROP DATABASE packaged");
}

INSTANTIATE_TEST_SUITE_P(
    Schemas, MariadbPackages,
    testing::Values(PackagedSchema{"zabbix-server-mysql", "usr/share/zabbix-server-mysql/schema.sql.gz", 173, 226},
                    PackagedSchema{"roundcube-core", "usr/share/roundcube/SQL/mysql.initial.sql", 17, 14},
                    PackagedSchema{"mediawiki", "usr/share/mediawiki/maintenance/tables-generated.sql", 58, 0}));

}  // namespace
