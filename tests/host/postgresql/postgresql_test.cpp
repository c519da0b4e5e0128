#include <gmock/gmock.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>

#include "engine/database_probe.h"
#include "postgresql/postgresql_server.h"
#include "test_folder.h"

namespace {

using host::ExitCode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A database of its own for each test, on the one server of the process.
class Postgresql : public testing::Test {
protected:
    Postgresql() {
        m_server.execute("postgres", "CREATE DATABASE " + m_name);
        execute("CREATE TABLE t (a int PRIMARY KEY, b text); INSERT INTO t VALUES (1, 'one'), (2, NULL)");
        execute("GRANT ALL ON t TO PUBLIC; GRANT ALL ON SCHEMA public TO PUBLIC");
    }
    ~Postgresql() override { m_server.execute("postgres", "DROP DATABASE " + m_name + " WITH (FORCE)"); }

    void execute(const std::string& sql) const { m_server.execute(m_name, sql); }
    [[nodiscard]] std::string url(const std::string& user = "reader") const { return m_server.makeUrl(user, m_name); }
    [[nodiscard]] ProbeOutcome run(const std::string& script, const std::string& user = "reader") const {
        return probe(url(user), script, m_limits);
    }

    /// The statements fail with a text that has this in it, for everybody, and the data are as they were.
    void expectRefusal(const std::string& script, const std::string& text) const {
        for (const char* user : {"reader", "kai"}) {
            const ProbeOutcome outcome = run(script, user);
            EXPECT_EQ(outcome.code, ExitCode::SqlFailed) << user << ": " << script;
            EXPECT_THAT(outcome.error, HasSubstr(text)) << user << ": " << script;
            EXPECT_THAT(m_server.query(m_name, "SELECT a || coalesce(b, '') FROM t ORDER BY a"),
                        ElementsAre("1one", "2"))
                << script;
        }
    }

