#include <gmock/gmock.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>

#include "engine/database_probe.h"
#include "mariadb/mariadb_server.h"
#include "test_folder.h"

namespace {

using host::ExitCode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A database of its own for each test, on the one server of the process.
class Mariadb : public testing::Test {
protected:
    Mariadb() {
        m_server.execute("", "CREATE DATABASE " + m_name);
        m_server.executeScript(m_name,
                               "CREATE TABLE t (a int PRIMARY KEY, b text); INSERT INTO t VALUES (1, 'one'), "
                               "(2, NULL); CREATE TABLE plain (a int) ENGINE=MyISAM;");
    }
    ~Mariadb() override { m_server.execute("", "DROP DATABASE " + m_name); }

    [[nodiscard]] std::string url(const std::string& user = "reader") const { return m_server.makeUrl(user, m_name); }
    [[nodiscard]] ProbeOutcome run(const std::string& script, const std::string& user = "reader") const {
        return probe(url(user), script, m_limits);
    }

    /// The statements fail with a text that has this in it, for everybody, and the data are as they were. Without a
    /// text: whether the server or the program refuses first depends on the user's rights.
    void expectRefusal(const std::string& script, const std::string& text) const {
        for (const char* user : {"reader", "root"}) {
            const ProbeOutcome outcome = run(script, user);
            EXPECT_EQ(outcome.code, ExitCode::SqlFailed) << user << ": " << script;
            EXPECT_THAT(outcome.error, HasSubstr(text)) << user << ": " << script;
            EXPECT_THAT(m_server.query(m_name, "SELECT CONCAT(a, COALESCE(b, '')) FROM t ORDER BY a"),
                        ElementsAre("1one", "2"))
                << script;
            EXPECT_THAT(m_server.query(m_name, "SELECT a FROM plain"), IsEmpty()) << script;
        }
    }

    MariadbServer& m_server = MariadbServer::obtain();
    std::string m_name = []() {
        static int count = 0;
        return "test" + std::to_string(++count);
    }();
    host::QueryLimits m_limits;
};

TEST_F(Mariadb, GivesColumnsAndRowsByTheirKinds) {
    const ProbeOutcome outcome =
        run("SELECT 1 AS n, 'x' AS t, NULL AS nothing, x'00ff' AS b, 1.50, 2.5e0, DATE '2026-11-21', 'Łódź 🦊'");
    ASSERT_EQ(outcome.code, ExitCode::Done) << outcome.error;
    EXPECT_EQ(outcome.tables.at(0).columns[0], "n");
    using Kind = host::Cell::Kind;
    using Pair = std::pair<Kind, std::string>;
    std::vector<Pair> cells;
    for (const host::Cell& cell : outcome.tables.at(0).rows.at(0)) {
        cells.emplace_back(cell.kind, cell.bytes);
    }
    EXPECT_THAT(cells, ElementsAre(Pair(Kind::Number, "1"), Pair(Kind::Text, "x"), Pair(Kind::Null, ""),
                                   Pair(Kind::Blob, std::string("\0\xff", 2)), Pair(Kind::Number, "1.50"),
                                   Pair(Kind::Number, "2.5"), Pair(Kind::Text, "2026-11-21"),
                                   Pair(Kind::Text, "Łódź 🦊")));
}

TEST_F(Mariadb, RunsSeveralStatementsOneByOne) {
    const ProbeOutcome outcome =
        run("-- first;\nSELECT 1; # next;\nSELECT 'it\\'s; ' AS `a;b` /* ; */; SELECT \";\";;");
    ASSERT_EQ(outcome.code, ExitCode::Done) << outcome.error;
    EXPECT_EQ(outcome.count, 3U);
    ASSERT_EQ(outcome.tables.size(), 3U);
    EXPECT_EQ(outcome.tables[1].columns[0], "a;b");
}

TEST_F(Mariadb, RunsWhatGivesRows) {
    EXPECT_EQ(run("EXPLAIN SELECT * FROM t").code, ExitCode::Done);
    EXPECT_EQ(run("SHOW TABLES").tables.at(0).rows.size(), 2U);
    EXPECT_EQ(run("DESCRIBE t").tables.at(0).rows.size(), 2U);
    EXPECT_EQ(run("WITH x AS (SELECT a FROM t) SELECT * FROM x").tables.at(0).rows.size(), 2U);
}

TEST_F(Mariadb, LimitsRowsAndGoesOn) {
    m_limits.maxRows = 3;
    const ProbeOutcome outcome = run("SELECT seq FROM seq_1_to_10000000; SELECT 1");
    ASSERT_EQ(outcome.code, ExitCode::Done) << outcome.error;
    EXPECT_EQ(outcome.tables.at(0).rows.size(), 3U);
    EXPECT_EQ(outcome.tables.at(0).cut, host::ResultCut::Rows);
    EXPECT_EQ(outcome.tables.at(1).cut, host::ResultCut::None);
}

TEST_F(Mariadb, LimitsBytesAndValues) {
    m_limits.maxBytes = 100'000;
    EXPECT_EQ(run("SELECT REPEAT('x', 30000) FROM seq_1_to_1000").tables.at(0).rows.size(), 3U);
    m_limits.maxCellBytes = 10;
    const ProbeOutcome outcome = run("SELECT REPEAT('x', 1000)");
    EXPECT_EQ(outcome.obtainValue(), std::string(10, 'x'));
    EXPECT_EQ(outcome.tables.at(0).rows[0][0].size, 1000U);
}

TEST_F(Mariadb, EndsAStatementThatRunsTooLong) {
    m_limits.maxTime = std::chrono::seconds{1};
    for (const char* sql : {"SELECT SLEEP(3600)", "SELECT BENCHMARK(100000000000, MD5('x'))",
                            "SELECT COUNT(*) FROM seq_1_to_100000000 a, seq_1_to_100000000 b"}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_THAT(run(sql).error, HasSubstr("it ran longer than the limit of 1 s")) << sql;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{30});
    }
}

