// The chat at a terminal: what is typed, pasted and searched for.

#include <sqlite3.h>

#include "kai_test.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class KaiTerminal : public KaiTest {
protected:
    void SetUp() override {
        m_environment["HOME"] = m_folder.name("home");
        start();
        m_emulator->answerWith([](const KAIEmulatedTurn&) { return KAIEmulatedAnswer::say("fine"); });
    }

    /// Starts a chat and waits for its prompt.
    std::unique_ptr<ChildProcess> chat() {
        auto process = launch(Words{"chat"} + turn(), ChildProcess::Terminal::All);
        EXPECT_TRUE(process->waitForOutput("kai> "));
        return process;
    }
    /// Types keys that send a question, and waits for the question that reached the service.
    std::string type(ChildProcess& process, const std::string& keys) {
        const std::size_t count = m_emulator->obtainServer().countRequests() + 1;
        process.write(keys);
        EXPECT_TRUE(process.waitUntil([&] { return m_emulator->obtainServer().countRequests() >= count; }));
        return listQuestions().back()["messages"].back()["content"].get<std::string>();
    }
    static void quit(ChildProcess& process) {
        process.write("/quit\n");
        EXPECT_EQ(process.wait(), 0);
    }
};

TEST_F(KaiTerminal, SendsALineOfMoreThan4095Bytes) {
    const auto process = chat();
    const std::string question = std::string(6000, 'a') + "?";
    EXPECT_EQ(type(*process, question + "\n"), question);
    quit(*process);
}

TEST_F(KaiTerminal, KeepsALongLineThatIsTypedWhileATurnRuns) {
    m_emulator->intercept({.reply = LoopbackReply{.fault = LoopbackFault::StallBeforeReply}});
    const auto process = chat();
    process->write("one\n");
    ASSERT_TRUE(process->waitUntil([&] { return m_emulator->obtainServer().countRequests() == 1; }));
    const std::string question(6000, 'b');
    process->write(question.substr(0, 4000));
    m_emulator->obtainServer().releaseStalls();
    EXPECT_EQ(type(*process, question.substr(4000) + "\n"), question);
    process->write("/quit\n");
    EXPECT_EQ(process->wait(), 4) << "the turn that stalled has failed";
}

TEST_F(KaiTerminal, SendsAPastedParagraphAsOneQuestion) {
    const auto process = chat();
    ASSERT_TRUE(process->waitForOutput("\x1b[?2004h"));
    EXPECT_EQ(type(*process, "\x1b[200~first line\rsecond\x1b[31m line\r\rthird\n\x1b[201~ and more\n"),
              "first line\nsecond[31m line\n\nthird and more");
    EXPECT_THAT(listQuestions(), SizeIs(1));
    quit(*process);
}

TEST_F(KaiTerminal, BreaksALineAtAltEnter) {
    const auto process = chat();
    EXPECT_EQ(type(*process, "one\x1b\rtwo\n"), "one\ntwo");
    quit(*process);
}

TEST_F(KaiTerminal, EditsTextBeyondAsciiInAnyLocale) {
    const auto process = chat();
    EXPECT_EQ(type(*process, "Łódź\x01\xe6\x9d\xb1 \x05\x7f?\n"), "東 Łód?");
    quit(*process);
}

TEST_F(KaiTerminal, BringsFormerQuestionsBackInALaterChat) {
    auto process = chat();
    type(*process, "which cities\x1b\rare large?\n");
    type(*process, "something else\n");
    quit(*process);
    process = chat();
    EXPECT_EQ(type(*process, "\x12large\n\n"), "which cities\nare large?");
    quit(*process);
    const std::filesystem::path history = m_folder.name("home/.local/state/kai/history");
    EXPECT_EQ(std::filesystem::status(history).permissions(), std::filesystem::perms(0600));
    EXPECT_THAT(readFile(history), HasSubstr("which cities\\nare large?\nsomething else\n"));
}

