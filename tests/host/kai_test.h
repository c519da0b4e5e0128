#ifndef TESTS_HOST_KAI_TEST_H
#define TESTS_HOST_KAI_TEST_H

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "kai_emulator.h"
#include "test_folder.h"

/// What a run of the program came to.
struct KaiOutcome {
    int code = -1;
    std::string output;
    std::string errors;
};

using Words = std::vector<std::string>;

/// Both lists of words, one behind the other.
[[nodiscard]] Words operator+(Words first, const Words& second);

/// The program `kai` as a user starts it, a provider's service beside it, and a small database.
/// After every test, the key stands in nothing that was printed and in no file.
class KaiTest : public testing::Test {
protected:
    static constexpr const char* kKey = "sk-9b1f4c7e2a60d853";

    /// Starts the service. Only one a test, unless told otherwise.
    KAIEmulator& start(const std::string& provider = "deepseek", LoopbackTLS tls = LoopbackTLS::Valid);
    /// The options that lead to the service.
    [[nodiscard]] Words reach() const;
    /// The options of a turn: the service, the database and a model.
    [[nodiscard]] Words turn() const;

    /// Runs the program to its end.
    KaiOutcome run(const Words& arguments, const std::string& input = {});
    /// Starts the program beside the test; finish() ends the test of it.
    [[nodiscard]] std::unique_ptr<ChildProcess> launch(
        const Words& arguments, ChildProcessSetup::Terminal terminal = ChildProcessSetup::Terminal::None);
    KaiOutcome finish(ChildProcess& process);

    /// One line on standard error that says this, nothing on standard output, and this exit code.
    static void expectFailure(const KaiOutcome& outcome, int code, const std::string& text);

    /// The text of the request's body, parsed.
    [[nodiscard]] static KAIEmulatorJson readBody(const LoopbackRequest& request);
    /// The bodies of the requests that ask the model something, in order.
    [[nodiscard]] std::vector<KAIEmulatorJson> listQuestions();

    void TearDown() override;

    TestFolder m_folder;
    std::string m_database = m_folder.makeDatabase(
        "small.db",
        "CREATE TABLE cities (id INTEGER PRIMARY KEY, name TEXT, people INTEGER);"
        "INSERT INTO cities VALUES (1, 'Łódź', 670000), (2, 'Graz', 290000), (3, 'Lyon', NULL);"
        "CREATE TABLE visits (city_id INTEGER REFERENCES cities, no INTEGER, day DATE, PRIMARY KEY (city_id, no));");
    std::map<std::string, std::string> m_environment{{"DEEPSEEK_API_KEY", kKey}, {"GEMINI_API_KEY", kKey},
                                                     {"OPENAI_API_KEY", kKey},   {"PATH", "/usr/bin:/bin"},
                                                     {"TERM", "xterm"},          {"LANG", "C"}};
    bool m_isBoundByPermissions = false;
    std::size_t m_terminalColumns = 0;  ///< 0: not set
    std::string m_provider = "deepseek";
    std::unique_ptr<KAIEmulator> m_emulator;

private:
    std::string m_everythingPrinted;
};

/// The answer with a block of SQL in it.
[[nodiscard]] KAIEmulatedAnswer answerWithSql(const std::string& sql);

#endif
