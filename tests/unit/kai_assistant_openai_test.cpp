#include "kai_assistant_openai.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "openai_fixture.h"

using Texts = std::vector<std::string>;

namespace {

void translate(const char* /*eventName*/, void* data) {
    auto* info = static_cast<KAICallbackLocalizationInfo*>(data);
    ("<" + std::string(info->sourceText) + ">").copy(info->answerBuffer, sizeof info->answerBuffer - 1);
}

std::unique_ptr<KAIAssistant_OPENAI> makeAssistant(const std::string& host, const std::string& key = "key") {
    return std::make_unique<KAIAssistant_OPENAI>(nullptr, host, key);
}

class KAIAssistant_OPENAITest : public OpenAITest {
protected:
    /// Expects setAssistantProperties to fail with this text and to leave model and id as they were.
    void expectError(const std::string& error) {
        const std::string id = m_assistant->obtainAssistantID();
        const std::string model = get("model").stringValue();
        EXPECT_EQ(set("model", "refused"), error);
        EXPECT_EQ(m_assistant->obtainAssistantID(), id);
        EXPECT_EQ(get("model").stringValue(), model);
    }

    /// Expects each way in which a POST to this path can fail to be reported with this suffix.
    void expectErrorsOf(const std::string& request, const std::string& suffix) {
        answer(request, LoopbackReply{.status = 401, .body = R"({"error":{"message":"bad key"}})"});
        expectError("bad key");
        for (const char* body : {"", "text", "{", "<html></html>"}) {
            answer(request, body);
            expectError("Invalid response" + suffix);
        }
        for (const char* body : {"[]", "null", "1", R"("asst_1")", R"([{"id":"asst_1"}])"}) {
            answer(request, body);
            expectError("Unsupported data format" + suffix);
        }
        for (const std::string& id : writeMembersThatAreNoString("id")) {
            answer(request, "{" + id + R"("object":"assistant"})");
            expectError("Unsupported data format" + suffix);
        }
    }
};

}  // namespace

TEST_F(KAIAssistant_OPENAITest, StartsWithTheDefaultHostForABlankOneAndTheTrimmedOneOtherwise) {
    for (const char* host : {"", " \t\r\n\v\f"}) {
        EXPECT_EQ(makeAssistant(host)->obtainAssistantProperties()->obtainProperty("api_host").stringValue(),
                  "api.openai.com");
    }
    EXPECT_EQ(makeAssistant(" h:1 ")->obtainAssistantProperties()->obtainProperty("api_host").stringValue(), "h:1");
    EXPECT_EQ(get("name").stringValue(), "Keltrix Assistant");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
}

TEST_F(KAIAssistant_OPENAITest, HandsOutItsOwnLiveProperties) {
    EXPECT_EQ(m_assistant->obtainAssistantProperties(), m_properties);
    createOnService();
    EXPECT_EQ(m_assistant->obtainAssistantProperties(), m_properties);
    EXPECT_EQ(get("model").stringValue(), "m") << "later changes are seen in it";
    EXPECT_TRUE(m_properties->setProperty("user_instructions", "directly"));
    EXPECT_EQ(m_assistant->obtainAssistantProperties()->obtainProperty("user_instructions").stringValue(), "directly");
}

TEST_F(KAIAssistant_OPENAITest, SendsKeyAndProtocolHeaderWithEveryRequest) {
    createOnService();
    const auto session = createSession();
    KAIFreeObject(m_assistant->addMessage(session.get(), "q").first);
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    m_assistant->obtainAvailableModels();
    ASSERT_EQ(m_server.countRequests(), 9U);
    for (const LoopbackRequest& request : m_server.requests()) {
        ASSERT_NE(request.findHeader("Authorization"), nullptr) << request.target;
        EXPECT_EQ(*request.findHeader("Authorization"), "Bearer secret");
        ASSERT_NE(request.findHeader("OpenAI-Beta"), nullptr) << request.method;
        EXPECT_EQ(*request.findHeader("OpenAI-Beta"), "assistants=v2");
    }
    EXPECT_EQ(m_server.countConnections(), 1U);
    EXPECT_EQ(m_server.countHandshakes(), 1U);
}