TEST_F(KaiTerminal, UsesNoEscapesForPastingOnADumbTerminal) {
    m_environment["TERM"] = "dumb";
    const auto process = chat();
    EXPECT_EQ(type(*process, "question\n"), "question");
    quit(*process);
    EXPECT_THAT(process->obtainOutput(), Not(HasSubstr("\x1b")));
}

TEST_F(KaiTerminal, TurnsATableThatIsWiderThan40ColumnsVertical) {
    m_terminalColumns = 40;
    m_emulator->answerWith([](const KAIEmulatedTurn&) {
        return answerWithSql(
            "SELECT name, people FROM cities WHERE id = 1; "
            "SELECT 'twenty columns wide.' AS a, 'and twenty of these.' AS b;");
    });
    const auto process = launch(Words{"chat", "--run"} + turn(), ChildProcess::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("question\n");
    ASSERT_TRUE(process->waitForOutput("name | people\r\n"));
    ASSERT_TRUE(process->waitForOutput("-- row 1 --\r\na | twenty columns wide.\r\nb | and twenty of these.\r\n"));
    quit(*process);
}

TEST_F(KaiTerminal, EditsALineThatIsLongerThan40Columns) {
    m_terminalColumns = 40;
    const auto process = chat();
    const std::string words = "which of these cities has more people than all the others together";
    EXPECT_EQ(type(*process, words + "\x01" + "Tell me: " + "\x05?\n"), "Tell me: " + words + "?");
    quit(*process);
}

TEST_F(KaiTerminal, ShowsTheElapsedTimeWhileSqlRuns) {
    m_emulator->answerWith([](const KAIEmulatedTurn&) {
        return answerWithSql(
            "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n;");
    });
    const auto process = launch(Words{"chat", "--run"} + turn(), ChildProcess::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("question\n");
    // The answer has come by then.
    ASSERT_TRUE(process->waitUntil([&] {
        const std::string text = process->obtainOutput();
        const std::size_t answer = text.find("FROM");
        return answer != std::string::npos && text.find(" s (Ctrl-C cancels)", answer) != std::string::npos;
    }));
    process->write("\x03");
    ASSERT_TRUE(process->waitForOutput("the SQL was cancelled"));
    quit(*process);
}

TEST_F(KaiTerminal, ShowsTheElapsedTimeWhileTheStructureIsRead) {
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(m_database.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    const auto process = launch({"prompt", "--db", m_database}, ChildProcess::Terminal::All);
    EXPECT_TRUE(process->waitForOutput(" s (Ctrl-C cancels)"));
    sqlite3_close(writer);
    EXPECT_EQ(process->wait(), 0);
}

TEST_F(KaiTerminal, GivesTheTerminalBackAsItWas) {
    ChildProcess shell(
        {.arguments = {"sh", "-c", "trap : INT; stty -a; \"$0\" \"$@\"; stty -a; echo done", KAI_PROGRAM, "chat",
                       "--provider", "deepseek", "--api-host", m_emulator->obtainHost(), "--ca-file",
                       m_emulator->obtainServer().obtainCAFile(), "--db", m_database, "--model", "m"},
         .environment = m_environment,
         .terminal = ChildProcess::Terminal::All});
    ASSERT_TRUE(shell.waitForOutput("kai> "));
    shell.write("\x03");
    ASSERT_TRUE(shell.waitForOutput("Ctrl-C once more"));
    shell.write("\x03");
    ASSERT_TRUE(shell.waitForOutput("done"));
    EXPECT_EQ(shell.wait(), 0);
    const std::string output = shell.obtainOutput();
    const std::size_t first = output.find("speed");
    const std::size_t last = output.rfind("speed");
    ASSERT_LT(first, last);
    constexpr std::string_view kLastMode = "extproc";
    const std::string before = output.substr(first, output.find(kLastMode, first) + kLastMode.size() - first);
    EXPECT_EQ(output.substr(last, before.size()), before);
}

}  // namespace