TEST_F(Mariadb, RefusesWhatWrites) {
    expectRefusal("INSERT INTO t VALUES (3, 'x')", "READ ONLY transaction");
    expectRefusal("INSERT INTO t VALUES (3, 'x') RETURNING a", "READ ONLY transaction");
    expectRefusal("INSERT INTO plain VALUES (3) RETURNING a", "READ ONLY transaction");
    expectRefusal("/* SELECT */ DELETE FROM t -- SELECT", "READ ONLY transaction");
    expectRefusal("ANALYZE FORMAT=JSON DELETE FROM t", "READ ONLY transaction");
    expectRefusal("DROP TABLE t", "'DROP', which is no query");
    expectRefusal("TRUNCATE t", "'TRUNCATE', which is no query");
    expectRefusal("SELECT 1; DELETE FROM t", "READ ONLY transaction");
    expectRefusal("BEGIN NOT ATOMIC DELETE FROM t; END", "");
}

TEST_F(Mariadb, RefusesCommentsThatAreCode) {
    expectRefusal("/*! DELETE FROM t */", "READ ONLY transaction");
    expectRefusal("/*!50000 DROP TABLE t */;", "which is no query");
    expectRefusal("/*M!100000 DROP TABLE t */;", "which is no query");
    expectRefusal("SELECT 1 /*! ; DELETE FROM t */", "");
    expectRefusal("SELECT a FROM t /*! INTO OUTFILE '" + m_server.name("out") + "' */", "");
    EXPECT_FALSE(std::filesystem::exists(m_server.name("out")));
}

TEST_F(Mariadb, RefusesToLeaveTheTransaction) {
    expectRefusal("COMMIT; DROP TABLE t", "'COMMIT', which is no query");
    expectRefusal("START TRANSACTION READ WRITE; DELETE FROM t", "'START', which is no query");
    expectRefusal("SET SESSION TRANSACTION READ WRITE; DELETE FROM t", "'SET', which is no query");
    expectRefusal("SET GLOBAL max_connections = 1", "");
    expectRefusal("SET STATEMENT max_statement_time = 0 FOR DELETE FROM t", "READ ONLY transaction");
    expectRefusal("PREPARE p FROM 'DELETE FROM t'; EXECUTE p", "not supported in the prepared statement protocol");
    expectRefusal("EXECUTE IMMEDIATE 'DELETE FROM t'", "not supported in the prepared statement protocol");
    expectRefusal("LOCK TABLES t WRITE", "which is no query");
}

