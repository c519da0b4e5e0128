// The commands of a chat.

#include <filesystem>

#include "kai_test.h"

namespace {

using testing::HasSubstr;
using testing::SizeIs;

class KaiCommands : public KaiTest {
protected:
    void SetUp() override { start(); }

    KaiOutcome chat(const std::string& input, const Words& more = {}) {
        return run(Words{"chat"} + turn() + more, input);
    }
};

TEST_F(KaiCommands, ShowTablesColumnsAndKeys) {
    const KaiOutcome outcome = chat("\\tables\n/schema visits\n\\schema none\n");
    EXPECT_THAT(outcome.output, HasSubstr("cities (3 columns)\nvisits (3 columns)\n"));
    EXPECT_THAT(outcome.output, HasSubstr("  city_id INTEGER\n  no INTEGER\n  day DATE\n  primary key: city_id, no\n"
                                          "  city_id -> cities (id)\n"));
    EXPECT_THAT(outcome.errors, HasSubstr("there is no table or view 'none'; \\tables lists them"));
    EXPECT_EQ(m_emulator->obtainServer().countRequests(), 0U);
}

TEST_F(KaiCommands, ShowThePromptToTheLetter) {
    EXPECT_EQ(chat("\\prompt\n").output, run({"prompt", "--db", m_database}).output);
}

TEST_F(KaiCommands, ListModelsAndChangeTheModel) {
    const KaiOutcome outcome = chat("\\model\n\\model model-b\nq\n");
    EXPECT_THAT(outcome.output, testing::StartsWith("* model-a\n  model-b\n"));
    EXPECT_EQ(listQuestions().at(0)["model"], "model-b");
}

TEST_F(KaiCommands, SendTheDatabasesErrorBackTwiceAtMost) {
    for (int i = 0; i < 3; ++i) {
        m_emulator->queueAnswer(answerWithSql("SELECT gone;"));
    }
    const KaiOutcome outcome = chat("q\n\\fix\n\\fix\n\\fix\n", {"--run"});
    EXPECT_THAT(listQuestions(), SizeIs(3));
    EXPECT_THAT(listQuestions().at(1)["messages"].back()["content"].get<std::string>(),
                HasSubstr("no such column: gone"));
    EXPECT_THAT(outcome.output, HasSubstr("Sent back (1 of 2): "));
    EXPECT_THAT(outcome.errors, HasSubstr("the SQL was sent back 2 times already"));
    EXPECT_EQ(outcome.code, 2);
}

TEST_F(KaiCommands, ExplainTheSql) {
    m_emulator->queueAnswer(answerWithSql("SELECT * FROM cities;"));
    EXPECT_THAT(chat("q\n\\explain\n").output, HasSubstr("SCAN cities"));
}

TEST_F(KaiCommands, SaveLoadForgetAndExport) {
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("first"));
    const std::string saved = m_folder.name("talk.kai");
    const std::string exported = m_folder.name("talk.md");
    const KaiOutcome outcome = chat("one\n\\save " + saved + "\n\\forget\ntwo\n\\load " + saved + "\nthree\n\\export " +
                                    exported + "\n\\export " + exported + "\n");
    ASSERT_THAT(listQuestions(), SizeIs(3));
    EXPECT_THAT(listQuestions().at(1)["messages"], SizeIs(2));
    EXPECT_THAT(listQuestions().at(2)["messages"], SizeIs(4));
    EXPECT_THAT(readFile(exported), testing::StartsWith("## one\n\nfirst\n\n## three\n\nAnswer "));
    EXPECT_THAT(outcome.errors, HasSubstr("exists; name a new file"));
    EXPECT_EQ(outcome.code, 2);
}

TEST_F(KaiCommands, BeginAnewWithAnotherProvider) {
    start("google");
    m_environment["XDG_CONFIG_HOME"] = m_folder.name("config");
    std::filesystem::create_directories(m_folder.name("config/kai"));
    static_cast<void>(m_folder.write("config/kai/config", "ca-file = " + m_emulator->obtainServer().obtainCAFile() +
                                                              "\n[google]\nhost = " + m_emulator->obtainHost() + "\n"));
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("from google"));
    const KaiOutcome outcome =
        run({"chat", "--provider", "deepseek", "--api-host", "127.0.0.1:1", "--db", m_database, "--model", "model-a"},
            "\\provider google model-b\nq\n");
    EXPECT_EQ(outcome.output, "from google\n");
    EXPECT_THAT(outcome.errors, HasSubstr("a new conversation with google, model model-b"));
    EXPECT_EQ(outcome.code, 0);
}

TEST_F(KaiCommands, AreNamedWhereSqlFails) {
    m_emulator->queueAnswer(answerWithSql("SELECT gone;"));
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("no SQL"));
    const auto process = launch(Words{"chat", "--run"} + turn(), ChildProcess::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("q\n");
    ASSERT_TRUE(process->waitForOutput("no such column: gone\r\n\\fix sends this to the model.\r\n"));
    process->write("\\frob\n");
    ASSERT_TRUE(process->waitForOutput("there is no such command; \\help shows them\r\n"));
    process->write("\\fix\n");
    ASSERT_TRUE(process->waitForOutput("the answer has no SQL to run\r\n"));
    process->write("\\quit\n");
    EXPECT_EQ(process->wait(), 1);
    EXPECT_EQ(process->obtainOutput().find("\\fix sends"), process->obtainOutput().rfind("\\fix sends"));
}

TEST_F(KaiCommands, NeedTheirArguments) {
    const KaiOutcome outcome = chat("\\schema\n\\save\n\\edit\n\\fix\n\\provider acme x\n");
    EXPECT_EQ(
        outcome.errors,
        "kai: \\schema takes NAME\nkai: \\save takes FILE\nkai: \\edit needs a terminal\n"
        "kai: the last SQL did not fail\nkai: unknown provider; choose one of deepseek, google, ollama, openai\n");
}

TEST_F(KaiCommands, EditTheSqlBeforeItRuns) {
    m_emulator->queueAnswer(answerWithSql("SELECT 40"));
    const auto process = launch(Words{"chat"} + turn(), ChildProcess::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("q\n");
    ASSERT_TRUE(process->waitForOutput("Run this SQL, for reading only? [y/N] "));
    process->write("\n\\edit\n");
    ASSERT_TRUE(process->waitForOutput("sql> "));
    process->write(" + 2 AS sum\n");
    ASSERT_TRUE(process->waitForOutput("(1 row)"));
    EXPECT_THAT(process->obtainOutput(), HasSubstr("42"));
    process->write("\\quit\n");
    EXPECT_EQ(process->wait(), 0);
}

}  // namespace