TEST_F(KAIAssistant_OPENAITest, SendsTheKeyUntrimmed) {
    const auto assistant = makeAssistant(m_server.obtainAuthority(), "  a key");
    assistant->obtainAvailableModels();
    EXPECT_EQ(*m_server.requests().at(0).findHeader("Authorization"), "Bearer   a key");
}

TEST_F(KAIAssistant_OPENAITest, SendsNothingWhenItIsFreed) {
    createOnService();
    const auto session = createSession();
    takeRequests();
    m_assistant.reset();
    EXPECT_EQ(takeRequests(), Texts());
}

TEST_F(KAIAssistant_OPENAITest, RefusesAnEmptyFunctionUntranslated) {
    KAIRegisterCallback(translate);
    EXPECT_EQ(m_assistant->setAssistantProperties({}), "Properties not set");
    EXPECT_EQ(takeRequests(), Texts());
}

TEST_F(KAIAssistant_OPENAITest, RefusesAFirstCallWithoutAModel) {
    EXPECT_EQ(set("user_instructions", "U"), "Model is empty");
    EXPECT_EQ(takeRequests(), Texts());
    EXPECT_EQ(get("user_instructions").stringValue(), "");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
    KAIRegisterCallback(translate);
    EXPECT_EQ(set("model", ""), "<Model is empty>");
}

TEST_F(KAIAssistant_OPENAITest, CreatesTheAssistantOnTheServiceByTheFirstCall) {
    EXPECT_EQ(m_assistant->setAssistantProperties([this](IKAIProperties* properties) {
        EXPECT_EQ(properties->obtainProperty("api_host").stringValue(), m_server.obtainAuthority());
        EXPECT_EQ(properties->obtainProperty("model").stringValue(), "");
        properties->setProperty("user_instructions", "U");
        properties->setProperty("temperature", "0.2");
        properties->setProperty("model", "m");
        properties->setProperty("system_instructions", CMVariantMap{{"n", "S"}});
    }),
              "");
    EXPECT_EQ(takeRequests(), Texts{"POST /v1/assistants"});
    EXPECT_EQ(obtainLastBody(), R"({"model":"m","temperature":0.2,"instructions":"U\n\nS\n"})");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    EXPECT_EQ(get("temperature").doubleValue(), 0.2) << "the first call keeps the temperature";
    EXPECT_EQ(get("combined_instructions").stringValue(), "U\n\nS\n");
}

TEST_F(KAIAssistant_OPENAITest, SendsOnlyWhatWasAssigned) {
    EXPECT_EQ(set("model", "m"), "");
    EXPECT_EQ(obtainLastBody(), R"({"model":"m"})");
}

TEST_F(KAIAssistant_OPENAITest, NeverSendsNameAndDescriptionYetKeepsThemOfTheFirstCall) {
    EXPECT_EQ(m_assistant->setAssistantProperties([](IKAIProperties* properties) {
        properties->setProperty("name", "N");
        properties->setProperty("description", "D");
        properties->setProperty("model", "m");
    }),
              "");
    EXPECT_EQ(obtainLastBody(), R"({"model":"m"})");
    EXPECT_EQ(get("name").stringValue(), "N");
    EXPECT_EQ(get("description").stringValue(), "D");
}

TEST_F(KAIAssistant_OPENAITest, SendsAndStoresTheTemperatureClampedWhenItCreates) {
    for (const auto& [given, sent] : {std::pair("3.5", "2"), std::pair("-1", "0"), std::pair("nan", "0")}) {
        const auto assistant = makeAssistant(m_server.obtainAuthority());
        EXPECT_EQ(assistant->setAssistantProperties([given = given](IKAIProperties* properties) {
            properties->setProperty("model", "m");
            properties->setProperty("temperature", given);
        }),
                  "");
        EXPECT_EQ(obtainLastBody(), R"({"model":"m","temperature":)" + std::string(sent) + "}");
        EXPECT_EQ(assistant->obtainAssistantProperties()->obtainProperty("temperature").stringValue(), sent);
    }
}

