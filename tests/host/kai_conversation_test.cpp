#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kai_test.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class KaiConversation : public KaiTest {
protected:
    KaiOutcome begin(const std::string& question, const Words& more = {}) {
        return run(Words{"ask", "--save", m_file} + turn() + more + Words{question});
    }
    KaiOutcome proceed(const std::string& question, const Words& more = {}) {
        return run(Words{"ask", "--continue", m_file} + reach() + more + Words{question});
    }
    [[nodiscard]] KAIEmulatorJson lastMessages() { return listQuestions().back()["messages"]; }

    std::string m_file = m_folder.name("talk.kai");
};

TEST_F(KaiConversation, IsSavedForItsOwnerAlone) {
    start().queueAnswer(KAIEmulatedAnswer::say("the answer"));
    ASSERT_EQ(begin("the question").code, 0);
    struct stat status {};
    ASSERT_EQ(stat(m_file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    const KAIEmulatorJson saved = KAIEmulatorJson::parse(readFile(m_file));
    EXPECT_EQ(saved["provider"], "deepseek");
    EXPECT_EQ(saved["session"]["model"], "model-a");
    EXPECT_EQ(saved["session"]["messages"][1]["content"], "the answer");
    EXPECT_EQ(m_folder.list(), (Words{"small.db", "talk.kai"}));
}

TEST_F(KaiConversation, GoesOnInALaterProcessWithItsHistory) {
    start();
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("first answer"));
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("second answer"));
    ASSERT_EQ(begin("first question").code, 0);
    const KaiOutcome outcome = proceed("second question");
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr("continuing with deepseek, model model-a, host 127.0.0.1:"));
    ASSERT_EQ(proceed("third question").code, 0);

    const KAIEmulatorJson messages = lastMessages();
    ASSERT_EQ(messages.size(), 6U);
    EXPECT_EQ(messages[0]["role"], "system");
    EXPECT_THAT(messages[0]["content"].get<std::string>(), HasSubstr("CREATE TABLE `cities`"));
    EXPECT_EQ(messages[1]["content"], "first question");
    EXPECT_EQ(messages[2]["content"], "first answer");
    EXPECT_EQ(messages[3]["content"], "second question");
    EXPECT_EQ(messages[4]["content"], "second answer");
    EXPECT_EQ(messages[5]["content"], "third question");
    EXPECT_EQ(listQuestions().back()["model"], "model-a");
}

TEST_F(KaiConversation, IsSavedToAnotherFileWhenOneIsNamed) {
    start();
    ASSERT_EQ(begin("one").code, 0);
    const std::string before = readFile(m_file);
    ASSERT_EQ(proceed("two", {"--save", m_folder.name("other.kai")}).code, 0);
    EXPECT_EQ(readFile(m_file), before);
    EXPECT_THAT(KAIEmulatorJson::parse(readFile(m_folder.name("other.kai")))["session"]["messages"], SizeIs(4));
}

TEST_F(KaiConversation, KeepsItsFileWhenATurnFails) {
    start();
    ASSERT_EQ(begin("one").code, 0);
    const std::string before = readFile(m_file);
    m_emulator->queueAnswer(KAIEmulatedAnswer::refuse(500, "broken"));
    EXPECT_EQ(proceed("two").code, 4);
    EXPECT_EQ(readFile(m_file), before);
    EXPECT_EQ(m_folder.list(), (Words{"small.db", "talk.kai"}));
}

TEST_F(KaiConversation, IsNotSavedWhenTheFirstTurnFails) {
    start().queueAnswer(KAIEmulatedAnswer::refuse(500, "broken"));
    EXPECT_EQ(begin("one").code, 4);
    EXPECT_EQ(m_folder.list(), Words{"small.db"});
}

TEST_F(KaiConversation, IsSavedBeforeItsSqlRuns) {
    start().queueAnswer(answerWithSql("SELECT gone;"));
    EXPECT_EQ(begin("one", {"--run"}).code, 1);
    EXPECT_THAT(KAIEmulatorJson::parse(readFile(m_file))["session"]["messages"], SizeIs(2));
}

