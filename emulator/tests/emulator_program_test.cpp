#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>

#include "child_process.h"
#include "emulator_client.h"
#include "temporary_folder.h"

namespace {

using testing::HasSubstr;

/// A running kai-emulator. Its standard output and error come through one pipe.
class Program : public ChildProcess {
public:
    explicit Program(const std::vector<std::string>& arguments) : ChildProcess(setUp(arguments)) {}

    int end(int signal) {
        sendSignal(signal);
        return wait();
    }

private:
    static ChildProcessSetup setUp(const std::vector<std::string>& arguments) {
        ChildProcessSetup setup{.arguments = {KAI_EMULATOR_PROGRAM}, .errors = ChildProcessSetup::Errors::WithOutput};
        setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
        return setup;
    }
};

std::string failToStart(const std::vector<std::string>& arguments) {
    Program program(arguments);
    const std::string line = program.readLine();
    EXPECT_EQ(program.wait(), 2) << line;
    return line;
}

}  // namespace

TEST(EmulatorProgram, TellsItsAddressServesAndEndsOnASignal) {
    const TemporaryFolder folder;
    const auto scenario = folder.write("s.json", R"({"rules": [{"answer": "SELECT 1;"}]})");
    const auto caFile = folder.name("ca.pem");
    const auto readyFile = folder.name("ready.json");
    for (const int signal : {SIGTERM, SIGINT}) {
        Program program(
            {"--scenario", scenario, "--ca-file", caFile, "--ready-file", readyFile, "--path-prefix", "/v1"});
        const std::string line = program.readLine();
        EXPECT_EQ(readFile(readyFile), line + "\n");
        const auto ready = KAIEmulatorJson::parse(line);
        EXPECT_EQ(ready.at("provider"), "deepseek");
        EXPECT_EQ(ready.at("scheme"), "https");
        EXPECT_EQ(ready.at("ca_file"), caFile);
        EXPECT_EQ(ready.at("host"), "127.0.0.1:" + ready.at("port").dump() + "/v1");
        PlainClient client(caFile);
        const auto response =
            client.send({.method = "POST",
                         .url = "https://" + ready.at("host").get<std::string>() + "/chat/completions",
                         .headers = {"Content-Type: application/json", "Authorization: Bearer k"},
                         .body = R"({"model":"deepseek-v4-flash","messages":[{"role":"user","content":"x"}]})"});
        EXPECT_EQ(response.status, 200);
        EXPECT_THAT(response.body, HasSubstr("SELECT 1;"));
        EXPECT_EQ(program.end(signal), 0);
    }
}

