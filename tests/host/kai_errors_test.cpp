// Every way in which a command can end before it has an answer: one line, what to do, the documented exit code.

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "kai_test.h"
#include "loopback_socket.h"

namespace {

using testing::HasSubstr;

class KaiErrors : public KaiTest {
protected:
    KaiOutcome ask(const Words& more = {}) { return run(Words{"ask"} + turn() + more + Words{"How many?"}); }

    /// A question that goes to no service: everything wrong is to be found before.
    KaiOutcome askNobody(const Words& more) {
        return run(Words{"ask", "--model", "m", "--api-host", "127.0.0.1:1"} + more + Words{"How many?"});
    }
};

TEST_F(KaiErrors, NoCommandIsAUsageError) {
    expectFailure(run({}), 2, "no command");
}

TEST_F(KaiErrors, AnUnknownOptionIsAUsageError) {
    expectFailure(run({"chat", "--frob"}), 2, "unknown option --frob");
}

TEST_F(KaiErrors, AMissingModelIsAUsageError) {
    expectFailure(run({"ask", "--db", m_database, "--api-host", "127.0.0.1:1", "q"}), 2,
                  "no model; name one with --model");
}

TEST_F(KaiErrors, AMissingDatabaseFileIsADatabaseError) {
    expectFailure(askNobody({"--db", m_folder.name("none.db")}), 3, "there is no such file");
    expectFailure(run({"prompt", "--db", m_folder.name("none.db")}), 3, "there is no such file");
    EXPECT_EQ(m_folder.list(), Words{"small.db"});
}

TEST_F(KaiErrors, AFileThatIsNoDatabaseIsADatabaseError) {
    expectFailure(askNobody({"--db", m_folder.write("notes.txt", "no database, but long enough to be one")}), 3,
                  "it is not a SQLite database");
}

TEST_F(KaiErrors, ADirectoryIsADatabaseError) {
    expectFailure(askNobody({"--db", m_folder.name("")}), 3, "it is a directory");
}

TEST_F(KaiErrors, ALockedDatabaseIsADatabaseError) {
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(m_database.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    expectFailure(askNobody({"--db", m_database}), 3, "it is locked by another program");
    sqlite3_close(writer);
}

TEST_F(KaiErrors, AnUnreadableDatabaseIsADatabaseError) {
    m_isBoundByPermissions = true;
    ASSERT_EQ(chmod(m_database.c_str(), 0), 0);
    expectFailure(askNobody({"--db", m_database}), 3, "it cannot be read; check the permissions");
    ASSERT_EQ(chmod(m_database.c_str(), 0600), 0);
}

TEST_F(KaiErrors, AMissingKeyIsAUsageError) {
    m_environment.erase("DEEPSEEK_API_KEY");
    expectFailure(askNobody({"--db", m_database}), 2, "no key for deepseek; set DEEPSEEK_API_KEY");
    expectFailure(run({"models"}), 2, "no key for deepseek");
}

TEST_F(KaiErrors, AnEmptyKeyIsAUsageError) {
    m_environment["DEEPSEEK_API_KEY"] = "";
    expectFailure(askNobody({"--db", m_database}), 2, "the key in DEEPSEEK_API_KEY is empty");
}

TEST_F(KaiErrors, AKeyWithALineBreakIsAUsageError) {
    m_environment["DEEPSEEK_API_KEY"] = std::string(kKey) + "\nX-Other: 1";
    expectFailure(askNobody({"--db", m_database}), 2, "a control character or a line break");
}

TEST_F(KaiErrors, AKeyFileThatCannotBeReadIsAUsageError) {
    expectFailure(askNobody({"--db", m_database, "--key-file", m_folder.name("none")}), 2, "No such file or directory");
    m_isBoundByPermissions = true;
    const std::string fileName = m_folder.write("locked", "x");
    ASSERT_EQ(chmod(fileName.c_str(), 0), 0);
    expectFailure(askNobody({"--db", m_database, "--key-file", fileName}), 2, "Permission denied");
    ASSERT_EQ(chmod(fileName.c_str(), 0600), 0);
}

TEST_F(KaiErrors, AnUnreadableCAFileIsAUsageError) {
    expectFailure(run({"models", "--ca-file", m_folder.name("none.pem")}), 2, "cannot read the CA file");
    expectFailure(run({"models", "--ca-file", m_folder.write("empty.pem", "")}), 2, "it is empty");
}

TEST_F(KaiErrors, ACAFileWithoutACertificateIsAProviderError) {
    start();
    expectFailure(run({"models", "--api-host", m_emulator->obtainHost(), "--ca-file", m_folder.write("a.pem", "x")}), 4,
                  "holds no certificate");
}

TEST_F(KaiErrors, AServerThatIsNotThereIsAProviderError) {
    start();
    const Words words = reach();
    m_emulator->obtainServer().stop();
    expectFailure(run(Words{"models"} + words), 4, "No connection to the server");
    expectFailure(run(Words{"ask", "--db", m_database, "--model", "m"} + words + Words{"q"}), 4,
                  "No connection to the server");
}

TEST_F(KaiErrors, AnUntrustedCertificateIsAProviderErrorThatNamesTheOption) {
    start();
    const KaiOutcome outcome = run({"models", "--api-host", m_emulator->obtainHost()});
    expectFailure(outcome, 4, "certificate is not trusted");
    EXPECT_THAT(outcome.errors, HasSubstr("--ca-file"));
}

TEST_F(KaiErrors, AWrongHostNameInTheCertificateIsAProviderError) {
    start("deepseek", LoopbackTLS::WrongHostName);
    expectFailure(ask(), 4, "certificate was issued for another host name");
}

TEST_F(KaiErrors, AnOutdatedCertificateIsAProviderErrorThatBlamesNoCAFile) {
    start("deepseek", LoopbackTLS::Expired);
    const KaiOutcome outcome = ask();
    expectFailure(outcome, 4, "check this machine's clock");
    EXPECT_THAT(outcome.errors, testing::Not(HasSubstr("--ca-file")));
}

TEST_F(KaiErrors, AServerWithoutTLSIsAProviderErrorThatNamesTheOption) {
    // Like web servers do, it answers what is no HTTP request to it at once.
    const LoopbackListener listener(0);
    std::thread server([&] {
        const int connection = listener.accept();
        constexpr std::string_view kAnswer = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n";
        EXPECT_EQ(write(connection, kAnswer.data(), kAnswer.size()), static_cast<ssize_t>(kAnswer.size()));
        std::array<char, 4096> bytes{};
        while (read(connection, bytes.data(), bytes.size()) > 0) {
        }
        close(connection);
    });
    const std::string host = "127.0.0.1:" + std::to_string(listener.obtainPort());
    expectFailure(run({"models", "--api-host", host}), 4, "--plain-http");
    server.join();
}

TEST_F(KaiErrors, AServerWithoutTLSIsReachedWhereTheUserSaysSo) {
    start("deepseek", LoopbackTLS::Off);
    const KaiOutcome outcome = ask({"--plain-http", m_emulator->obtainHost()});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, testing::StartsWith("Answer 1"));
}

TEST_F(KaiErrors, AProxyThatIsNotThereIsAProviderError) {
    start();
    expectFailure(ask({"--proxy", "http://127.0.0.1:1"}), 4, "--proxy");
}

TEST_F(KaiErrors, ARefusedKeyIsAProviderErrorThatSaysWhereTheKeyIs) {
    start();
    m_environment["DEEPSEEK_API_KEY"] = "sk-another-one";
    const KaiOutcome outcome = ask();
    expectFailure(outcome, 4, "(HTTP 401); check the key in DEEPSEEK_API_KEY");
    EXPECT_THAT(outcome.errors, testing::Not(HasSubstr("sk-another-one")));
    EXPECT_THAT(outcome.errors, HasSubstr("deepseek at 127.0.0.1:"));
    expectFailure(run(Words{"models"} + reach()), 4, "(HTTP 401)");
}

TEST_F(KaiErrors, AServersAnswerWithTheKeyInItIsPrintedWithoutIt) {
    start().replyNext({.status = 401, .body = std::string(R"({"error":{"message":"wrong key )") + kKey + R"("}})"});
    expectFailure(ask(), 4, "wrong key ***");
}

TEST_F(KaiErrors, AnUnknownModelIsAProviderError) {
    start();
    expectFailure(run(Words{"ask"} + reach() + Words{"--db", m_database, "--model", "model-zzz", "q"}), 4,
                  "Model Not Exist (HTTP 400)");
}

TEST_F(KaiErrors, ABusyServiceIsAProviderErrorThatSaysWhatToDo) {
    start().queueAnswer(KAIEmulatedAnswer::refuse(429, "Rate limit reached"));
    expectFailure(ask(), 4, "Rate limit reached (HTTP 429); wait a while");
}

TEST_F(KaiErrors, APageInsteadOfAnAnswerIsOneLine) {
    start().replyNext({.status = 502, .body = "<html>\r\n<body>\n\x1b[31mBad gateway\x07</body>\n</html>\n"});
    expectFailure(
        ask(), 4,
        "the server sent a page in place of an answer: \u241b[31mBad gateway\u2407 (HTTP 502); try again later");
}

TEST_F(KaiErrors, ALongErrorIsAbbreviated) {
    start().replyNext({.status = 500, .body = std::string(100000, 'x')});
    const KaiOutcome outcome = ask();
    expectFailure(outcome, 4, "xxx\u2026 (HTTP 500)");
    EXPECT_LT(outcome.errors.size(), 1000U);
}

TEST_F(KaiErrors, AnotherProtocolIsAProviderError) {
    start();
    m_emulator->replyNext({.status = 200, .body = "hello"});
    expectFailure(ask(), 4,
                  "Invalid response: p/chat/completions; the service answered with an error of its own, may have");
    m_emulator->replyNext({.status = 200, .body = "{}"});
    expectFailure(run(Words{"models"} + reach()), 4, "Unsupported data format: g/models; the service answered with");
}

TEST_F(KaiErrors, ATimeOutIsAProviderErrorThatNamesTheOption) {
    start().replyNext({.fault = LoopbackFault::StallBeforeReply});
    expectFailure(ask({"--timeout", "1"}), 4, "Time-out");
}

TEST_F(KaiErrors, ABrokenConnectionIsAProviderError) {
    start().replyNext({.body = std::string(1000, ' '), .fault = LoopbackFault::CutInBody});
    expectFailure(ask(), 4, "The connection broke");
}

TEST_F(KaiErrors, ABadConversationFileIsAUsageError) {
    expectFailure(run({"chat", "--continue", m_folder.name("none")}), 2, "No such file or directory");
    expectFailure(run({"chat", "--continue", m_folder.write("bad", "{}")}), 2, "it is not a conversation file");
    const std::string unknown =
        m_folder.write("unknown", R"({"kai_conversation":1,"provider":"acme","session":{"model":"m"}})");
    expectFailure(run({"chat", "--continue", unknown}), 2, "was held with 'acme', which this kai does not know");
}

TEST_F(KaiErrors, ASaveFileThatCannotBeWrittenIsFoundBeforeTheFirstRequest) {
    start();
    expectFailure(ask({"--save", m_folder.name("none/c.kai")}), 2, "No such file or directory");
    expectFailure(ask({"--save", "/dev/null"}), 2, "it is not a regular file");
    expectFailure(ask({"--save", m_database}), 2, "it is not a conversation file");
    m_isBoundByPermissions = true;
    ASSERT_EQ(mkdir(m_folder.name("closed").c_str(), 0500), 0);
    expectFailure(ask({"--save", m_folder.name("closed/c.kai")}), 2, "Permission denied");
    EXPECT_EQ(m_emulator->obtainServer().countRequests(), 0U);
}

TEST_F(KaiErrors, AnOutputThatCannotBeWrittenIsAUsageError) {
    ChildProcess process({.arguments = {"/bin/sh", "-c", KAI_PROGRAM " prompt --db " + m_database + " >/dev/full"},
                          .environment = m_environment});
    const KaiOutcome outcome = finish(process);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("cannot write to the standard output: No space left on device"));
}

TEST_F(KaiErrors, AReaderThatGoesAwayEndsItQuietly) {
    start().answerWith([](const KAIEmulatedTurn&) { return KAIEmulatedAnswer::say(std::string(1000000, 'x')); });
    std::string command = KAI_PROGRAM " ask";
    for (const std::string& word : turn() + Words{"q"}) {
        command += " '" + word + "'";
    }
    ChildProcess process({.arguments = {"/bin/sh", "-c", "{ " + command + "; echo $? >&2; } | head -c 10"},
                          .environment = m_environment});
    const KaiOutcome outcome = finish(process);
    EXPECT_EQ(outcome.output, "xxxxxxxxxx");
    EXPECT_EQ(outcome.errors, "141\n");
}

}  // namespace