TEST_F(KAIAssistant_OPENAITest, ModifiesTheAssistantByLaterCallsAndMergesWhatWasAssigned) {
    createOnService();
    EXPECT_EQ(set("system_instructions", CMVariantMap{{"a", "A"}, {"b", "B"}}), "");
    EXPECT_EQ(obtainLastBody(), R"({"instructions":"A\nB\n"})");
    EXPECT_EQ(set("system_instructions", CMVariantMap{{"b", "other"}}), "");
    EXPECT_EQ(obtainLastBody(), R"({"instructions":"other\n"})") << "only the fresh object's own instructions are sent";
    EXPECT_EQ(get("combined_instructions").stringValue(), "A\nother\n") << "yet the stored ones are merged";
    EXPECT_EQ(takeRequests(), (Texts{"POST /v1/assistants/asst_1", "POST /v1/assistants/asst_1"}));
    EXPECT_EQ(get("model").stringValue(), "m");
}

TEST_F(KAIAssistant_OPENAITest, SendsADoubleTemperatureWithAModificationButDoesNotKeepIt) {
    createOnService();
    EXPECT_EQ(set("temperature", "0.25"), "");
    EXPECT_EQ(obtainLastBody(), R"({"temperature":0.25})");
    EXPECT_EQ(get("temperature").doubleValue(), 1.0);
    EXPECT_EQ(set("temperature", 0.25), "");
    EXPECT_EQ(obtainLastBody(), R"({"temperature":1})") << "refused by the fresh object, yet assigned";
    EXPECT_EQ(set("temperature", "7"), "");
    EXPECT_EQ(obtainLastBody(), R"({"temperature":2})");
}

TEST_F(KAIAssistant_OPENAITest, SendsNoRequestForAModificationOfNothing) {
    createOnService();
    EXPECT_EQ(m_assistant->setAssistantProperties([](IKAIProperties*) {}), "");
    EXPECT_EQ(set("name", "N"), "");
    EXPECT_EQ(set("description", "D"), "");
    EXPECT_EQ(takeRequests(), Texts());
    EXPECT_EQ(get("name").stringValue(), "Keltrix Assistant") << "never recorded as assigned, so not merged";
    EXPECT_EQ(get("description").stringValue(), "");
}

TEST_F(KAIAssistant_OPENAITest, SendsInstructionsAloneWhenOnlyTheNameIsSetBesideThem) {
    createOnService();
    EXPECT_EQ(m_assistant->setAssistantProperties([](IKAIProperties* properties) {
        properties->setProperty("name", "N");
        properties->setProperty("user_instructions", "U");
    }),
              "");
    EXPECT_EQ(obtainLastBody(), R"({"instructions":"U\n\n"})");
    EXPECT_EQ(get("user_instructions").stringValue(), "U");
}

TEST_F(KAIAssistant_OPENAITest, MergesAssignedKeysAlsoWhenTheBodyIsEmpty) {
    createOnService();
    EXPECT_EQ(set("system_instructions", CMVariantMap{{"a", "A"}}), "");
    takeRequests();
    EXPECT_EQ(set("system_instructions", CMVariantMap{{"a", ""}}), "");
    EXPECT_EQ(takeRequests(), Texts());
    EXPECT_EQ(get("combined_instructions").stringValue(), "A\n")
        << "the removal is in the fresh object's map only, which is empty";
}

TEST_F(KAIAssistant_OPENAITest, MayBeModifiedWithoutAModel) {
    createOnService();
    EXPECT_EQ(set("model", ""), "");
    EXPECT_EQ(obtainLastBody(), R"({"model":""})");
    EXPECT_EQ(get("model").stringValue(), "");
}

TEST_F(KAIAssistant_OPENAITest, ReportsAnotherIdAfterAModificationAsACheckOnly) {
    createOnService();
    answer("POST /v1/assistants/asst_1", R"({"id":"asst_other"})");
    EXPECT_EQ(set("model", "changed"), "");
    EXPECT_EQ(m_recorder.takeTexts(),
              Texts{"this->m_assistantID == j_id->obtainString() @ src/kai_assistant_openai.cpp"});
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    EXPECT_EQ(get("model").stringValue(), "changed");
}