    PostgresqlServer& m_server = PostgresqlServer::obtain();
    std::string m_name = []() {
        static int count = 0;
        return "test" + std::to_string(++count);
    }();
    host::QueryLimits m_limits;
};

TEST_F(Postgresql, GivesColumnsAndRowsByTheirKinds) {
    const ProbeOutcome outcome =
        run("SELECT 1 AS n, 'x' AS t, NULL AS nothing, true AS yes, '\\x00ff'::bytea AS blob, 1.50::numeric, "
            "'NaN'::float8, date '2026-11-21'");
    ASSERT_EQ(outcome.code, ExitCode::Done) << outcome.error;
    const host::ResultTable& table = outcome.tables.at(0);
    EXPECT_EQ(table.columns[0], "n");
    using Kind = host::Cell::Kind;
    std::vector<std::pair<Kind, std::string>> cells;
    for (const host::Cell& cell : table.rows.at(0)) {
        cells.emplace_back(cell.kind, cell.bytes);
    }
    using Pair = std::pair<Kind, std::string>;
    EXPECT_THAT(cells,
                ElementsAre(Pair(Kind::Number, "1"), Pair(Kind::Text, "x"), Pair(Kind::Null, ""),
                            Pair(Kind::Boolean, "true"), Pair(Kind::Blob, std::string("\0\xff", 2)),
                            Pair(Kind::Number, "1.50"), Pair(Kind::Text, "NaN"), Pair(Kind::Text, "2026-11-21")));
}

TEST_F(Postgresql, RunsSeveralStatementsOneByOne) {
    const ProbeOutcome outcome = run("-- first\nSELECT 1; SELECT ';' AS \"a;b\" /* ; /* ; */ */; SELECT $q$;$q$;;");
    ASSERT_EQ(outcome.code, ExitCode::Done) << outcome.error;
    EXPECT_EQ(outcome.count, 3U);
    ASSERT_EQ(outcome.tables.size(), 3U);
    EXPECT_EQ(outcome.tables[1].columns[0], "a;b");
    EXPECT_EQ(outcome.tables[2].rows[0][0].bytes, ";");
}

TEST_F(Postgresql, GivesColumnsWithoutRows) {
    const ProbeOutcome outcome = run("SELECT a, b FROM t WHERE a > 5");
    EXPECT_THAT(outcome.tables.at(0).columns, ElementsAre("a", "b"));
    EXPECT_THAT(outcome.tables.at(0).rows, IsEmpty());
}

TEST_F(Postgresql, RunsExplainShowTableAndValues) {
    EXPECT_EQ(run("EXPLAIN ANALYZE SELECT * FROM t").code, ExitCode::Done);
    EXPECT_EQ(run("SHOW transaction_read_only").obtainValue(), "on");
    EXPECT_EQ(run("TABLE t").tables.at(0).rows.size(), 2U);
    EXPECT_EQ(run("VALUES (1), (2)").tables.at(0).rows.size(), 2U);
}

TEST_F(Postgresql, LimitsRowsAndGoesOn) {
    m_limits.maxRows = 3;
    const ProbeOutcome outcome = run("SELECT generate_series(1, 1000000); SELECT 1");
    ASSERT_EQ(outcome.code, ExitCode::Done) << outcome.error;
    EXPECT_EQ(outcome.tables.at(0).rows.size(), 3U);
    EXPECT_EQ(outcome.tables.at(0).cut, host::ResultCut::Rows);
    EXPECT_EQ(outcome.tables.at(1).cut, host::ResultCut::None);
}

TEST_F(Postgresql, LimitsBytes) {
    m_limits.maxBytes = 100'000;
    const ProbeOutcome outcome = run("SELECT repeat('x', 30000) FROM generate_series(1, 1000)");
    EXPECT_EQ(outcome.tables.at(0).rows.size(), 3U);
    EXPECT_EQ(outcome.tables.at(0).cut, host::ResultCut::Bytes);
}

TEST_F(Postgresql, KeepsTheBeginningOfALongValueAndItsSize) {
    m_limits.maxCellBytes = 10;
    const ProbeOutcome outcome = run("SELECT repeat('x', 1000), decode(repeat('ff', 1000), 'hex')");
    EXPECT_EQ(outcome.tables.at(0).rows[0][0].bytes, std::string(10, 'x'));
    EXPECT_EQ(outcome.tables.at(0).rows[0][0].size, 1000U);
    EXPECT_EQ(outcome.tables.at(0).rows[0][1].bytes, std::string(10, '\xff'));
    EXPECT_EQ(outcome.tables.at(0).rows[0][1].size, 1000U);
}

TEST_F(Postgresql, EndsAStatementThatRunsTooLong) {
    m_limits.maxTime = std::chrono::seconds{1};
    for (const char* sql : {"SELECT pg_sleep(3600)", "SELECT count(*) FROM generate_series(1, 100000000000)"}) {
        const auto start = std::chrono::steady_clock::now();
        const ProbeOutcome outcome = run(sql);
        EXPECT_THAT(outcome.error, HasSubstr("it ran longer than the limit of 1 s"));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{30});
    }
}

TEST_F(Postgresql, RefusesWhatWrites) {
    expectRefusal("INSERT INTO t VALUES (3, 'x')", "'INSERT', which is no query");
    expectRefusal("INSERT INTO t VALUES (3, 'x') RETURNING a", "cannot execute INSERT in a read-only transaction");
    expectRefusal("WITH d AS (DELETE FROM t RETURNING a) SELECT * FROM d", "cannot execute SELECT in a read-only");
    expectRefusal("/* SELECT */ DELETE FROM t -- SELECT", "'DELETE', which is no query");
    expectRefusal("EXPLAIN ANALYZE DELETE FROM t", "read-only transaction");
    expectRefusal("DROP TABLE t", "'DROP', which is no query");
    expectRefusal("DO $$ BEGIN DELETE FROM t; END $$", "'DO', which is no query");
    expectRefusal("SELECT 1; DELETE FROM t", "'DELETE', which is no query");
}

TEST_F(Postgresql, RefusesToLeaveTheTransaction) {
    expectRefusal("COMMIT; DROP TABLE t", "'COMMIT', which is no query");
    expectRefusal("ROLLBACK; BEGIN READ WRITE; DELETE FROM t; COMMIT", "'ROLLBACK', which is no query");
    expectRefusal("SET TRANSACTION READ WRITE; DELETE FROM t", "'SET', which is no query");
    expectRefusal("SET default_transaction_read_only = off", "'SET', which is no query");
    expectRefusal("SELECT set_config('transaction_read_only', 'off', true)", "the function 'set_config'");
    expectRefusal("SELECT SET_CONFIG('role', 'none', true), pg_catalog.\"set_config\"('a.b', '', true)",
                  "the function 'set_config'");
    expectRefusal("SELECT U&\"\\0073et_config\"('role', 'none', true)", "a name or text in the form U&");
}

