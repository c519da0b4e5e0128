#include <gmock/gmock.h>

#include "emulator_client.h"

namespace {

using testing::HasSubstr;

const KAIEmulatorJson hello{{"model", "deepseek-v4-flash"},
                            {"messages",
                             {{{"role", "system"}, {"content", "Be brief."}},
                              {{"role", "user"}, {"content", "first"}},
                              {{"role", "assistant"}, {"content", "one"}},
                              {{"role", "user"}, {"content", "second"}}}}};

std::string readError(const PlainResponse& response) {
    return EmulatorClient::parse(response).at("error").at("message").get<std::string>();
}

KAIEmulatorJson changed(const std::string& name, const KAIEmulatorJson& value) {
    KAIEmulatorJson body = hello;
    body[name] = value;
    return body;
}

KAIEmulatorJson sayOnce(const KAIEmulatorJson& message) {
    return {{"model", "deepseek-v4-flash"}, {"messages", KAIEmulatorJson::array({message})}};
}

}  // namespace

TEST(DeepSeekService, ListsItsModels) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    const auto response = client.get("/models");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body,
              R"({"object":"list","data":[{"id":"deepseek-v4-flash","object":"model","owned_by":"deepseek"},)"
              R"({"id":"deepseek-v4-pro","object":"model","owned_by":"deepseek"}]})");
}

TEST(DeepSeekService, ListsTheModelsItWasGiven) {
    KAIEmulator emulator;
    emulator.setModels({"own", {"other", {{"object", "tool"}, {"size", 7}}}});
    EmulatorClient client(emulator);
    const auto data = EmulatorClient::parse(client.get("/models")).at("data");
    ASSERT_EQ(data.size(), 2U);
    EXPECT_EQ(data[0].at("id"), "own");
    EXPECT_EQ(data[1].at("object"), "tool");
    EXPECT_EQ(data[1].at("size"), 7);
}

TEST(DeepSeekService, AnswersAConversation) {
    KAIEmulator emulator;
    KAIEmulatedTurn seen;
    emulator.answerWith([&](const KAIEmulatedTurn& turn) {
        seen = turn;
        return KAIEmulatedAnswer::say("two");
    });
    EmulatorClient client(emulator);
    const auto response = client.post("/chat/completions", hello);
    EXPECT_EQ(response.code, CURLE_OK);
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.head, HasSubstr("application/json"));
    const auto body = EmulatorClient::parse(response);
    EXPECT_EQ(body.at("object"), "chat.completion");
    EXPECT_EQ(body.at("model"), "deepseek-v4-flash");
    EXPECT_EQ(body.at("choices").size(), 1U);
    EXPECT_EQ(body.at("choices")[0].at("message"), (KAIEmulatorJson{{"role", "assistant"}, {"content", "two"}}));
    EXPECT_EQ(body.at("choices")[0].at("finish_reason"), "stop");
    EXPECT_GT(body.at("usage").at("prompt_tokens"), 0);
    EXPECT_TRUE(body.contains("system_fingerprint"));
    EXPECT_EQ(seen.model, "deepseek-v4-flash");
    EXPECT_EQ(seen.instructions, "Be brief.");
    EXPECT_EQ(seen.countHistory(), 2U);
    EXPECT_EQ(seen.obtainFirstQuestion(), "first");
    EXPECT_EQ(seen.obtainQuestion(), "second");
    EXPECT_EQ(seen.number, 1U);
}

TEST(DeepSeekService, SendsSeveralChoicesWithReasoning) {
    KAIEmulator emulator;
    emulator.queueAnswer(
        {.choices = {{.parts = {"a", "b"}, .reasoning = "hm"}, {.parts = {"c"}, .finishReason = "length"}}});
    EmulatorClient client(emulator);
    const auto choices = EmulatorClient::parse(client.post("/chat/completions", hello)).at("choices");
    ASSERT_EQ(choices.size(), 2U);
    EXPECT_EQ(choices[0].at("message").at("content"), "ab");
    EXPECT_EQ(choices[0].at("message").at("reasoning_content"), "hm");
    EXPECT_EQ(choices[1].at("index"), 1);
    EXPECT_EQ(choices[1].at("finish_reason"), "length");
}