TEST_F(KaiConversation, PrintsTheAnswerEvenWhenItCanNoLongerBeSaved) {
    const std::string directory = m_folder.name("later");
    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    start().answerWith([&](const KAIEmulatedTurn&) {
        rmdir(directory.c_str());
        return KAIEmulatedAnswer::say("the answer");
    });
    const KaiOutcome outcome = run(Words{"ask", "--save", directory + "/c.kai"} + turn() + Words{"q"});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.output, "the answer\n");
    EXPECT_THAT(outcome.errors, HasSubstr("cannot write"));
}

TEST_F(KaiConversation, HasItsStructureRefreshedFromTheDatabase) {
    start();
    ASSERT_EQ(begin("one").code, 0);
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(m_database.c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, "CREATE TABLE newcomer (a)", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(handle);
    ASSERT_EQ(proceed("two").code, 0);
    EXPECT_THAT(lastMessages()[0]["content"].get<std::string>(), Not(HasSubstr("newcomer")));
    ASSERT_EQ(proceed("three", {"--db", m_database}).code, 0);
    EXPECT_THAT(lastMessages()[0]["content"].get<std::string>(), HasSubstr("CREATE TABLE `newcomer`"));
    EXPECT_THAT(lastMessages(), SizeIs(6));
}

TEST_F(KaiConversation, KeepsInstructionsAndTemperature) {
    start();
    ASSERT_EQ(begin("one", {"--instructions", "Be brief.", "--temperature", "0.25"}).code, 0);
    ASSERT_EQ(proceed("two", {"--db", m_database}).code, 0);
    EXPECT_THAT(lastMessages()[0]["content"].get<std::string>(), testing::StartsWith("Be brief.\n\n"));
    EXPECT_EQ(listQuestions().back()["temperature"], 0.25);
    ASSERT_EQ(proceed("three", {"--instructions", "", "--temperature", "1.5", "--model", "model-b"}).code, 0);
    EXPECT_THAT(lastMessages()[0]["content"].get<std::string>(), testing::StartsWith("You help with"));
    EXPECT_EQ(listQuestions().back()["temperature"], 1.5);
    EXPECT_EQ(listQuestions().back()["model"], "model-b");
}

TEST_F(KaiConversation, ReplacesAnEarlierConversationWhenSavedAnew) {
    start();
    ASSERT_EQ(begin("one").code, 0);
    ASSERT_EQ(begin("anew").code, 0);
    EXPECT_THAT(KAIEmulatorJson::parse(readFile(m_file))["session"]["messages"], SizeIs(2));
}

TEST_F(KaiConversation, GoesToNoHostThatOnlyItsFileNames) {
    start();
    ASSERT_EQ(begin("one").code, 0);
    // Without --api-host the provider's public service is meant, and the file leads elsewhere.
    const KaiOutcome outcome = run({"ask", "--continue", m_file, "two"});
    expectFailure(outcome, 2,
                  "the conversation was held at the host '" + m_emulator->obtainHost() + "'; say --api-host");
    EXPECT_EQ(m_emulator->obtainServer().countRequests(), 1U);
}

TEST_F(KaiConversation, SaysWhichHostChanges) {
    start();
    ASSERT_EQ(begin("one").code, 0);
    const std::string former = m_emulator->obtainHost();
    start();
    const KaiOutcome outcome = proceed("two");
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr("host '" + former + "' -> '" + m_emulator->obtainHost() + "'"));
    EXPECT_THAT(lastMessages(), SizeIs(4));
}

