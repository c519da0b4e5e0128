#include "engine/database.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "engine/worker_process.h"
#include "host_error.h"
#include "test_folder.h"

namespace {

using host::ExitCode;
using host::QueryLimits;
using host::ResultCut;
using host::ResultTable;
using testing::HasSubstr;

/// One opcode that takes minutes and asks nobody whether it may go on.
constexpr const char* kDeafSql = "SELECT instr(hex(zeroblob(7000000)), hex(zeroblob(3000000)) || '1')";

/// A database as the commands see it: in a process of its own, which is the program's.
class Database : public testing::Test {
protected:
    Database() { host::WorkerProcess::setProgram(KAI_PROGRAM); }

    struct Outcome {
        ExitCode code = ExitCode::Done;
        std::string error;
        std::vector<ResultTable> tables;
        std::size_t count = 0;
    };

    Outcome run(const std::string& script, const host::StopCheck& isStopped = {}) {
        Outcome outcome;
        host::ResultCollector results([&](const ResultTable& table) { outcome.tables.push_back(table); });
        try {
            outcome.count = m_database.run(script, m_limits, results, isStopped);
        } catch (const host::HostError& error) {
            outcome.code = error.obtainCode();
            outcome.error = error.what();
        }
        return outcome;
    }

    TestFolder m_folder;
    host::Database m_database{m_folder.makeDatabase(
        "a.db", "CREATE TABLE t (a INTEGER PRIMARY KEY, b TEXT); INSERT INTO t VALUES (1, 'one'), (2, NULL)")};
    QueryLimits m_limits;
};

TEST_F(Database, ReadsTheStructureAndTheVersion) {
    const host::DatabaseStructure structure = m_database.readStructure(host::StructureDetail::Keys, {});
    const host::RelationDescription& table = structure.catalogs.at(0).schemas.at(0).tables.at(0);
    EXPECT_EQ(table.name, "t");
    EXPECT_EQ(table.columns.at(1).type, "TEXT");
    EXPECT_THAT(table.primaryKey, testing::ElementsAre("a"));
    EXPECT_THAT(m_database.obtainVersion(), testing::StartsWith("3."));
    EXPECT_EQ(m_database.obtainEngine().name, "SQLite");
}

TEST_F(Database, PassesOnTheResultsOfEachStatement) {
    const Outcome outcome = run("SELECT a, b FROM t; SELECT x'00ff' AS \"\xE2\x82\xAC\" WHERE 0;");
    EXPECT_EQ(outcome.count, 2U);
    ASSERT_EQ(outcome.tables.size(), 2U);
    EXPECT_THAT(outcome.tables[0].columns, testing::ElementsAre("a", "b"));
    ASSERT_EQ(outcome.tables[0].rows.size(), 2U);
    EXPECT_EQ(outcome.tables[0].rows[0][0].kind, host::Cell::Kind::Number);
    EXPECT_EQ(outcome.tables[0].rows[0][1].bytes, "one");
    EXPECT_EQ(outcome.tables[0].rows[1][1].kind, host::Cell::Kind::Null);
    EXPECT_THAT(outcome.tables[1].columns, testing::ElementsAre("\xE2\x82\xAC"));
    EXPECT_TRUE(outcome.tables[1].rows.empty());
}

TEST_F(Database, PassesOnRowsBeforeTheLastOne) {
    // The second row never comes: the receiver has the first one all the same.
    m_limits.maxTime = std::chrono::seconds{60};
    bool hasRow = false;
    struct Receiver : host::RowReceiver {
        explicit Receiver(bool& flag) : m_flag(flag) {}
        void beginResult(const std::vector<std::string>&) override {}
        void addRow(std::vector<host::Cell>) override { m_flag = true; }
        void endResult(ResultCut) override {}
        bool& m_flag;
    } receiver(hasRow);
    const std::string script =
        "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 20000) "
        "SELECT i FROM n UNION ALL SELECT count(*) FROM n, n AS m, n AS o";
    m_limits.maxRows = 0;
    EXPECT_THROW(m_database.run(script, m_limits, receiver, [&] { return hasRow; }), host::HostError);
    EXPECT_TRUE(hasRow);
}

TEST_F(Database, PassesOnFailures) {
    const Outcome failed = run("SELECT 1; SELECT gone FROM t");
    EXPECT_EQ(failed.code, ExitCode::SqlFailed);
    EXPECT_THAT(failed.error, HasSubstr("no such column: gone"));
    EXPECT_EQ(failed.tables.size(), 1U);

    host::Database missing(m_folder.name("none.db"));
    try {
        (void)missing.readStructure(host::StructureDetail::Keys, {});
        FAIL() << "the file is not there";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), ExitCode::Database);
        EXPECT_THAT(error.what(), HasSubstr("there is no such file"));
    }
}

