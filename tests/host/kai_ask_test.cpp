#include <filesystem>
#include <iterator>

#include "kai_test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class KaiAsk : public KaiTest {
protected:
    KaiOutcome ask(const Words& more = {}) { return run(Words{"ask"} + turn() + more + Words{"How many?"}); }
};

TEST_F(KaiAsk, PrintsTheAnswer) {
    start().queueAnswer(KAIEmulatedAnswer::say("There are three.\n\tŁódź is one."));
    const KaiOutcome outcome = ask();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "There are three.\n\tŁódź is one.\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(KaiAsk, SendsTheStructureTheDialectAndTheQuestion) {
    start();
    ASSERT_EQ(ask().code, 0);
    const KAIEmulatorJson body = listQuestions().at(0);
    EXPECT_EQ(body["model"], "model-a");
    EXPECT_FALSE(body.contains("temperature"));
    ASSERT_EQ(body["messages"].size(), 2U);
    EXPECT_EQ(body["messages"][0]["role"], "system");
    const auto system = body["messages"][0]["content"].get<std::string>();
    EXPECT_THAT(system, HasSubstr("SQLite dialect"));
    EXPECT_THAT(system, HasSubstr("CREATE TABLE `cities` (`id` INTEGER, `name` TEXT, `people` INTEGER, "
                                  "PRIMARY KEY(`id`))\n"));
    EXPECT_THAT(system, HasSubstr("CREATE TABLE `visits` (`city_id` INTEGER, `no` INTEGER, `day` DATE, "
                                  "PRIMARY KEY(`city_id``no`), "
                                  "FOREIGN KEY(`city_id`) REFERENCES `cities`(`id`))\n"));
    EXPECT_THAT(system, testing::Not(HasSubstr("Graz")));
    EXPECT_EQ(body["messages"][1], (KAIEmulatorJson{{"role", "user"}, {"content", "How many?"}}));
}

TEST_F(KaiAsk, SendsTemperatureAndInstructions) {
    start();
    ASSERT_EQ(ask({"--temperature", "0.25", "--instructions", "Answer in rhyme."}).code, 0);
    const KAIEmulatorJson body = listQuestions().at(0);
    EXPECT_EQ(body["temperature"], 0.25);
    EXPECT_THAT(body["messages"][0]["content"].get<std::string>(), testing::StartsWith("Answer in rhyme.\n\n"));
}

TEST_F(KaiAsk, ReadsTheQuestionFromStandardInput) {
    start();
    ASSERT_EQ(run(Words{"ask"} + turn() + Words{"-"}, "line one\nline two\n\n").code, 0);
    EXPECT_EQ(listQuestions().at(0)["messages"].back()["content"], "line one\nline two");
    expectFailure(run(Words{"ask"} + turn() + Words{"-"}, "\n \n"), 2, "the question on standard input is empty");
}

TEST_F(KaiAsk, ReadsTheKeyFromAFile) {
    start();
    m_environment.erase("DEEPSEEK_API_KEY");
    const std::string fileName = m_folder.write("key", std::string(kKey) + "\r\nnotes\n");
    std::filesystem::permissions(fileName, std::filesystem::perms(0600));
    EXPECT_EQ(ask({"--key-file", fileName}).errors, "");
    std::filesystem::permissions(fileName, std::filesystem::perms(0644));
    const KaiOutcome outcome = ask({"--key-file", fileName});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.errors, HasSubstr("everybody on this machine can read the key file"));
}

