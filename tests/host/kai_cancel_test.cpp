// Ctrl-C and the requests to end, while the program waits for a server, for SQL or for the user.

#include <signal.h>

#include "kai_test.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class KaiCancel : public KaiTest {
protected:
    /// The next request gets no answer.
    void stall(const std::string& pathPart = {}) {
        m_emulator->intercept({.pathPart = pathPart, .reply = LoopbackReply{.fault = LoopbackFault::StallBeforeReply}});
    }
    /// Waits until the service has been asked so often.
    void waitForRequests(std::size_t count) {
        ASSERT_TRUE(m_emulator->obtainServer().waitForRequests(count)) << "no request came";
    }

    /// Waits until the elapsed time has been shown twice from here on.
    static void waitForTimes(ChildProcess& process) {
        const std::size_t start = (process.obtainOutput() + process.obtainErrors()).size();
        constexpr std::string_view kTime = " s (Ctrl-C cancels)";
        ASSERT_TRUE(process.waitUntil([&] {
            const std::string text = (process.obtainOutput() + process.obtainErrors()).substr(start);
            return text.find(kTime) != text.rfind(kTime);
        }));
    }

    std::string m_file = m_folder.name("talk.kai");
};

TEST_F(KaiCancel, EndsAQuestionWith130) {
    start();
    stall();
    const std::unique_ptr<ChildProcess> process = launch(Words{"ask"} + turn() + Words{"q"});
    waitForRequests(1);
    process->sendSignal(SIGINT);
    expectFailure(finish(*process), 130, "cancelled; the conversation is as it was");
}

TEST_F(KaiCancel, EndsAListOfModelsWith130) {
    start();
    stall();
    const std::unique_ptr<ChildProcess> process = launch(Words{"models"} + reach());
    waitForRequests(1);
    process->sendSignal(SIGINT);
    EXPECT_EQ(finish(*process).code, 130);
}

TEST_F(KaiCancel, LeavesTheSavedConversationAsItWas) {
    start();
    ASSERT_EQ(run(Words{"ask", "--save", m_file} + turn() + Words{"one"}).code, 0);
    const std::string before = readFile(m_file);
    stall();
    const std::unique_ptr<ChildProcess> process = launch(Words{"ask", "--continue", m_file} + reach() + Words{"two"});
    waitForRequests(2);
    process->sendSignal(SIGINT);
    EXPECT_EQ(finish(*process).code, 130);
    EXPECT_EQ(readFile(m_file), before);
}

TEST_F(KaiCancel, ReturnsToThePromptOfAChat) {
    start();
    stall();
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn());
    process->write("one\n");
    waitForRequests(1);
    process->sendSignal(SIGINT);
    ASSERT_TRUE(process->waitForErrors("cancelled"));
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("fine"));
    process->write("two\n");
    ASSERT_TRUE(process->waitForOutput("fine\n"));
    const KaiOutcome outcome = finish(*process);
    EXPECT_EQ(outcome.code, 0);
    // The cancelled turn is no part of the conversation.
    EXPECT_THAT(listQuestions().back()["messages"], SizeIs(2));
}

TEST_F(KaiCancel, EndsAChatTheSecondTimeAtThePrompt) {
    start();
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn(), ChildProcessSetup::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("\x03");
    ASSERT_TRUE(process->waitForOutput("Ctrl-C once more ends the chat"));
    process->write("\x03");
    EXPECT_EQ(process->wait(), 130);
}

TEST_F(KaiCancel, ForgetsTheFirstCtrlCWhenAQuestionFollows) {
    start();
    m_emulator->answerWith([](const KAIEmulatedTurn&) { return KAIEmulatedAnswer::say("fine"); });
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn());
    process->write("one\n");
    ASSERT_TRUE(process->waitForOutput("fine\n"));
    process->sendSignal(SIGINT);
    ASSERT_TRUE(process->waitForErrors("Ctrl-C once more"));
    process->write("two\n");
    ASSERT_TRUE(process->waitForOutput("fine\n\nfine\n"));
    process->sendSignal(SIGINT);
    ASSERT_TRUE(process->waitForErrors("Ctrl-C once more ends the chat\nkai: Ctrl-C once more ends the chat\n"));
    EXPECT_EQ(finish(*process).code, 0);
}

