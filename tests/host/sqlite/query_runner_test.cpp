#include "sqlite/query_runner.h"

#include <gmock/gmock.h>

#include <memory>

#include "host_error.h"
#include "test_folder.h"

namespace {

using host::ExitCode;
using host::QueryLimits;
using host::ResultCut;
using host::ResultTable;
using testing::HasSubstr;

/// A small database and what statements from outside come to on it.
class QueryRunner : public testing::Test {
protected:
    struct Outcome {
        ExitCode code = ExitCode::Done;
        std::string error;
        std::vector<ResultTable> tables;
        std::size_t count = 0;
    };

    Outcome run(const std::string& script) {
        Outcome outcome;
        const host::QueryRunner runner(m_database, m_limits);
        host::ResultCollector results([&](const ResultTable& table) { outcome.tables.push_back(table); });
        try {
            outcome.count = runner.run(script, results);
        } catch (const host::HostError& error) {
            outcome.code = error.obtainCode();
            outcome.error = error.what();
        }
        return outcome;
    }

    /// Whether a script is refused as SQL that fails, with a text that has this in it.
    void expectFailure(const std::string& script, const std::string& text) {
        const Outcome outcome = run(script);
        EXPECT_EQ(outcome.code, ExitCode::SqlFailed) << script;
        EXPECT_THAT(outcome.error, HasSubstr(text)) << script;
    }

    TestFolder m_folder;
    std::string m_fileName = m_folder.makeDatabase(
        "a.db",
        "CREATE TABLE t (a INTEGER, b TEXT); INSERT INTO t VALUES (1, 'one'), (2, 'two'), (3, NULL);"
        "CREATE VIEW v AS SELECT a FROM t; CREATE TABLE blobs (x); INSERT INTO blobs VALUES (x'00ff');"
        "CREATE VIRTUAL TABLE notes USING fts5 (body); INSERT INTO notes VALUES ('red fox');"
        "CREATE VIRTUAL TABLE boxes USING rtree (id, x0, x1); INSERT INTO boxes VALUES (1, 0, 5);");
    std::string m_before = readFile(m_fileName);
    host::SqliteDatabase m_database{m_fileName};
    QueryLimits m_limits;
};

TEST_F(QueryRunner, GivesColumnsAndRows) {
    const Outcome outcome = run("SELECT a, b AS \"the text\", a / 2.0 AS half FROM t ORDER BY a");
    ASSERT_EQ(outcome.tables.size(), 1U);
    const ResultTable& table = outcome.tables[0];
    EXPECT_THAT(table.columns, testing::ElementsAre("a", "the text", "half"));
    ASSERT_EQ(table.rows.size(), 3U);
    EXPECT_EQ(table.rows[0][0].kind, host::Cell::Kind::Number);
    EXPECT_EQ(table.rows[0][1].bytes, "one");
    EXPECT_EQ(table.rows[0][2].bytes, "0.5");
    EXPECT_EQ(table.rows[2][1].kind, host::Cell::Kind::Null);
    EXPECT_EQ(table.cut, ResultCut::None);
}

TEST_F(QueryRunner, RunsSeveralStatements) {
    const Outcome outcome = run("-- first\nSELECT 1;;\n/* then */ SELECT 2 AS two; \n-- nothing more\n");
    EXPECT_EQ(outcome.count, 2U);
    ASSERT_EQ(outcome.tables.size(), 2U);
    EXPECT_EQ(outcome.tables[1].columns[0], "two");
}

TEST_F(QueryRunner, StopsAtTheFirstFailureAndKeepsWhatCameBefore) {
    const Outcome outcome = run("SELECT 1; SELECT gone FROM t; SELECT 2;");
    EXPECT_EQ(outcome.code, ExitCode::SqlFailed);
    EXPECT_THAT(outcome.error, HasSubstr("no such column: gone"));
    EXPECT_EQ(outcome.tables.size(), 1U);
}

TEST_F(QueryRunner, CountsNoStatementInCommentsAlone) {
    EXPECT_EQ(run(" -- nothing \n").count, 0U);
    EXPECT_EQ(run("").count, 0U);
}

TEST_F(QueryRunner, LimitsRowsAndSaysThatThereAreMore) {
    m_limits.maxRows = 2;
    const Outcome outcome = run("SELECT a FROM t; SELECT a FROM t LIMIT 2;");
    ASSERT_EQ(outcome.tables.size(), 2U);
    EXPECT_EQ(outcome.tables[0].rows.size(), 2U);
    EXPECT_EQ(outcome.tables[0].cut, ResultCut::Rows);
    EXPECT_EQ(outcome.tables[1].cut, ResultCut::None);
}

TEST_F(QueryRunner, KeepsTheBeginningOfALongValueAndItsSize) {
    m_limits.maxCellBytes = 10;
    const Outcome outcome = run("SELECT printf('%.*c', 1000, 'x'), zeroblob(2000)");
    ASSERT_EQ(outcome.tables.size(), 1U);
    EXPECT_EQ(outcome.tables[0].rows[0][0].bytes, std::string(10, 'x'));
    EXPECT_EQ(outcome.tables[0].rows[0][0].size, 1000U);
    EXPECT_EQ(outcome.tables[0].rows[0][1].kind, host::Cell::Kind::Blob);
    EXPECT_EQ(outcome.tables[0].rows[0][1].size, 2000U);
}

TEST_F(QueryRunner, ReadsViewsFullTextAndRangeTables) {
    EXPECT_EQ(run("SELECT * FROM v").code, ExitCode::Done);
    EXPECT_EQ(run("SELECT body FROM notes WHERE notes MATCH 'fox'").tables.at(0).rows.size(), 1U);
    EXPECT_EQ(run("SELECT id FROM boxes WHERE x0 < 3").tables.at(0).rows.size(), 1U);
    EXPECT_EQ(run("WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 5) SELECT * FROM n")
                  .tables.at(0)
                  .rows.size(),
              5U);
}

TEST_F(QueryRunner, ReadsPragmasThatOnlyTell) {
    EXPECT_EQ(run("PRAGMA table_info(t)").tables.at(0).rows.size(), 2U);
    EXPECT_EQ(run("SELECT name FROM pragma_table_info('t')").tables.at(0).rows.size(), 2U);
    EXPECT_EQ(run("PRAGMA user_version").tables.at(0).rows.size(), 1U);
    EXPECT_EQ(run("PRAGMA integrity_check").code, ExitCode::Done);
    EXPECT_EQ(run("EXPLAIN QUERY PLAN SELECT * FROM t").code, ExitCode::Done);
}

TEST_F(QueryRunner, SaysWhatIsWrongWithTheSql) {
    expectFailure("SELEC 1", "syntax error");
    expectFailure("SELECT * FROM gone", "no such table: gone");
    expectFailure("SELECT abs(-9223372036854775808)", "integer overflow");
    expectFailure("SELECT json('{')", "malformed JSON");
}

TEST_F(QueryRunner, RefusesParametersWithoutValues) {
    expectFailure("SELECT * FROM t WHERE a = :id", "a parameter without a value");
    expectFailure("SELECT ?", "a parameter without a value");
}

TEST_F(QueryRunner, RefusesANulCharacter) {
    expectFailure(std::string("SELECT 1;\0 DROP TABLE t", 23), "a NUL character");
}

/// Every kind of statement that would change something, here or elsewhere.
class QueryRunnerRefusal : public QueryRunner, public testing::WithParamInterface<const char*> {};

TEST_P(QueryRunnerRefusal, LeavesFileAndDirectoryAsTheyWere) {
    const std::string former = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.name(""));
    const Outcome outcome = run(GetParam());
    std::filesystem::current_path(former);
    EXPECT_EQ(outcome.code, ExitCode::SqlFailed) << GetParam();
    EXPECT_THAT(outcome.error, testing::StartsWith("the model's SQL was refused: "));
    EXPECT_TRUE(outcome.tables.empty());
    EXPECT_EQ(readFile(m_fileName), m_before);
    EXPECT_EQ(m_folder.list(), std::vector<std::string>{"a.db"});
}

