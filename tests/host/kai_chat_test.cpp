#include "kai_test.h"

namespace {

using testing::HasSubstr;

class KaiChat : public KaiTest {
protected:
    KaiOutcome chat(const std::string& input, const Words& more = {}) {
        return run(Words{"chat"} + turn() + more, input);
    }
};

TEST_F(KaiChat, AnswersEachLineAndPrintsNoPromptIntoAPipe) {
    start();
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("first"));
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("second"));
    const KaiOutcome outcome = chat("one\n\n  two  \n");
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output, "first\n\nsecond\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(KaiChat, SendsTheHistoryAlongOnOneConnection) {
    start();
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("first"));
    ASSERT_EQ(chat("one\ntwo\n").code, 0);
    const KAIEmulatorJson messages = listQuestions().at(1)["messages"];
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages[1]["content"], "one");
    EXPECT_EQ(messages[2]["content"], "first");
    EXPECT_EQ(messages[3]["content"], "two");
    EXPECT_EQ(m_emulator->obtainServer().countConnections(), 1U);
}

TEST_F(KaiChat, AnswersALastLineWithoutALineEnd) {
    start();
    ASSERT_EQ(chat("one\ntwo").code, 0);
    EXPECT_EQ(listQuestions().size(), 2U);
}

TEST_F(KaiChat, RunsTheSqlOfTheLastAnswerOnCommand) {
    start().queueAnswer(KAIEmulatedAnswer::say("```sql\nSELECT 1 AS a;\n```\n```sql\nSELECT 2 AS b;\n```"));
    const KaiOutcome outcome = chat("q\n/run 2\n/run\n/sql\n");
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, testing::EndsWith("```\n"
                                                  "\nb\n-\n2\n(1 row)\n"
                                                  "\na\n-\n1\n(1 row)\n\nb\n-\n2\n(1 row)\n"
                                                  "SELECT 1 AS a;\nSELECT 2 AS b;\n"));
}

TEST_F(KaiChat, RunsTheSqlOfEachAnswerWhenAsked) {
    start().queueAnswer(answerWithSql("SELECT 7 AS seven;"));
    EXPECT_THAT(chat("q\n", {"--run"}).output, testing::EndsWith("\nseven\n-----\n    7\n(1 row)\n"));
}

TEST_F(KaiChat, GoesOnAfterAFailureAndTellsOfItInTheExitCode) {
    start();
    m_emulator->queueAnswer(KAIEmulatedAnswer::refuse(500, "broken"));
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("fine"));
    const KaiOutcome outcome = chat("one\ntwo\n");
    EXPECT_EQ(outcome.code, 4);
    EXPECT_EQ(outcome.output, "fine\n");
    EXPECT_THAT(outcome.errors, HasSubstr("broken"));
    EXPECT_EQ(listQuestions().at(1)["messages"].size(), 2U);
}

TEST_F(KaiChat, TellsOfFailedSqlInTheExitCode) {
    start().queueAnswer(answerWithSql("SELECT gone;"));
    EXPECT_EQ(chat("one\n", {"--run"}).code, 1);
}

TEST_F(KaiChat, KnowsItsCommands) {
    start();
    const KaiOutcome outcome = chat("/help\n/run\n/sql\n/run 0\n/frob\n/quit\nnever asked\n");
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.output, HasSubstr("\\run [N]"));
    EXPECT_EQ(outcome.errors,
              "kai: the answer has no SQL to run\nkai: the last answer has no SQL\n"
              "kai: \\run takes the number of a block, from 1\nkai: there is no such command; \\help shows them\n");
    EXPECT_EQ(m_emulator->obtainServer().countRequests(), 0U);
}

TEST_F(KaiChat, AsksOnATerminalBeforeSqlRuns) {
    start().queueAnswer(answerWithSql("SELECT 5 AS five;"));
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn(), ChildProcessSetup::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("question\n");
    ASSERT_TRUE(process->waitForOutput("Run this SQL, for reading only? [y/N] "));
    process->write("y\n");
    ASSERT_TRUE(process->waitForOutput("(1 row)"));
    process->write("\x04");
    EXPECT_EQ(process->wait(), 0);
}

}  // namespace
