#include <gmock/gmock.h>

#include "emulator_client.h"

namespace {

using testing::HasSubstr;

constexpr const char* kGeneratePath = "/v1beta/models/gemini-3.5-flash:generateContent?key=secret";

class GoogleService : public testing::Test {
protected:
    PlainResponse generate(const KAIEmulatorJson& body) { return client.post(kGeneratePath, body); }
    static KAIEmulatorJson say(const std::string& role, const std::string& text) {
        return {{"role", role}, {"parts", KAIEmulatorJson::array({{{"text", text}}})}};
    }
    static std::string readError(const PlainResponse& response) {
        return EmulatorClient::parse(response).at("error").at("message").get<std::string>();
    }
    static KAIEmulatorJson changed(const std::string& name, const KAIEmulatorJson& value) {
        KAIEmulatorJson body{{"contents", KAIEmulatorJson::array({say("user", "Who?")})}};
        body[name] = value;
        return body;
    }

    KAIEmulator emulator{{.provider = "google"}};
    EmulatorClient client{emulator, ""};
};

}  // namespace

TEST_F(GoogleService, ListsItsModelsWithTheirMethods) {
    const auto models = EmulatorClient::parse(client.get("/v1beta/models?key=secret")).at("models");
    ASSERT_EQ(models.size(), 4U);
    EXPECT_EQ(models[1].at("name"), "models/gemini-3.5-flash");
    EXPECT_EQ(models[1].at("displayName"), "Gemini 3.5 Flash");
    EXPECT_EQ(models[1].at("supportedGenerationMethods"), (KAIEmulatorJson{"generateContent", "countTokens"}));
    EXPECT_EQ(models[2].at("supportedGenerationMethods"), KAIEmulatorJson::array({"embedContent"}));
}

TEST_F(GoogleService, AnswersAConversation) {
    KAIEmulatedTurn seen;
    emulator.answerWith([&](const KAIEmulatedTurn& turn) {
        seen = turn;
        return KAIEmulatedAnswer::say("two");
    });
    const auto response = generate({{"generationConfig", {{"temperature", 0.5}}},
                                    {"system_instruction", {{"parts", {{"text", "Be brief."}}}}},
                                    {"contents", {say("user", "first"), say("model", "one"), say("user", "second")}}});
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.head, HasSubstr("application/json; charset=UTF-8"));
    const auto body = EmulatorClient::parse(response);
    const auto& candidate = body.at("candidates").at(0);
    EXPECT_EQ(candidate.at("content").dump(), R"({"parts":[{"text":"two"}],"role":"model"})");
    EXPECT_EQ(candidate.at("finishReason"), "STOP");
    EXPECT_EQ(candidate.at("safetyRatings").size(), 4U);
    EXPECT_GT(body.at("usageMetadata").at("totalTokenCount"), 0);
    EXPECT_EQ(body.at("modelVersion"), "gemini-3.5-flash");
    EXPECT_EQ(seen.model, "gemini-3.5-flash");
    EXPECT_EQ(seen.instructions, "Be brief.");
    EXPECT_EQ(seen.countHistory(), 2U);
    EXPECT_EQ(seen.messages.at(1).role, "assistant");
    EXPECT_EQ(seen.obtainQuestion(), "second");
}

TEST_F(GoogleService, SendsSeveralCandidatesWithPartsAndThoughts) {
    emulator.queueAnswer({.choices = {{.parts = {"a", "b"}, .reasoning = "hm"}, {.finishReason = "MAX_TOKENS"}}});
    const auto body = EmulatorClient::parse(generate(changed("safetySettings", KAIEmulatorJson::array())));
    const auto& candidates = body.at("candidates");
    ASSERT_EQ(candidates.size(), 2U);
    const auto& parts = candidates[0].at("content").at("parts");
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_EQ(parts[0], (KAIEmulatorJson{{"text", "hm"}, {"thought", true}}));
    EXPECT_EQ(parts[2].at("text"), "b");
    EXPECT_TRUE(parts[2].contains("thoughtSignature"));
    EXPECT_EQ(candidates[1].at("content"), (KAIEmulatorJson{{"role", "model"}}));
    EXPECT_EQ(candidates[1].at("finishReason"), "MAX_TOKENS");
    EXPECT_TRUE(body.at("usageMetadata").contains("thoughtsTokenCount"));
}