TEST_F(KaiConversation, GoesOnWithAnotherProviderWhenAsked) {
    start().queueAnswer(KAIEmulatedAnswer::say("first answer"));
    ASSERT_EQ(begin("first question").code, 0);
    start("google");
    expectFailure(proceed("two"), 2, "the conversation was held with deepseek; add --switch-provider");
    expectFailure(proceed("two", {"--switch-provider"}), 2, "no model; name one of google with --model");
    const KaiOutcome outcome = proceed("two", {"--switch-provider", "--model", "model-b"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.errors,
                HasSubstr("continuing with 'deepseek' -> 'google', model 'model-a' -> 'model-b', host '"));
    const KAIEmulatorJson contents = listQuestions().back()["contents"];
    ASSERT_EQ(contents.size(), 3U);
    EXPECT_EQ(contents[0]["parts"][0]["text"], "first question");
    EXPECT_EQ(contents[1]["role"], "model");
    EXPECT_EQ(contents[1]["parts"][0]["text"], "first answer");

    // From now on it is a conversation with google, and goes on with a local server as well.
    EXPECT_EQ(KAIEmulatorJson::parse(readFile(m_file))["provider"], "google");
    start("ollama");
    ASSERT_EQ(proceed("three", {"--switch-provider", "--model", "model-a"}).code, 0);
    EXPECT_THAT(lastMessages(), SizeIs(6));
}

TEST_F(KaiConversation, NeedsADatabaseToRunSql) {
    start();
    ASSERT_EQ(begin("one").code, 0);
    m_emulator->queueAnswer(answerWithSql("SELECT 1;"));
    const KaiOutcome outcome = run(Words{"chat", "--continue", m_file} + reach(), "two\n/run\n");
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("no database to run the SQL on; name it with --db"));
}

TEST_F(KaiConversation, IsRefusedWhenTheSessionTextIsNotUsable) {
    start("openai");
    m_folder.write("talk.kai", R"({"kai_conversation":1,"provider":"openai","session":{"model":"m"}})");
    const KaiOutcome outcome = proceed("two");
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot continue the conversation: Cannot load session data"));
}

TEST_F(KaiConversation, KeepIsForOpenAIAlone) {
    start();
    expectFailure(begin("one", {"--keep"}), 2, "--keep is for openai");
}

/// Conversations that a service keeps: nothing may be left there by mistake.
class KaiOpenAI : public KaiConversation {
protected:
    void SetUp() override { start("openai"); }
};

