// What scripts read: results, SQL and whole turns on standard output, and the exit code.

#include "kai_test.h"

namespace {

using testing::HasSubstr;

class KaiScript : public KaiTest {
protected:
    KaiOutcome ask(const std::string& sql, const Words& more) {
        start().queueAnswer(answerWithSql(sql));
        return run(Words{"ask"} + turn() + more + Words{"How many?"});
    }
};

TEST_F(KaiScript, PrintsTheResultsAlone) {
    const KaiOutcome outcome =
        ask("SELECT name, people FROM cities ORDER BY id; SELECT 1 AS one;", {"--run", "--format", "csv"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "name,people\nŁódź,670000\nGraz,290000\nLyon,\n\none\n1\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(KaiScript, PrintsAnObjectOfEachResult) {
    const KaiOutcome outcome =
        ask("SELECT people FROM cities WHERE id > 1; SELECT 'x';", {"--run", "--format", "json"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output,
              "{\"columns\":[\"people\"],\"rows\":[[290000],[null]],\"truncated\":false}\n"
              "{\"columns\":[\"'x'\"],\"rows\":[[\"x\"]],\"truncated\":false}\n");
}

TEST_F(KaiScript, PrintsTheSqlAlone) {
    const KaiOutcome outcome = ask("SELECT 1;", {"--sql"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "SELECT 1;\n");
}

TEST_F(KaiScript, EndsWithOneWhereThereIsNoSqlToPrint) {
    start().queueAnswer(KAIEmulatedAnswer::say("I do not know."));
    expectFailure(run(Words{"ask", "--sql"} + turn() + Words{"q"}), 1, "the answer has no SQL");
}

TEST_F(KaiScript, PrintsATurnAsOneObject) {
    const KaiOutcome outcome = ask("SELECT count(*) AS n FROM cities;", {"--run", "--json"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    const KAIEmulatorJson turn = KAIEmulatorJson::parse(outcome.output);
    std::vector<std::string> keys;
    for (const auto& member : turn.items()) {
        keys.push_back(member.key());
    }
    EXPECT_THAT(keys, testing::ElementsAre("question", "answer", "sql", "results", "model", "provider", "seconds"));
    EXPECT_EQ(turn.at("question"), "How many?");
    EXPECT_THAT(turn.at("answer").get<std::string>(), HasSubstr("Like this:"));
    EXPECT_EQ(turn.at("sql"), KAIEmulatorJson::array({"SELECT count(*) AS n FROM cities;\n"}));
    EXPECT_EQ(turn.at("results"), KAIEmulatorJson::parse(R"([{"columns":["n"],"rows":[[3]],"truncated":false}])"));
    EXPECT_EQ(turn.at("model"), "model-a");
    EXPECT_EQ(turn.at("provider"), "deepseek");
    EXPECT_GE(turn.at("seconds").get<double>(), 0);
}

TEST_F(KaiScript, PrintsATurnWhoseSqlFailed) {
    const KaiOutcome outcome = ask("SELECT gone;", {"--run", "--json"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(KAIEmulatorJson::parse(outcome.output).at("results").empty());
    EXPECT_THAT(outcome.errors, HasSubstr("no such column: gone"));
}

TEST_F(KaiScript, PrintsOneObjectALineForAChat) {
    start();
    const KaiOutcome outcome = run(Words{"chat", "--json"} + turn(), "one\ntwo\n");
    EXPECT_EQ(outcome.code, 0);
    const std::size_t end = outcome.output.find('\n');
    EXPECT_EQ(KAIEmulatorJson::parse(outcome.output.substr(0, end)).at("question"), "one");
    EXPECT_EQ(KAIEmulatorJson::parse(outcome.output.substr(end + 1)).at("question"), "two");
}

TEST_F(KaiScript, TellsOfACutResultUnlessTheLimitWasGiven) {
    const std::string sql =
        "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 200) SELECT i FROM n;";
    KaiOutcome outcome = ask(sql, {"--run", "--format", "json"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.output, HasSubstr(",[100]],\"truncated\":true}\n"));
    EXPECT_EQ(outcome.errors, "kai: a result was cut after 100 rows; say with --max-rows how many you want\n");
    outcome = ask(sql, {"--run", "--format", "csv", "--max-rows", "5"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "i\n1\n2\n3\n4\n5\n");
}

TEST_F(KaiScript, CutsNoValueThatAProgramReads) {
    const KaiOutcome outcome = ask("SELECT replace(hex(zeroblob(100000)), '00', 'ab');", {"--run", "--format", "csv"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_GT(outcome.output.size(), 200000U);
}

TEST_F(KaiScript, RefusesOptionsThatExcludeEachOther) {
    expectFailure(run(Words{"ask", "--db", m_database, "--format", "csv", "q"}), 2,
                  "--format is for the results of --run");
    expectFailure(run(Words{"ask", "--db", m_database, "--run", "--format", "xml", "q"}), 2,
                  "choose one of table, csv");
    expectFailure(run(Words{"ask", "--db", m_database, "--sql", "--json", "q"}), 2, "exclude each other");
    expectFailure(run(Words{"ask", "--db", m_database, "--sql", "--run", "q"}), 2, "leave out --run");
}

}  // namespace
