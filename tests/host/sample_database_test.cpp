#include <gmock/gmock.h>

#include "child_process.h"
#include "conversation/sql_extractor.h"
#include "emulator_scenario.h"
#include "sqlite/query_runner.h"
#include "sqlite/schema_reader.h"
#include "test_folder.h"

namespace {

using testing::ElementsAre;

class SampleDatabase : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(make(m_fileName), 0); }

    static int make(const std::string& fileName) {
        ChildProcess process({.arguments = {KAI_SAMPLE_DATABASE, KAI_SAMPLE_DIRECTORY "/shop.sql", fileName}});
        return process.wait();
    }

    [[nodiscard]] std::vector<std::string> listValues(const std::string& sql) const {
        std::vector<std::string> values;
        const host::SqliteDatabase database(m_fileName);
        const host::QueryRunner runner(database, {});
        host::ResultCollector results([&](const host::ResultTable& table) {
            for (const auto& row : table.rows) {
                for (const host::Cell& cell : row) {
                    values.push_back(cell.bytes);
                }
            }
        });
        runner.run(sql, results);
        return values;
    }

    TestFolder m_folder;
    std::string m_fileName = m_folder.name("shop.db");
};

TEST_F(SampleDatabase, HasTablesCompositeKeysAndViews) {
    const host::DatabaseStructure structure =
        host::readSqliteStructure(host::SqliteDatabase(m_fileName), host::StructureDetail::Keys);
    EXPECT_EQ(structure.catalogs.at(0).schemas.at(0).tables.size(), 11U);
    EXPECT_EQ(structure.catalogs.at(0).schemas.at(0).views.size(), 2U);
    std::size_t compositeKeys = 0;
    std::size_t compositeForeignKeys = 0;
    for (const host::RelationDescription& table : structure.catalogs.at(0).schemas.at(0).tables) {
        compositeKeys += table.primaryKey.size() > 1 ? 1 : 0;
        for (const host::ForeignKeyDescription& key : table.foreignKeys) {
            EXPECT_EQ(key.columns.size(), key.parentColumns.size()) << table.name;
            compositeForeignKeys += key.columns.size() > 1 ? 1 : 0;
        }
    }
    EXPECT_EQ(compositeKeys, 4U);
    EXPECT_EQ(compositeForeignKeys, 1U);
}

TEST_F(SampleDatabase, HasSomeThousandConsistentRows) {
    EXPECT_THAT(listValues("SELECT count(*) FROM customers; SELECT count(*) FROM orders; SELECT count(*) FROM "
                           "order_lines"),
                ElementsAre("300", "1500", "3750"));
    EXPECT_THAT(listValues("PRAGMA foreign_key_check"), testing::IsEmpty());
    EXPECT_THAT(listValues("PRAGMA integrity_check"), ElementsAre("ok"));
    EXPECT_THAT(listValues("SELECT count(*) FROM sqlite_temp_master"), ElementsAre("0"));
}

TEST_F(SampleDatabase, IsTheSameEveryTime) {
    const std::string again = m_folder.name("again.db");
    ASSERT_EQ(make(again), 0);
    EXPECT_TRUE(readFile(again) == readFile(m_fileName));
}

TEST_F(SampleDatabase, GivesRowsForTheSqlOfTheDemo) {
    std::size_t count = 0;
    for (const KAIScenarioRule& rule : readScenarioFile(KAI_SAMPLE_DIRECTORY "/shop-scenario.json").rules) {
        for (const std::string& sql : host::extractSql(rule.answer.choices.at(0).join(), {})) {
            EXPECT_GE(listValues(sql).size(), 6U) << sql;
            ++count;
        }
    }
    EXPECT_EQ(count, 3U);
}

TEST_F(SampleDatabase, IsNotMadeHalf) {
    const std::string script = m_folder.write("bad.sql", "CREATE TABLE t (a); SELECT nonsense;");
    ChildProcess process({.arguments = {KAI_SAMPLE_DATABASE, script, m_folder.name("half.db")}});
    EXPECT_EQ(process.wait(), 1);
    EXPECT_THAT(process.obtainErrors(), testing::HasSubstr("no such column: nonsense"));
    EXPECT_THAT(m_folder.list(), ElementsAre("bad.sql", "shop.db"));
}

}  // namespace