TEST_F(Mariadb, RefusesToReachOutsideTheDatabase) {
    expectRefusal("SELECT a FROM t INTO OUTFILE '" + m_server.name("out") + "'", "");
    expectRefusal("SELECT 'x' INTO DUMPFILE '" + m_server.name("out") + "'", "");
    expectRefusal("SELECT LOAD_FILE('/etc/passwd')", "the function 'LOAD_FILE'");
    expectRefusal("SELECT /*! LOAD_FILE('/etc/passwd') */", "the function 'LOAD_FILE'");
    expectRefusal("LOAD DATA LOCAL INFILE '/etc/passwd' INTO TABLE t", "READ ONLY transaction");
    expectRefusal("SELECT GET_LOCK('a', 1)", "the function 'GET_LOCK'");
    expectRefusal("KILL 1", "'KILL', which is no query");
    expectRefusal("SHUTDOWN", "'SHUTDOWN', which is no query");
    expectRefusal("FLUSH TABLES WITH READ LOCK", "'FLUSH', which is no query");
    EXPECT_FALSE(std::filesystem::exists(m_server.name("out")));
}

TEST_F(Mariadb, RefusesFunctionsAndProceduresThatWrite) {
    m_server.execute(m_name, "CREATE FUNCTION wipe() RETURNS int MODIFIES SQL DATA BEGIN DELETE FROM t; RETURN 1; END");
    m_server.execute(m_name,
                     "CREATE FUNCTION fill() RETURNS int MODIFIES SQL DATA "
                     "BEGIN INSERT INTO plain VALUES (1); RETURN 1; END");
    m_server.execute(m_name, "CREATE PROCEDURE p() BEGIN DELETE FROM t; SELECT 1; END");
    m_server.execute(m_name, "CREATE SEQUENCE s");
    expectRefusal("SELECT wipe()", "READ ONLY transaction");
    expectRefusal("SELECT fill()", "READ ONLY transaction");
    expectRefusal("CALL p()", "'CALL', which is no query");
    expectRefusal("SELECT NEXTVAL(s)", "the function 'NEXTVAL'");
    expectRefusal("SELECT NEXT VALUE FOR s", "READ ONLY transaction");
}

TEST_F(Mariadb, SaysWhatIsWrongWithAStatement) {
    expectRefusal("SELECT gone FROM t", "Unknown column 'gone'");
    expectRefusal("SELEC 1", "error in your SQL syntax");
    expectRefusal("SELECT ?", "a parameter without a value");
}

TEST_F(Mariadb, ReadsTheStructure) {
    m_server.executeScript(m_name,
                           "CREATE TABLE p (x int, y varchar(10), PRIMARY KEY (y, x));"
                           "CREATE TABLE o (id bigint unsigned AUTO_INCREMENT PRIMARY KEY, m enum('a','b'), "
                           "n decimal(10,2), j json, px int, py varchar(10), up bigint unsigned, "
                           "FOREIGN KEY fk2 (py, px) REFERENCES p (y, x), FOREIGN KEY fk1 (up) REFERENCES o (id));"
                           "CREATE VIEW v AS SELECT id, m FROM o; CREATE VIEW broken AS SELECT a FROM plain;"
                           "DROP TABLE plain; DROP TABLE t");
    const host::DatabaseStructure structure = probeStructure(url());
    EXPECT_THAT(describeStructure(structure),
                ElementsAre(m_name + ".o (id bigint(20) unsigned, m enum('a','b'), n decimal(10,2), j longtext, px "
                                     "int(11), py varchar(10), up bigint(20) unsigned) PK (id) FK (up) -> o (id) "
                                     "FK (py, px) -> p (y, x)",
                            m_name + ".p (x int(11), y varchar(10)) PK (y, x)",
                            m_name + ".v (id bigint(20) unsigned, m enum('a','b'))"));
    EXPECT_THAT(structure.warnings, ElementsAre(HasSubstr("'broken' is left out")));
    EXPECT_TRUE(structure.catalogs.at(0).schemas.at(0).isDefault);
    m_server.executeScript(m_name, "CREATE TABLE t (a int PRIMARY KEY); CREATE TABLE plain (a int)");
}

