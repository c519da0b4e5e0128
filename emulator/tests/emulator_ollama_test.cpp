#include <gmock/gmock.h>

#include "emulator_client.h"

namespace {

using testing::HasSubstr;

class OllamaService : public testing::Test {
protected:
    static KAIEmulatorJson changed(const std::string& name, const KAIEmulatorJson& value) {
        KAIEmulatorJson body{{"model", "llama3.2"},
                             {"stream", false},
                             {"messages",
                              {{{"role", "system"}, {"content", "Be brief."}},
                               {{"role", "user"}, {"content", "first"}},
                               {{"role", "assistant"}, {"content", "one"}},
                               {{"role", "user"}, {"content", "second"}}}}};
        body[name] = value;
        return body;
    }
    PlainResponse chat(const KAIEmulatorJson& body) { return client.post("/api/chat", body); }

    KAIEmulator emulator{{.provider = "ollama", .tls = LoopbackTLS::Off}};
    EmulatorClient client{emulator, ""};
};

}  // namespace

TEST_F(OllamaService, ListsTheInstalledModels) {
    const auto models = EmulatorClient::parse(client.get("/api/tags")).at("models");
    ASSERT_EQ(models.size(), 2U);
    EXPECT_EQ(models[0].at("name"), "llama3.2:latest");
    EXPECT_EQ(models[0].at("details").at("format"), "gguf");
    EXPECT_EQ(models[1].at("model"), "qwen2.5-coder:7b");
}

TEST_F(OllamaService, AnswersAConversationWhole) {
    KAIEmulatedTurn seen;
    emulator.answerWith([&](const KAIEmulatedTurn& turn) {
        seen = turn;
        return KAIEmulatedAnswer{.choices = {{.parts = {"tw", "o"}, .reasoning = "hm"}, {.parts = {"unsent"}}}};
    });
    const auto response = chat(changed("options", {{"temperature", 0.5}}));
    EXPECT_EQ(response.status, 200);
    const auto body = EmulatorClient::parse(response);
    EXPECT_EQ(body.at("model"), "llama3.2");
    EXPECT_EQ(body.at("message"), (KAIEmulatorJson{{"role", "assistant"}, {"content", "two"}, {"thinking", "hm"}}));
    EXPECT_EQ(body.at("done"), true);
    EXPECT_EQ(body.at("done_reason"), "stop");
    EXPECT_GT(body.at("total_duration"), body.at("load_duration"));
    EXPECT_GT(body.at("prompt_eval_count"), 0);
    EXPECT_THAT(body.at("created_at").get<std::string>(), testing::EndsWith("Z"));
    EXPECT_EQ(seen.model, "llama3.2");
    EXPECT_EQ(seen.instructions, "Be brief.");
    EXPECT_EQ(seen.countHistory(), 2U);
    EXPECT_EQ(seen.obtainQuestion(), "second");
}

TEST_F(OllamaService, StreamsLinesUnlessToldNotTo) {
    for (const auto& stream : {KAIEmulatorJson(true), KAIEmulatorJson(nullptr)}) {
        emulator.queueAnswer({.choices = {{.parts = {"tw", "o"}}}});
        const auto response = chat(changed("stream", stream));
        EXPECT_THAT(response.head, HasSubstr("application/x-ndjson"));
        EXPECT_EQ(std::ranges::count(response.body, '\n'), 3);
        EXPECT_FALSE(KAIEmulatorJson::accept(response.body));
    }
}

TEST_F(OllamaService, LoadsAModelWhenThereIsNoMessage) {
    const auto body = EmulatorClient::parse(chat(changed("messages", KAIEmulatorJson::array())));
    EXPECT_EQ(body.at("done_reason"), "load");
    EXPECT_EQ(body.at("message").at("content"), "");
}

TEST_F(OllamaService, TellsErrorsAsAPlainString) {
    const auto expectRefusal = [&](const KAIEmulatorJson& request, int status, const std::string& message) {
        const auto response = chat(request);
        EXPECT_EQ(response.status, status) << request.dump();
        const auto body = EmulatorClient::parse(response);
        ASSERT_TRUE(body.at("error").is_string());
        EXPECT_THAT(body.at("error").get<std::string>(), HasSubstr(message));
    };
    expectRefusal(changed("model", "unknown"), 404, "model 'unknown' not found");
    expectRefusal(changed("model", ""), 400, "model is required");
    expectRefusal(changed("model", 1), 400, "cannot unmarshal number");
    expectRefusal(changed("stream", "no"), 400, "ChatRequest.stream of type bool");
    expectRefusal(changed("options", 1), 400, "ChatRequest.options");
    expectRefusal(changed("options", {{"temperature", "0.5"}}), 400, "option \"temperature\" must be of type float32");
    expectRefusal(changed("messages", 1), 400, "ChatRequest.messages");
    expectRefusal(changed("messages", KAIEmulatorJson::array({1})), 400, "ChatRequest.messages");
    expectRefusal(changed("messages", {{{"role", "model"}, {"content", "x"}}}), 400, "invalid role: \"model\"");
    expectRefusal(KAIEmulatorJson::array({1}), 400, "cannot unmarshal array");
    EXPECT_EQ(client.post("/api/chat", std::string()).status, 400);
    EXPECT_EQ(client.post("/api/chat", std::string("{")).status, 400);
    emulator.queueAnswer(KAIEmulatedAnswer::refuse(500, "out of memory"));
    expectRefusal(changed("stream", false), 500, "out of memory");
}

TEST_F(OllamaService, TakesANameWithoutItsTag) {
    emulator.setModels({"own", "other:1b"});
    EXPECT_EQ(chat(changed("model", "own:latest")).status, 200);
    EXPECT_EQ(chat(changed("model", "own")).status, 200);
    EXPECT_EQ(chat(changed("model", "other:1b")).status, 200);
    EXPECT_EQ(chat(changed("model", "other")).status, 404);
}

TEST_F(OllamaService, ServesNothingElse) {
    EXPECT_EQ(client.get("/").body, "Ollama is running");
    EXPECT_TRUE(EmulatorClient::parse(client.get("/api/version")).contains("version"));
    EXPECT_EQ(client.get("/v1/models").body, "404 page not found");
    EXPECT_EQ(client.get("/api/chat").status, 405);
}