TEST(DeepSeekService, RefusesAWrongOrMissingKey) {
    KAIEmulator emulator({.key = "right"});
    EXPECT_EQ(EmulatorClient(emulator, "right").get("/models").status, 200);
    for (const auto* key : {"wrong", "right2", ""}) {
        EmulatorClient client(emulator, key);
        const auto response = client.get("/models");
        EXPECT_EQ(response.status, 401) << key;
        EXPECT_EQ(EmulatorClient::parse(response).at("error").at("type"), "authentication_error");
        EXPECT_EQ(client.post("/chat/completions", hello).status, 401);
    }
}

TEST(DeepSeekService, TakesAnyKeyButAnEmptyOneWhenNoneIsDemanded) {
    KAIEmulator emulator;
    EXPECT_EQ(EmulatorClient(emulator, "whatever").get("/models").status, 200);
    EXPECT_EQ(EmulatorClient(emulator, "").get("/models").status, 401);
}

TEST(DeepSeekService, RefusesBodiesThatTheServiceRefuses) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    const auto expectRefusal = [&](const KAIEmulatorJson& body, int status, const std::string& message) {
        const auto response = client.post("/chat/completions", body);
        EXPECT_EQ(response.status, status) << body.dump();
        EXPECT_THAT(readError(response), HasSubstr(message));
    };
    expectRefusal(KAIEmulatorJson::array({1}), 422, "expected an object");
    expectRefusal(KAIEmulatorJson{{"messages", KAIEmulatorJson::array()}}, 422, "missing field `model`");
    expectRefusal(changed("model", 1), 422, "model: invalid type: number");
    expectRefusal(changed("model", "unknown"), 400, "Model Not Exist");
    expectRefusal(changed("messages", KAIEmulatorJson::object()), 422, "messages: expected a sequence");
    expectRefusal(changed("messages", KAIEmulatorJson::array()), 400, "Empty input messages");
    expectRefusal(changed("temperature", "0.5"), 422, "temperature: invalid type: string");
    expectRefusal(changed("temperature", 2.5), 400, "Invalid temperature value");
    expectRefusal(changed("stream", "yes"), 422, "stream: invalid type: string, expected a boolean");
    expectRefusal(changed("stream_options", {{"include_usage", true}}), 400, "only allowed when 'stream' is enabled");
    expectRefusal(changed("stream_options", 1), 422, "stream_options: invalid type: number");
    expectRefusal(sayOnce({{"role", "user"}}), 422, "messages[0]: missing field `content`");
    expectRefusal(sayOnce({{"role", "user"}, {"content", nullptr}}), 422, "content: invalid type: null");
    expectRefusal(sayOnce({{"role", "model"}, {"content", "x"}}), 422, "unknown variant `model`");
    expectRefusal(sayOnce({{"role", "assistant"}, {"content", "x"}}), 400, "last message");
    const auto response = client.post("/chat/completions", std::string("{\"model\":"));
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(EmulatorClient::parse(response).at("error").at("code"), "invalid_request_error");
}

TEST(DeepSeekService, RefusesABodyThatIsNotAnnouncedAsJson) {
    KAIEmulator emulator({.tls = LoopbackTLS::Off});
    PlainClient client;
    const auto response = client.send({.method = "POST",
                                       .url = emulator.obtainServer().obtainURL("/chat/completions"),
                                       .headers = {"Authorization: Bearer k"},
                                       .body = hello.dump()});
    EXPECT_EQ(response.status, 415);
}

TEST(DeepSeekService, RefusesPathsAndMethodsThatItDoesNotHave) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    EXPECT_EQ(client.get("/model").status, 404);
    EXPECT_EQ(client.get("/v2/models").status, 404);
    EXPECT_EQ(client.get("/chat/completions").status, 405);
    EXPECT_EQ(client.post("/models", hello).status, 405);
}

TEST(DeepSeekService, ServesUnderV1AsWell) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    EXPECT_EQ(client.get("/v1/models").status, 200);
    EXPECT_EQ(client.post("/v1/chat/completions", hello).status, 200);
}

TEST(DeepSeekService, ServesUnderItsPathPrefixOnly) {
    KAIEmulator emulator({.pathPrefix = "/api/v1"});
    EXPECT_EQ(emulator.obtainHost(), emulator.obtainServer().obtainAuthority() + "/api/v1");
    EmulatorClient client(emulator);
    EXPECT_EQ(client.get("/api/v1/models").status, 200);
    EXPECT_EQ(client.get("/v1/models").status, 404);
    EXPECT_EQ(client.get("/models").status, 404);
}