INSTANTIATE_TEST_SUITE_P(
    Statements, QueryRunnerRefusal,
    testing::Values("INSERT INTO t VALUES (4, 'four')", "UPDATE t SET a = 0", "DELETE FROM t",
                    "REPLACE INTO t VALUES (1, 'x')", "WITH w AS (SELECT 1) INSERT INTO t SELECT 1, 'x' FROM w",
                    "INSERT INTO t VALUES (4, 'four') RETURNING a", "EXPLAIN DELETE FROM t", "CREATE TABLE n (a)",
                    "CREATE TEMP TABLE n (a)", "CREATE TABLE n AS SELECT * FROM t", "CREATE VIEW n AS SELECT 1",
                    "CREATE TEMP VIEW n AS SELECT 1", "CREATE INDEX n ON t (a)",
                    "CREATE TRIGGER n AFTER INSERT ON t BEGIN SELECT 1; END", "CREATE VIRTUAL TABLE n USING fts5 (a)",
                    "CREATE VIRTUAL TABLE temp.n USING fts5 (a)", "DROP TABLE t", "DROP VIEW v",
                    "ALTER TABLE t ADD COLUMN c", "ALTER TABLE t RENAME TO u",
                    "INSERT INTO notes (notes) VALUES ('rebuild')", "INSERT INTO boxes VALUES (2, 1, 2)", "REINDEX",
                    "ANALYZE", "VACUUM", "VACUUM INTO 'copy.db'", "ATTACH 'other.db' AS o", "ATTACH ':memory:' AS o",
                    "DETACH main", "BEGIN", "BEGIN IMMEDIATE", "COMMIT", "ROLLBACK", "SAVEPOINT s", "RELEASE s",
                    "PRAGMA journal_mode = WAL", "PRAGMA journal_mode", "PRAGMA writable_schema = ON",
                    "PRAGMA query_only = OFF", "PRAGMA trusted_schema = ON", "PRAGMA user_version = 7",
                    "PRAGMA application_id = 7", "PRAGMA encoding = 'UTF-16'", "PRAGMA temp_store_directory = '/tmp'",
                    "PRAGMA locking_mode = EXCLUSIVE", "PRAGMA wal_checkpoint(TRUNCATE)", "PRAGMA optimize",
                    "PRAGMA incremental_vacuum", "PRAGMA mmap_size = 1000000", "PRAGMA cache_spill(1)",
                    "PRAGMA hard_heap_limit = 0", "PRAGMA main.page_size = 512", "SELECT load_extension('evil')",
                    "SELECT load_extension('evil', 'init')", "SELECT LOAD_EXTENSION('evil')",
                    "SELECT fts3_tokenizer('simple')", "SELECT fts3_tokenizer('simple', x'4141414141414141')",
                    "SELECT * FROM t WHERE a IN (SELECT load_extension('evil'))"));