TEST_F(KaiCancel, DropsTheLineThatWasBeingTyped) {
    start();
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn(), ChildProcessSetup::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("a question never fini\x03");
    ASSERT_TRUE(process->waitForOutput("once more"));
    process->write("another\n");
    waitForRequests(1);
    EXPECT_EQ(listQuestions().at(0)["messages"].back()["content"], "another");
    process->write("/quit\n");
    EXPECT_EQ(process->wait(), 0);
}

TEST_F(KaiCancel, EndsAnUnfinishedLineOfAPipe) {
    start().queueAnswer(KAIEmulatedAnswer::say("fine"));
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn());
    process->write("one\nno line end");
    ASSERT_TRUE(process->waitForOutput("fine\n"));
    process->sendSignal(SIGINT);
    ASSERT_TRUE(process->waitForErrors("once more"));
    process->sendSignal(SIGINT);
    EXPECT_EQ(process->wait(), 130);
    EXPECT_THAT(listQuestions(), SizeIs(1));
}

TEST_F(KaiCancel, EndsSqlThatRuns) {
    start().queueAnswer(
        answerWithSql("SELECT 1 AS started; "
                      "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n;"));
    const std::unique_ptr<ChildProcess> process = launch(Words{"ask", "--run"} + turn() + Words{"q"});
    ASSERT_TRUE(process->waitForOutput("(1 row)"));
    process->sendSignal(SIGINT);
    const KaiOutcome outcome = finish(*process);
    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(outcome.errors, "kai: the SQL was cancelled\n");
}

TEST_F(KaiCancel, EndsAChatAtASecondCtrlCDuringATurn) {
    start("openai");
    stall("/messages");
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn());
    process->write("one\n");
    waitForRequests(3);
    process->sendSignalTwice(SIGINT);
    EXPECT_EQ(process->wait(), 130);
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiCancel, EndsAProgramThatNothingElseEndsAtASecondCtrlC) {
    start().queueAnswer(KAIEmulatedAnswer::say(std::string(1000000, 'x')));
    const std::unique_ptr<ChildProcess> process = launch(Words{"ask"} + turn() + Words{"q"});
    // Its output is read no further, so that it waits in a write for ever.
    ASSERT_TRUE(process->waitForOutput("x"));
    process->sendSignalTwice(SIGINT);
    EXPECT_EQ(process->waitWithoutReading(), 130);
}

TEST_F(KaiCancel, EndsAChatWhenAskedToEnd) {
    start();
    m_emulator->answerWith([](const KAIEmulatedTurn&) { return KAIEmulatedAnswer::say("fine"); });
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn());
    process->write("one\n");
    ASSERT_TRUE(process->waitForOutput("fine\n"));
    process->sendSignal(SIGTERM);
    EXPECT_EQ(process->wait(), 130);
}

TEST_F(KaiCancel, CleansUpTheServiceAfterCtrlC) {
    start("openai").queueAnswer({.runStates = {"in_progress"}});
    const std::unique_ptr<ChildProcess> process = launch(Words{"ask"} + turn() + Words{"q"});
    waitForRequests(5);  // the assistant, the thread, the message, the run, a poll
    process->sendSignal(SIGINT);
    expectFailure(finish(*process), 130, "cancelled");
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiCancel, CleansUpTheServiceWhenAskedToEnd) {
    for (const int signal : {SIGTERM, SIGHUP}) {
        start("openai").queueAnswer({.runStates = {"in_progress"}});
        const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn());
        process->write("one\n");
        waitForRequests(5);
        process->sendSignal(signal);
        EXPECT_EQ(process->wait(), 130);
        EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
    }
}