TEST_F(KAIAssistant_OPENAITest, ReportsEachFailureOfACreation) {
    expectErrorsOf("POST /v1/assistants", ": p/v1/assistants");
    answerWell();
    EXPECT_EQ(set("model", "m"), "");
}

TEST_F(KAIAssistant_OPENAITest, ReportsEachFailureOfAModificationWithTheWordIdInTheSuffix) {
    createOnService();
    expectErrorsOf("POST /v1/assistants/asst_1", ": p/v1/assistants/id");
    answerWell();
    EXPECT_EQ(set("model", "changed"), "");
    EXPECT_EQ(m_recorder.takeTexts(), Texts());
}

TEST_F(KAIAssistant_OPENAITest, ReportsItsOwnErrorsInTheHostsLanguage) {
    KAIRegisterCallback(translate);
    answer("POST /v1/assistants", "text");
    EXPECT_EQ(set("model", "m"), "<Invalid response>: p/v1/assistants");
    answer("POST /v1/assistants", "{}");
    EXPECT_EQ(set("model", "m"), "<Unsupported data format>: p/v1/assistants");
    answer("POST /v1/assistants", LoopbackReply{.status = 500});
    EXPECT_EQ(set("model", "m"), "HTTP 500 Internal Server Error");
}

TEST_F(KAIAssistant_OPENAITest, TakesAChangedHostAtOnceAlsoWhenTheRequestFails) {
    EXPECT_EQ(set("api_host", " changed.example "), "Model is empty");
    EXPECT_EQ(get("api_host").stringValue(), "changed.example");
    EXPECT_EQ(set("api_host", " \t "), "Model is empty");
    EXPECT_EQ(get("api_host").stringValue(), "api.openai.com");
}

TEST_F(KAIAssistant_OPENAITest, SendsTheRequestThatFollowsToTheChangedHostAndKeepsTheHostWhenItFails) {
    createOnService();
    answer("POST /proxy/v1/assistants/asst_1", LoopbackReply{.status = 500});
    const std::string host = m_server.obtainAuthority() + "/proxy";
    EXPECT_EQ(m_assistant->setAssistantProperties([&host](IKAIProperties* properties) {
        properties->setProperty("api_host", host);
        properties->setProperty("user_instructions", "U");
    }),
              "HTTP 500 Internal Server Error");
    EXPECT_EQ(takeRequests(), Texts{"POST /proxy/v1/assistants/asst_1"});
    EXPECT_EQ(get("api_host").stringValue(), host);
    EXPECT_EQ(get("user_instructions").stringValue(), "");
}

TEST_F(KAIAssistant_OPENAITest, LeavesEverythingWhenTheHostsFunctionThrows) {
    createOnService();
    EXPECT_THROW(m_assistant->setAssistantProperties([](IKAIProperties* properties) {
        properties->setProperty("api_host", "changed.example");
        throw std::runtime_error("from the host");
    }),
                 std::runtime_error);
    EXPECT_EQ(get("api_host").stringValue(), m_server.obtainAuthority());
    EXPECT_EQ(takeRequests(), Texts());
}

TEST_F(KAIAssistant_OPENAITest, RefusesAnAssistantWhoseIdWouldNameAnotherPath) {
    for (const char* id : {".", ".."}) {
        answer("POST /v1/assistants", R"({"id":")" + std::string(id) + "\"}");
        expectError("Unsupported data format: p/v1/assistants");
    }
}

TEST_F(KAIAssistant_OPENAITest, AsksTheDefaultHostWhenBlanksAreSetOnItsLiveProperties) {
    std::vector<std::string> urls;
    CMRestGlobalSettings settings;
    settings.cancelled = [] { return true; };
    settings.trace = [&urls](const CMRestTraceRecord& record) { urls.push_back(record.url); };
    KAISetHTTPSettings(settings);
    EXPECT_TRUE(m_properties->setProperty("api_host", " \t "));
    EXPECT_NE(m_assistant->obtainAvailableModels().second, "");
    EXPECT_NE(set("model", "m"), "");
    EXPECT_EQ(urls, (Texts{"https://api.openai.com/v1/models", "https://api.openai.com/v1/assistants"}));
}
