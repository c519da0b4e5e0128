#include "kai_test.h"

#include <algorithm>

namespace {

/// The paths of the requests that carry a question.
bool isQuestion(const LoopbackRequest& request) {
    const auto endsWith = [&](std::string_view end) { return std::string_view(request.path).ends_with(end); };
    return request.method == "POST" &&
           (endsWith("/chat/completions") || endsWith(":generateContent") || endsWith(":streamGenerateContent") ||
            endsWith("/api/chat") || endsWith("/messages"));
}

}  // namespace

Words operator+(Words first, const Words& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

KAIEmulator& KaiTest::start(const std::string& provider, LoopbackTLS tls) {
    m_provider = provider;
    const bool isPlain = findEmulatedService(provider)->isPlainByDefault;
    m_emulator = std::make_unique<KAIEmulator>(
        KAIEmulatorOptions{.provider = provider, .tls = isPlain ? LoopbackTLS::Off : tls, .key = isPlain ? "" : kKey});
    m_emulator->setModels({"model-a", "model-b"});
    return *m_emulator;
}

Words KaiTest::reach() const {
    Words words{"--provider", m_provider, "--api-host", m_emulator->obtainHost()};
    if (const std::string caFile = m_emulator->obtainServer().obtainCAFile(); !caFile.empty()) {
        words = words + Words{"--ca-file", caFile};
    }
    return words;
}

Words KaiTest::turn() const {
    return reach() + Words{"--db", m_database, "--model", "model-a"};
}

KaiOutcome KaiTest::run(const Words& arguments, const std::string& input) {
    const std::unique_ptr<ChildProcess> process = launch(arguments);
    process->write(input);
    return finish(*process);
}

std::unique_ptr<ChildProcess> KaiTest::launch(const Words& arguments, ChildProcessSetup::Terminal terminal) {
    return std::make_unique<ChildProcess>(ChildProcessSetup{.arguments = Words{KAI_PROGRAM} + arguments,
                                                            .environment = m_environment,
                                                            .terminal = terminal,
                                                            .terminalColumns = m_terminalColumns,
                                                            .isBoundByPermissions = m_isBoundByPermissions});
}

KaiOutcome KaiTest::finish(ChildProcess& process) {
    process.closeInput();
    KaiOutcome outcome;
    outcome.code = process.wait();
    outcome.output = process.obtainOutput();
    outcome.errors = process.obtainErrors();
    m_everythingPrinted += outcome.output + outcome.errors;
    return outcome;
}

void KaiTest::expectFailure(const KaiOutcome& outcome, int code, const std::string& text) {
    EXPECT_EQ(outcome.code, code) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, testing::StartsWith("kai: "));
    EXPECT_THAT(outcome.errors, testing::HasSubstr(text));
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    EXPECT_THAT(outcome.errors, testing::EndsWith("\n"));
}

KAIEmulatorJson KaiTest::readBody(const LoopbackRequest& request) {
    return KAIEmulatorJson::parse(request.body);
}

std::vector<KAIEmulatorJson> KaiTest::listQuestions() {
    std::vector<KAIEmulatorJson> bodies;
    for (const LoopbackRequest& request : m_emulator->obtainServer().requests()) {
        if (isQuestion(request)) {
            bodies.push_back(readBody(request));
        }
    }
    return bodies;
}

void KaiTest::TearDown() {
    EXPECT_THAT(m_everythingPrinted, testing::Not(testing::HasSubstr(kKey)));
    for (const std::string& name : m_folder.list()) {
        if (name != "key" && std::filesystem::is_regular_file(m_folder.name(name))) {
            EXPECT_THAT(readFile(m_folder.name(name)), testing::Not(testing::HasSubstr(kKey))) << name;
        }
    }
}

KAIEmulatedAnswer answerWithSql(const std::string& sql) {
    return KAIEmulatedAnswer::say("Like this:\n\n```sql\n" + sql + "\n```\n");
}