TEST_F(KaiCancel, WaitsForTheNameOfWhatTheServiceIsMaking) {
    start("openai");
    m_emulator->intercept({.method = "POST", .pathPart = "/v1/threads", .change = [](LoopbackReply& reply) {
                               reply.fault = LoopbackFault::StallBeforeReply;
                           }});
    const std::unique_ptr<ChildProcess> process = launch(Words{"ask"} + turn() + Words{"q"});
    waitForRequests(2);
    process->sendSignal(SIGINT);
    m_emulator->obtainServer().releaseStalls();
    EXPECT_EQ(finish(*process).code, 130);
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiCancel, GivesUpCleaningAtAnotherCtrlC) {
    start("openai");
    m_emulator->intercept(
        {.method = "DELETE", .reply = LoopbackReply{.fault = LoopbackFault::StallBeforeReply}, .times = 0});
    const std::unique_ptr<ChildProcess> process = launch(Words{"ask"} + turn() + Words{"q"});
    ASSERT_TRUE(process->waitForOutput("\n"));
    for (std::size_t seen = 1;; ++seen) {
        waitForRequests(seen);
        if (m_emulator->obtainServer().requests().at(seen - 1).method == "DELETE") {
            break;
        }
    }
    process->sendSignal(SIGINT);
    const KaiOutcome outcome = finish(*process);
    EXPECT_THAT(outcome.errors, HasSubstr("left on the service: the assistant 'asst_"));
    EXPECT_THAT(outcome.errors, HasSubstr(m_emulator->listLeft().at(0)));
}

TEST_F(KaiCancel, ShowsTheElapsedTimeOnATerminalAndErasesIt) {
    start();
    stall();
    const std::unique_ptr<ChildProcess> process =
        launch(Words{"ask"} + turn() + Words{"q"}, ChildProcessSetup::Terminal::ErrorOnly);
    waitForRequests(1);
    waitForTimes(*process);
    process->sendSignal(SIGINT);
    const KaiOutcome outcome = finish(*process);
    EXPECT_EQ(outcome.code, 130);
    EXPECT_THAT(outcome.errors, testing::EndsWith("s (Ctrl-C cancels)\r\x1b[Kkai: cancelled; the conversation is as it "
                                                  "was\r\n"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("Ctrl-C")));
}

TEST_F(KaiCancel, ErasesTheElapsedTimeBeforeTheAnswer) {
    start();
    m_emulator->intercept({.change = [](LoopbackReply& reply) { reply.fault = LoopbackFault::StallBeforeReply; }});
    const std::unique_ptr<ChildProcess> process = launch(Words{"chat"} + turn(), ChildProcessSetup::Terminal::All);
    process->write("q\n");
    waitForRequests(1);
    waitForTimes(*process);
    m_emulator->obtainServer().releaseStalls();
    ASSERT_TRUE(process->waitForOutput("s (Ctrl-C cancels)\r\x1b[KAnswer 1"));
    process->write("/quit\n");
    EXPECT_EQ(process->wait(), 0);
}

TEST_F(KaiCancel, UsesNoEscapesOnADumbTerminal) {
    start();
    stall();
    m_environment["TERM"] = "dumb";
    const std::unique_ptr<ChildProcess> process =
        launch(Words{"ask"} + turn() + Words{"q"}, ChildProcessSetup::Terminal::ErrorOnly);
    waitForRequests(1);
    waitForTimes(*process);
    process->sendSignal(SIGINT);
    EXPECT_THAT(finish(*process).errors, Not(HasSubstr("\x1b")));
}

TEST_F(KaiCancel, ShowsNoElapsedTimeInAPipe) {
    start();
    m_emulator->intercept({.change = [](LoopbackReply& reply) {
        reply.fault = LoopbackFault::StallBeforeReply;
        reply.stallLimit = std::chrono::milliseconds{400};
    }});
    const KaiOutcome outcome = run(Words{"ask"} + turn() + Words{"q"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
}

}  // namespace