TEST_F(GoogleService, TellsABlockedPromptWithoutCandidates) {
    emulator.queueAnswer({});
    const auto body = EmulatorClient::parse(generate(changed("tools", KAIEmulatorJson::array())));
    EXPECT_FALSE(body.contains("candidates"));
    EXPECT_EQ(body.at("promptFeedback").at("blockReason"), "SAFETY");
}

TEST_F(GoogleService, ChecksTheKeyOfTheQuery) {
    KAIEmulator strict({.provider = "google", .key = "a b&c"});
    EmulatorClient strictClient(strict, "");
    EXPECT_EQ(strictClient.get("/v1beta/models?key=a%20b%26c").status, 200);
    const auto wrong = strictClient.get("/v1beta/models?key=wrong");
    EXPECT_EQ(wrong.status, 400);
    const auto error = EmulatorClient::parse(wrong).at("error");
    EXPECT_EQ(error.at("code"), 400);
    EXPECT_EQ(error.at("status"), "INVALID_ARGUMENT");
    EXPECT_EQ(error.at("message"), "API key not valid. Please pass a valid API key.");
    EXPECT_EQ(error.at("details").at(0).at("reason"), "API_KEY_INVALID");
    for (const auto* path : {"/v1beta/models", "/v1beta/models?key="}) {
        const auto response = strictClient.get(path);
        EXPECT_EQ(response.status, 403);
        EXPECT_EQ(EmulatorClient::parse(response).at("error").at("status"), "PERMISSION_DENIED");
    }
    EXPECT_EQ(strictClient.post("/v1beta/models/gemini-3.5-flash:generateContent?key=no", changed("model", "x")).status,
              400);
    strictClient.addHeader("x-goog-api-key: a b&c");
    EXPECT_EQ(strictClient.get("/v1beta/models").status, 200);
}

TEST_F(GoogleService, RefusesBodiesThatTheServiceRefuses) {
    const auto expectRefusal = [&](const KAIEmulatorJson& body, const std::string& message) {
        const auto response = generate(body);
        EXPECT_EQ(response.status, 400) << body.dump();
        EXPECT_THAT(readError(response), HasSubstr(message));
    };
    expectRefusal(KAIEmulatorJson::array({1}), "an object is expected");
    expectRefusal(KAIEmulatorJson::object(), "contents is not specified");
    expectRefusal(changed("contents", KAIEmulatorJson::array()), "contents is not specified");
    expectRefusal(changed("messages", 1), "Unknown name \"messages\": Cannot find field.");
    expectRefusal(changed("contents", {say("assistant", "x")}), "Please use a valid role: user, model.");
    expectRefusal(changed("contents", {say("user", "x"), say("model", "y")}), "last content");
    expectRefusal(changed("contents", {{{"role", "user"}}}), "contents[0].parts");
    expectRefusal(changed("contents", {{{"role", "user"}, {"parts", KAIEmulatorJson::array()}}}), "must not be empty");
    expectRefusal(changed("contents", {{{"role", "user"}, {"parts", {{{"text", 5}}}}}}),
                  "Invalid value at 'contents[0].parts[0].text' (TYPE_STRING), 5");
    expectRefusal(changed("contents", {{{"role", "user"}, {"parts", {{{"tekst", "x"}}}}}}), "Unknown name \"tekst\"");
    expectRefusal(changed("generationConfig", {{"temperature", "0.5"}}), "(TYPE_FLOAT)");
    expectRefusal(changed("generationConfig", {{"temperature", 2.1}}), "range [0.0, 2.0]");
    EXPECT_EQ(client.post(kGeneratePath, std::string("{")).status, 400);
}

TEST_F(GoogleService, DoesNotFindUnknownModelsAndPaths) {
    const auto unknown = client.post("/v1beta/models/other:generateContent?key=k", changed("model", "x"));
    EXPECT_EQ(unknown.status, 404);
    EXPECT_EQ(EmulatorClient::parse(unknown).at("error").at("status"), "NOT_FOUND");
    for (const auto* path :
         {"/v1/models", "/v1beta/models/gemini-3.5-flash:nothing", "/v1beta/models:generateContent"}) {
        const auto response = client.get(path);
        EXPECT_EQ(response.status, 404);
        EXPECT_THAT(response.head, HasSubstr("text/html"));
    }
}

TEST_F(GoogleService, FindsAModelWhoseNameIsEncodedInThePath) {
    emulator.setModels({"odd name/1"});
    EXPECT_EQ(client.post("/v1beta/models/odd%20name%2f1:generateContent?key=k", changed("tools", 1)).status, 200);
}