TEST_F(Database, EndsAStatementThatListensToNothing) {
    m_limits.maxTime = std::chrono::seconds{1};
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = run(kDeafSql);
    EXPECT_EQ(outcome.code, ExitCode::SqlFailed);
    EXPECT_THAT(outcome.error, HasSubstr("it ran longer than the limit of 1 s"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{30});
}

TEST_F(Database, EndsAStatementThatListensToNothingWhenItIsStopped) {
    m_limits.maxTime = std::chrono::hours{1};
    int checks = 0;
    const Outcome outcome = run(kDeafSql, [&] { return ++checks > 3; });
    EXPECT_EQ(outcome.code, ExitCode::Cancelled);
}

TEST_F(Database, CountsNotTheTimeOfTheReceiver) {
    m_limits.maxTime = std::chrono::milliseconds{0};
    struct Receiver : host::RowReceiver {
        void beginResult(const std::vector<std::string>&) override {}
        void addRow(std::vector<host::Cell>) override {
            // Longer than the limit and its grace together.
            std::this_thread::sleep_for(std::chrono::milliseconds{400});
            ++m_count;
        }
        void endResult(ResultCut) override {}
        int m_count = 0;
    } receiver;
    m_database.run("SELECT 1 UNION ALL SELECT 2", m_limits, receiver, {});
    EXPECT_EQ(receiver.m_count, 2);
}

TEST_F(Database, PassesThroughWhatTheReceiverThrows) {
    host::ResultCollector results([](const ResultTable&) { throw std::out_of_range("enough"); });
    EXPECT_THROW(m_database.run("SELECT 1; SELECT 2", m_limits, results, {}), std::out_of_range);
}

TEST_F(Database, BoundsTheMemoryOfWideResults) {
    std::string columns;
    for (int i = 0; i < 300; ++i) {
        columns += (i == 0 ? "" : ", ") + std::string("printf('%.*c', 80000, 'x')");
    }
    const Outcome outcome =
        run("WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 100) "
            "SELECT " +
            columns + " FROM n");
    ASSERT_EQ(outcome.tables.size(), 1U);
    EXPECT_EQ(outcome.tables[0].cut, ResultCut::Bytes);
    std::size_t bytes = 0;
    for (const auto& row : outcome.tables[0].rows) {
        for (const host::Cell& cell : row) {
            bytes += cell.bytes.size();
        }
    }
    EXPECT_GT(bytes, m_limits.maxBytes / 2);
    EXPECT_LE(bytes, m_limits.maxBytes);
}

TEST_F(Database, SaysHowItsProcessEnded) {
    host::WorkerProcess::setProgram("/bin/false");
    const Outcome outcome = run("SELECT 1");
    EXPECT_EQ(outcome.code, ExitCode::SqlFailed);
    EXPECT_THAT(outcome.error, HasSubstr("the engine ended while it ran (exit code 1)"));
    EXPECT_THROW((void)m_database.readStructure(host::StructureDetail::Keys, {}), host::HostError);
}

/// The children of a process, once it has one.
pid_t waitForChild(pid_t parent) {
    const std::string fileName = "/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent) + "/children";
    for (;;) {
        std::ifstream file(fileName);
        pid_t child = 0;
        if (file >> child) {
            return child;
        }
        std::this_thread::yield();
    }
}

TEST_F(Database, EndsItsProcessWithItself) {
    // Orphans come to this process, so that it can wait for them.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    const pid_t program = fork();
    ASSERT_GE(program, 0);
    if (program == 0) {
        m_limits.maxTime = std::chrono::hours{1};
        run(kDeafSql);
        _exit(0);
    }
    const pid_t worker = waitForChild(program);
    kill(program, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(program, &status, 0), program);
    ASSERT_EQ(waitpid(worker, &status, 0), worker);
    // By the signal, or by itself where the parent was gone before the worker had asked for the signal.
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) != 0);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(Database, RefusesASchemeThatNoEngineHas) {
    try {
        const host::Database database("oracle://scott@host/db");
        FAIL() << "no engine has it";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), ExitCode::Usage);
        EXPECT_THAT(error.what(), HasSubstr("there is no engine for 'oracle://'"));
    }
}

}  // namespace