TEST_F(Postgresql, RefusesSeveralStatementsThatPassForOne) {
    // Were a text split at the wrong place, the server would still take no two statements at once.
    expectRefusal("SELECT E'\\'; DELETE FROM t; --'; DELETE FROM t; --'", "");
    expectRefusal("SELECT '\\'; DELETE FROM t; --'", "'DELETE', which is no query");
}

TEST_F(Postgresql, RefusesFunctionsThatWrite) {
    execute("CREATE FUNCTION wipe() RETURNS int LANGUAGE plpgsql AS $$ BEGIN DELETE FROM t; RETURN 1; END $$");
    execute(
        "CREATE FUNCTION wipe_as_owner() RETURNS int LANGUAGE plpgsql SECURITY DEFINER AS "
        "$$ BEGIN DELETE FROM t; RETURN 1; END $$; CREATE SEQUENCE s");
    expectRefusal("SELECT wipe()", "cannot execute DELETE in a read-only transaction");
    expectRefusal("SELECT wipe_as_owner()", "cannot execute DELETE in a read-only transaction");
    expectRefusal("SELECT nextval('s')", "");
    expectRefusal("SELECT lo_create(4711)", "the function 'lo_create'");
    expectRefusal("SELECT pg_notify('a', 'b')", "the function 'pg_notify'");
}

TEST_F(Postgresql, RefusesToReachOutsideTheDatabase) {
    const std::string file = m_server.name("stolen");
    expectRefusal("COPY t TO PROGRAM 'cat > " + file + "'", "'COPY', which is no query");
    expectRefusal("COPY t TO '" + file + "'", "'COPY', which is no query");
    expectRefusal("SELECT lo_export(1, '" + file + "')", "the function 'lo_export'");
    expectRefusal("SELECT pg_read_file('PG_VERSION')", "the function 'pg_read_file*'");
    expectRefusal("SELECT * FROM dblink('dbname=postgres', 'SELECT 1') AS d (n int)", "the function 'dblink*'");
    expectRefusal("SELECT dblink_exec('" + url() + "', 'DELETE FROM t')", "the function 'dblink*'");
    expectRefusal("SELECT pg_terminate_backend(pid) FROM pg_stat_activity", "the function 'pg_terminate_backend'");
    expectRefusal("SELECT pg_advisory_lock(1)", "the function 'pg_advisory_*'");
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Postgresql, PutsASuperusersRightsAside) {
    EXPECT_EQ(run("SELECT current_user", "kai").obtainValue(), "pg_read_all_data");
    EXPECT_EQ(run("SELECT current_user", "reader").obtainValue(), "reader");
    // Functions that nobody has thought of need rights that the session does not have.
    execute("CREATE FUNCTION peek() RETURNS text LANGUAGE sql AS $$ SELECT pg_read_file('PG_VERSION') $$");
    expectRefusal("SELECT peek()", "permission denied for function pg_read_file");
}

TEST_F(Postgresql, SaysWhatIsWrongWithAStatement) {
    expectRefusal("SELECT gone FROM t", "column \"gone\" does not exist");
    expectRefusal("SELEC 1", "syntax error");
    expectRefusal("SELECT $1::int", "a parameter without a value");
    expectRefusal("SELECT 1/0", "division by zero");
}

TEST_F(Postgresql, ReadsTheStructure) {
    execute(
        "CREATE SCHEMA sales; CREATE TYPE mood AS ENUM ('ok'); CREATE DOMAIN zip AS varchar(5);"
        "CREATE TABLE sales.p (x int, y varchar(10), PRIMARY KEY (y, x));"
        "CREATE TABLE o (id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY, m mood, z zip, n numeric(10,2)[], "
        "w timestamptz(3), px int, py varchar(10), up bigint REFERENCES o, gone int, "
        "FOREIGN KEY (py, px) REFERENCES sales.p (y, x)); ALTER TABLE o DROP COLUMN gone;"
        "CREATE VIEW v AS SELECT id, m FROM o; CREATE MATERIALIZED VIEW sales.mv AS SELECT a FROM t;"
        "CREATE TABLE part (d date, k int REFERENCES t, PRIMARY KEY (d, k)) PARTITION BY RANGE (d);"
        "CREATE TABLE part1 PARTITION OF part FOR VALUES FROM ('2026-01-01') TO ('2027-01-01');"
        "CREATE TABLE child (d date, k int, FOREIGN KEY (d, k) REFERENCES part)");
    EXPECT_THAT(describeStructure(probeStructure(url())),
                ElementsAre("public.t (a integer, b text) PK (a)",
                            "public.o (id bigint, m mood, z zip, n numeric(10,2)[], w timestamp(3) with time zone, "
                            "px integer, py character varying(10), up bigint) PK (id) FK (up) -> o (id) FK (py, px) -> "
                            "sales.p (y, x)",
                            "public.part (d date, k integer) PK (d, k) FK (k) -> t (a)",
                            "public.child (d date, k integer) FK (d, k) -> part (d, k)", "public.v (id bigint, m mood)",
                            "sales.p (x integer, y character varying(10)) PK (y, x)", "sales.mv (a integer)"));
}