TEST_F(QueryRunner, NeverChangesTheSchemaTable) {
    expectFailure("UPDATE sqlite_schema SET sql = ''", "may not be modified");
    expectFailure("DELETE FROM sqlite_master", "may not be modified");
    expectFailure("PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = ''", "PRAGMA 'writable_schema'");
    EXPECT_EQ(readFile(m_fileName), m_before);
}

TEST_F(QueryRunner, SaysWhatWasRefused) {
    expectFailure("INSERT INTO t VALUES (4, 'four')", "INSERT into 't' (kai runs SQL for reading only)");
    expectFailure("PRAGMA journal_mode = WAL", "PRAGMA 'journal_mode'");
    expectFailure("SELECT load_extension('evil')", "the function 'load_extension'");
    expectFailure("VACUUM", "the statement would write");
}

TEST_F(QueryRunner, RunsQueriesAgainAfterARefusal) {
    expectFailure("DROP TABLE t", "a change of the schema");
    EXPECT_EQ(run("SELECT * FROM t").tables.at(0).rows.size(), 3U);
}

TEST_F(QueryRunner, EndsAStatementThatRunsTooLong) {
    m_limits.maxTime = std::chrono::seconds{1};
    expectFailure("WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n",
                  "it ran longer than the limit of 1 s");
}

TEST_F(QueryRunner, CountsTheTimeOfAllStatementsTogether) {
    m_limits.maxTime = std::chrono::milliseconds{0};
    expectFailure("WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 100000) SELECT 1 FROM n",
                  "it ran longer");
}

TEST_F(QueryRunner, CutsAResultThatTakesTooMuchMemory) {
    m_limits.maxBytes = 100'000;
    const Outcome outcome = run("SELECT printf('%.*c', 20000, 'x') FROM t, t AS u");
    ASSERT_EQ(outcome.tables.size(), 1U);
    EXPECT_EQ(outcome.tables[0].rows.size(), 4U);
    EXPECT_EQ(outcome.tables[0].cut, ResultCut::Bytes);
}

TEST_F(QueryRunner, CountsTheMemoryOfAllResultsTogether) {
    m_limits.maxBytes = 50'000;
    const Outcome outcome = run("SELECT printf('%.*c', 40000, 'x'); SELECT printf('%.*c', 40000, 'x')");
    ASSERT_EQ(outcome.tables.size(), 2U);
    EXPECT_EQ(outcome.tables[0].cut, ResultCut::None);
    EXPECT_EQ(outcome.tables[1].cut, ResultCut::Bytes);
}

TEST_F(QueryRunner, KeepsWholeValuesWithoutALimit) {
    m_limits.maxCellBytes = 0;
    EXPECT_EQ(run("SELECT printf('%.*c', 200000, 'x')").tables.at(0).rows.at(0).at(0).bytes.size(), 200'000U);
}

TEST_F(QueryRunner, RefusesValuesThatWouldFillTheMemory) {
    expectFailure("SELECT zeroblob(1000000000)", "too big");
    expectFailure("SELECT length(replace(printf('%.*c', 10000000, 'x'), 'x', 'xxxxxxxxxx'))", "too big");
}

TEST_F(QueryRunner, SaysThatTheDatabaseIsLocked) {
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(m_fileName.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_busy_timeout(m_database.obtainHandle(), 1);
    const Outcome outcome = run("SELECT * FROM t");
    EXPECT_EQ(outcome.code, ExitCode::Database);
    EXPECT_THAT(outcome.error, HasSubstr("locked by another program"));
    sqlite3_close(writer);
}

TEST_F(QueryRunner, DoesNotTrustFunctionsInTheSchema) {
    const std::string fileName = m_folder.makeDatabase("trap.db",
                                                       "CREATE TABLE t (a); INSERT INTO t VALUES (1);"
                                                       "CREATE VIEW trap AS SELECT load_extension('evil') AS a FROM t");
    const host::SqliteDatabase database(fileName);
    const host::QueryRunner runner(database, {});
    host::ResultCollector results([](const ResultTable&) {});
    EXPECT_THROW(runner.run("SELECT * FROM trap", results), host::HostError);
}

}  // namespace