TEST(EmulatorProgram, SpeaksPlainHTTPForOllamaUnlessToldOtherwise) {
    Program plain({"--provider", "ollama"});
    EXPECT_EQ(KAIEmulatorJson::parse(plain.readLine()).at("scheme"), "http");
    Program encrypted({"--provider", "ollama", "--tls"});
    const auto ready = KAIEmulatorJson::parse(encrypted.readLine());
    EXPECT_EQ(ready.at("scheme"), "https");
    PlainClient client(ready.at("ca_file").get<std::string>());
    EXPECT_EQ(client.send({.url = "https://" + ready.at("host").get<std::string>() + "/api/tags"}).status, 200);
    EXPECT_EQ(plain.end(SIGTERM), 0);
    EXPECT_EQ(encrypted.end(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::exists(ready.at("ca_file").get<std::string>()));
}

TEST(EmulatorProgram, EndsWhileAReplyStalls) {
    const TemporaryFolder folder;
    const auto scenario =
        folder.write("s.json", R"({"rules": [{"answer": "x", "delivery": {"fault": "stall_before_reply"}}]})");
    Program program({"--scenario", scenario, "--plain", "--log"});
    const auto ready = KAIEmulatorJson::parse(program.readLine());
    EXPECT_EQ(ready.at("scheme"), "http");
    EXPECT_EQ(ready.at("ca_file"), nullptr);
    auto response = std::async(std::launch::async, [&] {
        return PlainClient().send(
            {.method = "POST",
             .url = "http://" + ready.at("host").get<std::string>() + "/chat/completions",
             .headers = {"Content-Type: application/json", "Authorization: Bearer k"},
             .body = R"({"model":"deepseek-v4-flash","messages":[{"role":"user","content":"x"}]})"});
    });
    EXPECT_EQ(program.readLine(), "POST /chat/completions 200");
    EXPECT_EQ(program.end(SIGTERM), 0);
    EXPECT_NE(response.get().code, CURLE_OK);
}

TEST(EmulatorProgram, DemandsTheKeyOfAFileOrAVariable) {
    const TemporaryFolder folder;
    const auto keyFile = folder.write("key", "from-file\n");
    setenv("EMULATOR_TEST_KEY", "from-variable", 1);
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--plain", "--log", "--key-file", keyFile}, "from-file"},
        {{"--plain", "--log", "--key-env", "EMULATOR_TEST_KEY"}, "from-variable"}};
    for (const auto& [arguments, key] : cases) {
        Program program(arguments);
        const auto ready = program.readLine();
        EXPECT_THAT(ready, testing::Not(HasSubstr(key)));
        const std::string url = "http://" + KAIEmulatorJson::parse(ready).at("host").get<std::string>() + "/models";
        PlainClient client;
        EXPECT_EQ(client.send({.url = url, .headers = {"Authorization: Bearer " + key}}).status, 200);
        EXPECT_EQ(client.send({.url = url, .headers = {"Authorization: Bearer other"}}).status, 401);
        EXPECT_EQ(program.readLine(), "GET /models 200");
        EXPECT_EQ(program.readLine(), "GET /models 401");
        EXPECT_EQ(program.end(SIGTERM), 0);
    }
}

TEST(EmulatorProgram, SaysInOneLineWhyItDoesNotStart) {
    const TemporaryFolder folder;
    const auto broken = folder.write("broken.json", "{\"rules\": [1]}");
    const auto other = folder.write("other.json", "{\"provider\": \"google\"}");
    EXPECT_EQ(failToStart({"--scenario", broken}), "kai-emulator: " + broken + ": rules[0]: must be an object");
    EXPECT_EQ(failToStart({"--scenario", other}),
              "kai-emulator: " + other + ": written for provider \"google\"; " + "start with --provider google");
    EXPECT_EQ(failToStart({"--scenario", "/nonexistent"}),
              "kai-emulator: /nonexistent: cannot be read; check the name and its permissions");
    EXPECT_THAT(failToStart({"--nonsense"}), HasSubstr("--nonsense"));
    EXPECT_THAT(failToStart({"--provider", "nobody"}), HasSubstr("nobody"));
    EXPECT_THAT(failToStart({"--tls", "--plain"}), HasSubstr("excludes"));
    EXPECT_THAT(failToStart({"--key-env", "EMULATOR_TEST_NO_SUCH"}), HasSubstr("EMULATOR_TEST_NO_SUCH holds no key"));
    EXPECT_THAT(failToStart({"--key-file", "/nonexistent"}), HasSubstr("no key there"));
    EXPECT_THAT(failToStart({"--path-prefix", "v1"}), HasSubstr("--path-prefix"));
    EXPECT_THAT(failToStart({"--ca-file", "/nonexistent/ca.pem"}), HasSubstr("cannot be written"));
    KAIEmulator emulator;
    const std::string port = std::to_string(emulator.obtainServer().obtainPort());
    EXPECT_THAT(failToStart({"--port", port}), HasSubstr("cannot listen on 127.0.0.1:" + port));
}

TEST(EmulatorProgram, HelpsOnRequest) {
    Program program({"--help"});
    EXPECT_THAT(program.readLine(), HasSubstr("Emulates"));
    EXPECT_EQ(program.wait(), 0);
}