TEST_F(Postgresql, NeedsNoQualifierForTheSchemasOfTheSearchPath) {
    EXPECT_TRUE(probeStructure(url()).catalogs.at(0).schemas.at(0).isDefault);
    execute("CREATE SCHEMA other; CREATE TABLE other.t (a int)");
    const auto schemas = probeStructure(url()).catalogs.at(0).schemas;
    EXPECT_FALSE(schemas.at(0).isDefault);
    EXPECT_TRUE(schemas.at(1).isDefault);
}

TEST_F(Postgresql, ReadsTheDetailOnRequest) {
    execute(
        "CREATE TABLE d (a int NOT NULL DEFAULT 7 CHECK (a > 0), b text UNIQUE); COMMENT ON TABLE d IS 'What it is';"
        "COMMENT ON COLUMN d.b IS 'A name'");
    const host::RelationDescription table =
        probeStructure(url(), host::StructureDetail::Full).catalogs.at(0).schemas.at(0).tables.at(1);
    EXPECT_EQ(table.comment, "What it is");
    EXPECT_FALSE(table.columns[0].isNullable);
    EXPECT_EQ(table.columns[0].defaultText, "7");
    EXPECT_EQ(table.columns[1].comment, "A name");
    EXPECT_THAT(table.constraints, ElementsAre("CHECK ((a > 0))"));
    EXPECT_THAT(table.indexes, ElementsAre(HasSubstr("UNIQUE INDEX d_b_key")));
}

TEST_F(Postgresql, TellsTheServersVersion) {
    host::Database database(url());
    (void)database.readStructure(host::StructureDetail::Keys, {});
    EXPECT_EQ(database.obtainVersion() + " ",
              m_server.query(m_name, "SHOW server_version").at(0).substr(0, database.obtainVersion().size() + 1));
    EXPECT_EQ(database.obtainEngine().name, "PostgreSQL");
}

TEST_F(Postgresql, TakesThePasswordFromTheEnginesOwnPlacesAlone) {
    EXPECT_THAT(run("SELECT 1", "guarded").error, HasSubstr("set PGPASSWORD or write the password into ~/.pgpass"));
    const ProbeOutcome refused = run("SELECT 1", "guarded:open%20sesame");
    EXPECT_EQ(refused.code, ExitCode::Usage);
    EXPECT_THAT(refused.error, HasSubstr("a password is never taken from the command line"));
    EXPECT_THAT(refused.error, testing::Not(HasSubstr("sesame")));

    setenv("PGPASSWORD", "open sesame", 1);
    EXPECT_EQ(run("SELECT 1", "guarded").code, ExitCode::Done);
    unsetenv("PGPASSWORD");

    const TestFolder folder;
    const std::string passwords = folder.write("pgpass", "*:*:*:guarded:open sesame\n");
    std::filesystem::permissions(passwords, std::filesystem::perms::owner_read);
    setenv("PGPASSFILE", passwords.c_str(), 1);
    EXPECT_EQ(run("SELECT 1", "guarded").code, ExitCode::Done);
    unsetenv("PGPASSFILE");
}

TEST_F(Postgresql, SaysWhyItCannotBeOpened) {
    const ProbeOutcome outcome = probe("postgresql://nobody@/none?host=" + m_server.name(""), "SELECT 1");
    EXPECT_EQ(outcome.code, ExitCode::Database);
    EXPECT_THAT(outcome.error, HasSubstr("cannot open the database 'postgresql://nobody@/none'"));
    EXPECT_THAT(probe("postgresql://127.0.0.1:1/x", "SELECT 1").error, HasSubstr("Connection refused"));
}

}  // namespace