TEST_F(KaiOpenAI, CleansUpAfterAQuestion) {
    ASSERT_EQ(run(Words{"ask"} + turn() + Words{"q"}).code, 0);
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiOpenAI, CleansUpAfterAChat) {
    ASSERT_EQ(run(Words{"chat"} + turn(), "one\ntwo\n").code, 0);
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiOpenAI, CleansUpAfterAFailedRun) {
    m_emulator->queueAnswer({.runStates = {"failed"}});
    const KaiOutcome outcome = run(Words{"ask"} + turn() + Words{"q"});
    expectFailure(outcome, 4, "server_error: Sorry, something went wrong.");
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiOpenAI, CleansUpAfterFailedSql) {
    m_emulator->queueAnswer(answerWithSql("SELECT gone;"));
    EXPECT_EQ(run(Words{"ask", "--run"} + turn() + Words{"q"}).code, 1);
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiOpenAI, CleansUpTheAssistantWhenNoThreadWasMade) {
    m_emulator->intercept({.method = "POST", .pathPart = "/v1/threads", .reply = LoopbackReply{.status = 500}});
    EXPECT_EQ(run(Words{"ask"} + turn() + Words{"q"}).code, 4);
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiOpenAI, TriesToCleanUpOnceMore) {
    m_emulator->intercept({.method = "DELETE", .reply = LoopbackReply{.status = 500}});
    const KaiOutcome outcome = run(Words{"ask"} + turn() + Words{"q"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiOpenAI, SaysWhatIsLeftWhenItCannotCleanUp) {
    m_emulator->intercept({.method = "DELETE", .reply = LoopbackReply{.status = 500}, .times = 0});
    const KaiOutcome outcome = run(Words{"ask"} + turn() + Words{"q"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot clean up on the service"));
    ASSERT_THAT(m_emulator->listLeft(), SizeIs(2));
    for (const std::string& identifier : m_emulator->listLeft()) {
        EXPECT_THAT(outcome.errors, HasSubstr(identifier));
    }
}

TEST_F(KaiOpenAI, CleansUpWhenTheReaderOfItsOutputGoesAway) {
    m_emulator->answerWith([](const KAIEmulatedTurn&) { return KAIEmulatedAnswer::say(std::string(1000000, 'x')); });
    std::string command = KAI_PROGRAM " ask";
    for (const std::string& word : turn() + Words{"q"}) {
        command += " '" + word + "'";
    }
    ChildProcess process({.arguments = {"/bin/sh", "-c", command + " | head -c 10"}, .environment = m_environment});
    EXPECT_EQ(finish(process).output, "xxxxxxxxxx");
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

TEST_F(KaiOpenAI, KeepsAConversationWhenAskedAndGoesOnLater) {
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("first answer"));
    ASSERT_EQ(begin("first question", {"--keep"}).code, 0);
    const std::vector<std::string> kept = m_emulator->listLeft();
    EXPECT_THAT(kept, SizeIs(2));

    std::size_t history = 0;
    std::string instructions;
    m_emulator->answerWith([&](const KAIEmulatedTurn& turn) {
        history = turn.countHistory();
        instructions = turn.instructions;
        return KAIEmulatedAnswer::say("second answer");
    });
    const KaiOutcome outcome = proceed("second question", {"--db", m_database, "--instructions", "Be brief."});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "second answer\n");
    EXPECT_EQ(history, 2U);
    EXPECT_THAT(instructions, testing::StartsWith("Be brief.\n\n"));
    EXPECT_THAT(instructions, HasSubstr("CREATE TABLE `cities`"));
    EXPECT_EQ(m_emulator->listLeft(), kept);

    // What was said before stays when nothing new is said.
    ASSERT_EQ(proceed("third question").code, 0);
    EXPECT_EQ(history, 4U);
    EXPECT_THAT(instructions, testing::StartsWith("Be brief.\n\n"));
    EXPECT_EQ(m_emulator->listLeft(), kept);
}

TEST_F(KaiOpenAI, ForgetsAKeptConversation) {
    ASSERT_EQ(begin("q", {"--keep"}).code, 0);
    const KaiOutcome outcome = run(Words{"forget", m_file} + reach());
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
    EXPECT_EQ(m_folder.list(), Words{"small.db"});
}

TEST_F(KaiOpenAI, KeepsTheFileWhenForgettingFails) {
    ASSERT_EQ(begin("q", {"--keep"}).code, 0);
    m_emulator->intercept({.method = "DELETE", .reply = LoopbackReply{.status = 500}, .times = 0});
    expectFailure(run(Words{"forget", m_file} + reach()), 4, "HTTP 500");
    EXPECT_EQ(m_folder.list(), (Words{"small.db", "talk.kai"}));
}

TEST_F(KaiOpenAI, DoesNotForgetWhatIsNowhereButInAFile) {
    start();
    ASSERT_EQ(begin("q").code, 0);
    expectFailure(run(Words{"forget", m_file} + reach()), 2, "is nowhere but in its file");
}

TEST_F(KaiOpenAI, WillNotSaveWhatItIsGoingToDelete) {
    expectFailure(begin("q"), 2, "--save needs --keep with openai");
    expectFailure(run(Words{"ask", "--keep"} + turn() + Words{"q"}), 2, "--keep needs --save FILE");
    EXPECT_EQ(m_emulator->obtainServer().countRequests(), 0U);
}

TEST_F(KaiOpenAI, DoesNotGoOnWithAnotherProvider) {
    ASSERT_EQ(begin("q", {"--keep"}).code, 0);
    start();
    expectFailure(proceed("two", {"--switch-provider", "--model", "model-a"}), 2,
                  "a conversation cannot go on between openai and deepseek");
}

TEST_F(KaiOpenAI, CleansUpANewConversationThatCouldNotBeSaved) {
    const std::string directory = m_folder.name("later");
    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    m_emulator->answerWith([&](const KAIEmulatedTurn&) {
        rmdir(directory.c_str());
        return KAIEmulatedAnswer::say("the answer");
    });
    EXPECT_EQ(run(Words{"ask", "--keep", "--save", directory + "/c.kai"} + turn() + Words{"q"}).code, 2);
    EXPECT_THAT(m_emulator->listLeft(), IsEmpty());
}

}  // namespace