TEST_F(Mariadb, ReadsAllDatabasesWhereTheUrlNamesNone) {
    m_server.execute("", "CREATE DATABASE other");
    m_server.execute("other", "CREATE TABLE c (a int, FOREIGN KEY (a) REFERENCES " + m_name + ".t (a))");
    const host::DatabaseStructure structure = probeStructure(m_server.makeUrl("reader", ""));
    EXPECT_THAT(describeStructure(structure),
                ElementsAre("other.c (a int(11)) FK (a) -> " + m_name + ".t (a)", m_name + ".plain (a int(11))",
                            m_name + ".t (a int(11), b text) PK (a)"));
    EXPECT_FALSE(structure.catalogs.at(0).schemas.at(0).isDefault);
    m_server.execute("", "DROP DATABASE other");
}

TEST_F(Mariadb, ReadsTheDetailOnRequest) {
    m_server.execute(m_name,
                     "CREATE TABLE d (a int NOT NULL DEFAULT 7 CHECK (a > 0), b varchar(9) UNIQUE COMMENT 'A "
                     "name') COMMENT 'What it is'");
    const host::RelationDescription table =
        probeStructure(url(), host::StructureDetail::Full).catalogs.at(0).schemas.at(0).tables.at(0);
    EXPECT_EQ(table.comment, "What it is");
    EXPECT_FALSE(table.columns[0].isNullable);
    EXPECT_EQ(table.columns[0].defaultText, "7");
    EXPECT_EQ(table.columns[1].comment, "A name");
    EXPECT_THAT(table.constraints, ElementsAre("CHECK (`a` > 0)"));
    EXPECT_THAT(table.indexes, ElementsAre("UNIQUE (b)"));
}

TEST_F(Mariadb, TellsTheServersVersion) {
    host::Database database(url());
    (void)database.readStructure(host::StructureDetail::Keys, {});
    EXPECT_THAT(database.obtainVersion(), testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+-MariaDB"));
    EXPECT_EQ(database.obtainEngine().name, "MariaDB");
    EXPECT_EQ(host::Database(m_server.makeUrl("reader", m_name, "mysql")).obtainEngine().name, "MySQL");
}

TEST_F(Mariadb, TakesThePasswordFromTheEnginesOwnPlacesAlone) {
    m_server.execute("", "GRANT SELECT ON *.* TO guarded@localhost");
    EXPECT_EQ(run("SELECT 1", "guarded").code, ExitCode::Database);
    const ProbeOutcome refused = run("SELECT 1", "guarded:open%20sesame");
    EXPECT_EQ(refused.code, ExitCode::Usage);
    EXPECT_THAT(refused.error, HasSubstr("a password is never taken from the command line"));
    EXPECT_THAT(refused.error, testing::Not(HasSubstr("sesame")));

    setenv("MYSQL_PWD", "open sesame", 1);
    EXPECT_EQ(run("SELECT 1", "guarded").code, ExitCode::Done);
    unsetenv("MYSQL_PWD");

    const TestFolder folder;
    (void)folder.write(".my.cnf", "[client]\npassword=\"open sesame\"\n");
    const std::string home = getenv("HOME") != nullptr ? getenv("HOME") : "";
    setenv("HOME", folder.name("").c_str(), 1);
    EXPECT_EQ(run("SELECT 1", "guarded").code, ExitCode::Done);
    setenv("HOME", home.c_str(), 1);
}

TEST_F(Mariadb, SaysWhatIsWrongWithAUrl) {
    EXPECT_THAT(probe("mysql://a@127.0.0.1:1/x", "SELECT 1").error,
                HasSubstr("cannot open the database 'mysql://a@127.0.0.1:1/x'"));
    EXPECT_EQ(probe("mysql://a@h:99999/x", "SELECT 1").code, ExitCode::Usage);
    EXPECT_THAT(probe("mysql://a@h/x?compress=1", "SELECT 1").error, HasSubstr("an unknown parameter 'compress'"));
}

}  // namespace
