// The settings file, what is in force, and the check-up.

#include "kai_test.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class KaiSettings : public KaiTest {
protected:
    void SetUp() override { m_environment["XDG_CONFIG_HOME"] = m_folder.name("config"); }

    void write(const std::string& text) {
        std::filesystem::create_directories(m_folder.name("config/kai"));
        m_folder.write("config/kai/config", text);
    }
};

TEST_F(KaiSettings, AreTakenWhereTheCommandLineSaysNothing) {
    start();
    write("ca-file = " + m_emulator->obtainServer().obtainCAFile() +
          "\n[deepseek]\nmodel = model-b\nhost = " + m_emulator->obtainHost() + "\n");
    EXPECT_EQ(run({"ask", "--db", m_database, "q"}).code, 0);
    EXPECT_EQ(listQuestions().at(0)["model"], "model-b");
    EXPECT_EQ(run({"ask", "--db", m_database, "--model", "model-a", "q"}).code, 0);
    EXPECT_EQ(listQuestions().at(1)["model"], "model-a");
}

TEST_F(KaiSettings, AreRefusedWithTheLineThatIsWrong) {
    write("\nmodle = x\n");
    expectFailure(run({"models"}), 2, "config/kai/config, line 2: unknown setting 'modle'");
}

TEST_F(KaiSettings, AreShownWithWhereTheyAreFrom) {
    write("provider = ollama\nmodel = llama3.2\n");
    KaiOutcome outcome = run({"config"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.output, HasSubstr("provider  ollama  (" + m_folder.name("config/kai/config") + ", line 1)\n"));
    EXPECT_THAT(outcome.output, HasSubstr("model     llama3.2  ("));
    outcome = run({"config", "--provider", "deepseek"});
    EXPECT_THAT(outcome.output, HasSubstr("provider  deepseek  (the command line)\n"));
    EXPECT_THAT(outcome.output, HasSubstr("model     (none; name one with --model"));
    EXPECT_THAT(outcome.output, HasSubstr("key       set  (DEEPSEEK_API_KEY)\n"));
}

TEST_F(KaiSettings, SayHowToSetAModelAndWhichOnesThereAre) {
    start();
    const KaiOutcome outcome = run(Words{"ask", "--db", m_database} + reach() + Words{"q"});
    expectFailure(outcome, 2,
                  "no model; name one with --model, or for good with the line 'model = NAME' under [deepseek]");
    EXPECT_THAT(outcome.errors, HasSubstr("the service lists: model-a, model-b"));
}

TEST_F(KaiSettings, AreCheckedStepByStep) {
    start();
    KaiOutcome outcome = run(Words{"check", "--db", m_database, "--model", "model-a"} + reach());
    EXPECT_EQ(outcome.code, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("database  ok: 2 tables and views; the prompt is "));
    EXPECT_THAT(outcome.output, HasSubstr("key       ok: from DEEPSEEK_API_KEY\n"));
    EXPECT_THAT(outcome.output, HasSubstr("name      ok: 127.0.0.1 is 127.0.0.1\n"));
    EXPECT_THAT(outcome.output, ContainsRegex("TLS       ok: the server shows the certificate of .+, issued by .+, "
                                              "valid until 20[0-9]{2}-[0-9]{2}-[0-9]{2}\n"));
    EXPECT_THAT(outcome.output, HasSubstr("its certificate is trusted by the file"));
    EXPECT_THAT(outcome.output, HasSubstr("model     ok: model-a\n"));
    outcome = run(Words{"check", "--model", "model-z"} + reach());
    EXPECT_EQ(outcome.code, 4);
    EXPECT_THAT(outcome.output, HasSubstr("model     FAILED: the service does not list 'model-z'"));
}

TEST_F(KaiSettings, CheckShowsTheIssuerOfACertificateThatIsNotTrusted) {
    start();
    m_environment["SSL_CERT_FILE"] = m_emulator->obtainServer().obtainCAFile();
    const KaiOutcome outcome = run({"check", "--api-host", m_emulator->obtainHost()});
    EXPECT_EQ(outcome.code, 4);
    EXPECT_THAT(outcome.output, HasSubstr("issued by "));
    EXPECT_THAT(outcome.output, HasSubstr("service   FAILED: "));
    EXPECT_THAT(outcome.output, HasSubstr("name its CA with --ca-file"));
}

TEST_F(KaiSettings, CheckTellsThatNothingIsEncrypted) {
    start("deepseek", LoopbackTLS::Off);
    const std::string host = m_emulator->obtainHost();
    const KaiOutcome outcome = run({"check", "--api-host", host, "--plain-http", host, "--model", "model-a"});
    EXPECT_EQ(outcome.code, 0) << outcome.output;
    EXPECT_THAT(outcome.output, Not(HasSubstr("TLS")));
    EXPECT_THAT(outcome.output, HasSubstr("plain HTTP, unencrypted"));
}

TEST_F(KaiSettings, CheckTriesTheProxyFirst) {
    start();
    const KaiOutcome outcome = run(Words{"check", "--proxy", "http://127.0.0.1:1"} + reach());
    EXPECT_EQ(outcome.code, 4);
    EXPECT_THAT(outcome.output, HasSubstr("proxy     FAILED: "));
    EXPECT_THAT(outcome.output, Not(HasSubstr("name  ")));
}

TEST_F(KaiSettings, CheckGoesOnAfterAStepThatFails) {
    start();
    m_environment["DEEPSEEK_API_KEY"] = "sk-wrong-key";
    const KaiOutcome outcome = run(Words{"check", "--db", m_folder.name("none.db")} + reach());
    EXPECT_EQ(outcome.code, 3);
    EXPECT_THAT(outcome.output, HasSubstr("database  FAILED: "));
    EXPECT_THAT(outcome.output, HasSubstr("service   FAILED: "));
    EXPECT_THAT(outcome.output, HasSubstr("check the key in DEEPSEEK_API_KEY"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("model  ")));
}

}  // namespace
