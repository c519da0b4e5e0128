#include <gtest/gtest.h>

#include "chat_fixture.h"

using Names = std::vector<std::string>;

namespace {

class ChatModels : public ChatContract {
protected:
    /// Expects a listing to fail with this text.
    void expectError(const std::string& error) {
        const auto [models, text] = m_assistant->obtainAvailableModels();
        EXPECT_TRUE(models.empty());
        EXPECT_EQ(text, error);
    }

    /// Expects a failed response with this body to be reported as the given text by a provider that reads the message
    /// or the body, by one that reads the message only, and by one that reads nothing.
    void expectErrorOf(const LoopbackReply& reply, const std::string& messageOrBody, const std::string& messageOnly,
                       const std::string& nothing) {
        answer(reply);
        switch (GetParam().modelsErrors) {
            case ErrorReading::MessageOrBody:
                return expectError(messageOrBody);
            case ErrorReading::MessageOnly:
                return expectError(messageOnly);
            case ErrorReading::Nothing:
                return expectError(nothing);
        }
    }
};

INSTANTIATE_FOR_CHAT_PROVIDERS(ChatModels);

void translate(const char* /*eventName*/, void* data) {
    auto* info = static_cast<KAICallbackLocalizationInfo*>(data);
    ("<" + std::string(info->sourceText) + ">").copy(info->answerBuffer, sizeof info->answerBuffer - 1);
}

}  // namespace

TEST_P(ChatModels, AreListedInTheServersOrderByOneRequest) {
    answerBody(GetParam().writeModels({"b", "a", "b", "c:latest"}));
    const auto [models, error] = m_assistant->obtainAvailableModels();
    EXPECT_EQ(error, "");
    EXPECT_EQ(models, (Names{"b", "a", "b", "c:latest"}));
    ASSERT_EQ(m_server.countRequests(), 1U);
    const LoopbackRequest request = obtainLastRequest();
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, obtainTarget(GetParam().modelsPath));
    EXPECT_EQ(request.body, "");
    EXPECT_EQ(request.findHeader("Content-Type"), nullptr);
    expectHeaders(request);
}

TEST_P(ChatModels, AreListedWithoutAModelSet) {
    const AssistantHandle assistant = createAssistant("secret", "");
    answerBody(GetParam().writeModels({"a"}));
    EXPECT_EQ(assistant->obtainAvailableModels().first, Names{"a"});
}

TEST_P(ChatModels, MayBeNone) {
    answerBody(GetParam().writeModels({}));
    const auto [models, error] = m_assistant->obtainAvailableModels();
    EXPECT_TRUE(models.empty());
    EXPECT_EQ(error, "");
}

TEST_P(ChatModels, AreReadWhateverTheContentType) {
    answer(LoopbackReply{.headers = {{"Content-Type", "text/html"}}, .body = GetParam().writeModels({"a"})});
    EXPECT_EQ(m_assistant->obtainAvailableModels().first, Names{"a"});
}

TEST_P(ChatModels, ReportTheServersMessageOfAFailedExchange) {
    const std::string body = R"({"error":{"code":401,"message":"bad key"}})";
    expectErrorOf({.status = 401, .body = body}, "bad key", "bad key", "HTTP 401 Unauthorized");
}

TEST_P(ChatModels, ReportAFailedExchangeWithoutAMessageAsEachProviderDoes) {
    for (const char* body : {R"({"error":"bad key"})", R"({"error":{"message":1}})", R"({"error":null})", "[]",
                             "<html>Bad Gateway</html>"}) {
        expectErrorOf({.status = 502, .body = body}, body, "HTTP 502 Bad Gateway", "HTTP 502 Bad Gateway");
    }
}

TEST_P(ChatModels, ReportTheTransportsTextWhereTheServerSaysNothing) {
    answer(LoopbackReply{.status = 503});
    expectError("HTTP 503 Service Unavailable");
    answer(LoopbackReply{.status = 500, .body = R"({"error":{"message":""}})"});
    expectError("HTTP 500 Internal Server Error");
    answer(LoopbackReply{.status = 302, .headers = {{"Location", "/elsewhere"}}});
    expectError("HTTP 302 Found");
    answer(LoopbackReply{.status = 599});
    expectError("HTTP 599");
}

TEST_P(ChatModels, ReportTheTransportsTextWhereNoResponseCame) {
    answer(LoopbackReply{.fault = LoopbackFault::ResetBeforeReply});
    EXPECT_NE(m_assistant->obtainAvailableModels().second, "");
    m_server.stop();
    const auto [models, error] = m_assistant->obtainAvailableModels();
    EXPECT_TRUE(models.empty());
    EXPECT_NE(error, "");
}

TEST_P(ChatModels, ReportAResponseThatIsNotJSONAsInvalid) {
    for (const char* body : {"", "text", "{", "{} x"}) {
        answerBody(body);
        expectError("Invalid response" + GetParam().modelsSuffix);
    }
}

TEST_P(ChatModels, ReportJSONOfAnotherFormAsUnsupported) {
    for (const char* body :
         {"{}", "[]", "null", "1", R"({"models":null,"data":null})", R"({"models":{},"data":{}})",
          R"({"models":"a","data":"a"})", R"({"models":1,"data":1})", R"([{"models":[],"data":[]}])"}) {
        answerBody(body);
        expectError("Unsupported data format" + GetParam().modelsSuffix);
    }
}

TEST_P(ChatModels, ReportTheirOwnErrorsInTheHostsLanguageWithAnUntranslatedSuffix) {
    KAIRegisterCallback(translate);
    answerBody("text");
    expectError("<Invalid response>" + GetParam().modelsSuffix);
    answerBody("{}");
    expectError("<Unsupported data format>" + GetParam().modelsSuffix);
}

TEST_P(ChatModels, ReportTheServersAndTheTransportsTextsUntranslated) {
    KAIRegisterCallback(translate);
    answer(LoopbackReply{.status = 503});
    expectError("HTTP 503 Service Unavailable");
    expectErrorOf({.status = 400, .body = R"({"error":{"message":"Invalid response"}})"}, "Invalid response",
                  "Invalid response", "HTTP 400 Bad Request");
}