TEST_F(KaiAsk, RunsTheSqlWhenAsked) {
    start().queueAnswer(answerWithSql("SELECT name, people FROM cities ORDER BY id;"));
    const KaiOutcome outcome = ask({"--run"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output,
              "Like this:\n\n```sql\nSELECT name, people FROM cities ORDER BY id;\n```\n"
              "\n"
              "name | people\n"
              "-----+-------\n"
              "Łódź | 670000\n"
              "Graz | 290000\n"
              "Lyon |   NULL\n"
              "(3 rows)\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(KaiAsk, LeavesTheSqlAloneUnlessAsked) {
    start().queueAnswer(answerWithSql("SELECT 1;"));
    EXPECT_THAT(ask().output, testing::Not(HasSubstr("(1 row)")));
}

TEST_F(KaiAsk, RunsSeveralStatementsAndBlocks) {
    start().queueAnswer(
        KAIEmulatedAnswer::say("```sql\nSELECT 1 AS a; SELECT 2 AS b;\n```\nand\n```sql\nSELECT 3 AS "
                               "c;\n```"));
    EXPECT_THAT(ask({"--run"}).output,
                testing::EndsWith("\na\n-\n1\n(1 row)\n\nb\n-\n2\n(1 row)\n\nc\n-\n3\n(1 row)\n"));
}

TEST_F(KaiAsk, LimitsRowsAndCells) {
    start().queueAnswer(answerWithSql("SELECT name, 'abcdefghij' AS text FROM cities ORDER BY id;"));
    EXPECT_THAT(ask({"--run", "--max-rows", "1", "--max-cell", "5"}).output,
                testing::EndsWith("\nname | text\n-----+------\nŁódź | abcd\u2026\n"
                                  "(the first 1 row; there are more: raise --max-rows to see them)\n"));
}

TEST_F(KaiAsk, EndsWithOneWhenTheSqlFails) {
    start().queueAnswer(answerWithSql("SELECT 1; SELECT inhabitants FROM cities;"));
    const KaiOutcome outcome = ask({"--run"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.output, HasSubstr("(1 row)"));
    EXPECT_EQ(outcome.errors, "kai: the model's SQL failed: no such column: inhabitants\n");
}

TEST_F(KaiAsk, EndsWithOneWhenTheSqlRunsTooLong) {
    start().queueAnswer(
        answerWithSql("WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n;"));
    const KaiOutcome outcome = ask({"--run", "--sql-timeout", "1"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("it ran longer than the limit of 1 s"));
}

TEST_F(KaiAsk, PrintsWholeValuesWhenNoCellIsCut) {
    start().queueAnswer(answerWithSql("SELECT printf('%.*c', 100000, 'x') AS long;"));
    const KaiOutcome outcome = ask({"--run", "--max-cell", "0"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, HasSubstr("\n" + std::string(100000, 'x') + "\n(1 row)\n"));
}

TEST_F(KaiAsk, SaysThatThereIsNoSqlToRun) {
    start().queueAnswer(KAIEmulatedAnswer::say("I do not know."));
    const KaiOutcome outcome = ask({"--run"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.output, "I do not know.\n");
    EXPECT_EQ(outcome.errors, "kai: the answer has no SQL to run\n");
}

TEST_F(KaiAsk, SaysThatTheAnswerIsEmpty) {
    start().queueAnswer(KAIEmulatedAnswer::say(""));
    const KaiOutcome outcome = ask();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr("the model gave an empty answer"));
}

TEST_F(KaiAsk, TracesEachExchangeInOneLine) {
    start();
    const KaiOutcome outcome = ask({"--trace"});
    EXPECT_THAT(outcome.errors,
                testing::MatchesRegex("kai: trace: POST https://127\\.0\\.0\\.1:[0-9]+/chat/completions 200, [0-9]+ "
                                      "bytes sent, [0-9]+ received, [0-9]+\\.[0-9]+ s, new connection\n"));
}

TEST_F(KaiAsk, TracesNoKeyInAUrl) {
    start("google");
    const KaiOutcome outcome = ask({"--trace"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr("&key=***"));
}

TEST_F(KaiAsk, SaysWhatADatabaseLacks) {
    start();
    const std::string empty = m_folder.write("empty.db", "");
    const KaiOutcome outcome = run(Words{"ask"} + reach() + Words{"--db", empty, "--model", "model-a", "q"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.errors, HasSubstr("has no tables and no views"));
}

/// The same question to each provider.
class KaiProviders : public KaiTest, public testing::WithParamInterface<const char*> {};

TEST_P(KaiProviders, ListModelsOneALine) {
    start(GetParam());
    const KaiOutcome outcome = run(Words{"models"} + reach());
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "model-a\nmodel-b\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_P(KaiProviders, SayThatThereAreNoModels) {
    start(GetParam());
    m_emulator->replyNext({.body = R"({"data":[],"models":[]})"});
    const KaiOutcome outcome = run(Words{"models"} + reach());
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr("lists no models that can be used here"));
}

TEST_P(KaiProviders, AnswerAQuestionWithSqlThatRuns) {
    start(GetParam()).queueAnswer(answerWithSql("SELECT count(*) AS n FROM cities;"));
    const KaiOutcome outcome = run(Words{"ask", "--run", "--temperature", "0.5"} + turn() + Words{"How many?"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, testing::EndsWith("```\n\nn\n-\n3\n(1 row)\n"));
    EXPECT_EQ(outcome.errors, "");
    EXPECT_THAT(m_emulator->listLeft(), testing::IsEmpty());
}

TEST_P(KaiProviders, SendTheSamePromptThatIsShown) {
    start(GetParam());
    std::string instructions;
    m_emulator->answerWith([&](const KAIEmulatedTurn& turn) {
        instructions = turn.instructions;
        return KAIEmulatedAnswer::say("ok");
    });
    ASSERT_EQ(run(Words{"ask"} + turn() + Words{"q"}).code, 0);
    EXPECT_EQ(run({"prompt", "--db", m_database}).output, instructions);
}

INSTANTIATE_TEST_SUITE_P(All, KaiProviders, testing::Values("deepseek", "google", "ollama", "openai"),
                         [](const auto& test) { return std::string(test.param); });

class KaiPrompt : public KaiTest {};

TEST_F(KaiPrompt, NeedsNeitherAKeyNorANetwork) {
    m_environment.clear();
    const KaiOutcome outcome = run({"prompt", "--db", m_database, "--instructions", "Be brief."});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.output, testing::StartsWith("Be brief.\n\n"));
    EXPECT_THAT(outcome.output, HasSubstr("CREATE TABLE `cities`"));
}

TEST_F(KaiPrompt, TellsItsSizeOnStandardError) {
    const KaiOutcome outcome = run({"prompt", "--db", m_database});
    EXPECT_THAT(outcome.errors, testing::MatchesRegex("kai: [0-9,]+ bytes, about [0-9,]+ tokens \\(an estimate: 4 "
                                                      "bytes a token\\)\n"));
    std::string digits;
    for (const char character : outcome.errors.substr(5, outcome.errors.find(" bytes") - 5)) {
        digits += character == ',' ? "" : std::string(1, character);
    }
    EXPECT_EQ(digits, std::to_string(outcome.output.size()));
}

TEST_F(KaiPrompt, ReadsACleanWriteAheadDatabaseInAReadOnlyFolder) {
    const std::string folder = m_folder.name("shared");
    std::filesystem::create_directory(folder);
    const std::string database =
        m_folder.makeDatabase("shared/a.db", "PRAGMA journal_mode = WAL; CREATE TABLE t (a INTEGER);");
    const std::filesystem::perms former = std::filesystem::status(folder).permissions();
    std::filesystem::permissions(folder, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    m_isBoundByPermissions = true;
    const KaiOutcome outcome = run({"prompt", "--db", database});
    std::filesystem::permissions(folder, former);
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, HasSubstr("CREATE TABLE `t`"));
    EXPECT_THAT(outcome.errors, testing::MatchesRegex("kai: [0-9]+ bytes, about [0-9]+ tokens .*\n"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

TEST_F(KaiPrompt, WarnsWhereItIsLargerThanOllamasUsualWindow) {
    std::string script;
    for (int i = 0; i < 500; ++i) {
        script +=
            "CREATE TABLE a_rather_long_table_name_" + std::to_string(i) + " (id INTEGER PRIMARY KEY, name TEXT);";
    }
    const std::string large = m_folder.makeDatabase("large.db", script);
    EXPECT_THAT(run({"prompt", "--db", large, "--provider", "ollama"}).errors, HasSubstr("OLLAMA_CONTEXT_LENGTH="));
    EXPECT_THAT(run({"prompt", "--db", large}).errors, testing::Not(HasSubstr("OLLAMA")));
    start("ollama");
    // The model is not in memory yet, so that the server does not tell its window.
    m_emulator->intercept({.pathPart = "/api/ps", .reply = LoopbackReply{.body = R"({"models":[]})"}});
    const KaiOutcome outcome = run(Words{"chat"} + reach() + Words{"--db", large, "--model", "model-a"}, "one\ntwo\n");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors.find("OLLAMA_CONTEXT_LENGTH"), outcome.errors.rfind("OLLAMA_CONTEXT_LENGTH"));
    EXPECT_THAT(outcome.errors, HasSubstr("(an estimate)"));
}

}  // namespace
