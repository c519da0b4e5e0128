#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kai.h"
#include "loopback_server.h"

namespace {

constexpr KAIAssistantType kAllTypes[] = {KAIAssistantType::OPENAI, KAIAssistantType::GOOGLE,
                                          KAIAssistantType::DEEPSEEK, KAIAssistantType::OLLAMA};

/// A pool of the host's own making that tells when it is gone.
class CountedPool : public ICSHTTPPoolCenter {
public:
    explicit CountedPool(int& destroyed) : m_destroyed(destroyed) {}
    ~CountedPool() override { ++m_destroyed; }

private:
    int& m_destroyed;
};

/// A pool of the host's own making that does more when it goes.
class ActingPool : public ICSHTTPPoolCenter {
public:
    explicit ActingPool(std::function<void()> act) : m_act(std::move(act)) {}
    ~ActingPool() override { m_act(); }

private:
    std::function<void()> m_act;
};

int s_formerCalls = 0;

void countCalls(const char* /*eventName*/, void* /*data*/) {
    ++s_formerCalls;
}

void translate(const char* eventName, void* data) {
    if (std::strcmp(eventName, "KAILocalizeString") == 0) {
        std::strcpy(static_cast<KAICallbackLocalizationInfo*>(data)->answerBuffer, "ungültige Antwort");
    }
}

std::string listModelsOf(LoopbackServer& server) {
    IKAIAssistant* assistant = KAICreateAssistant(KAIAssistantType::OLLAMA, nullptr, "", server.obtainAuthority());
    const std::string error = assistant->obtainAvailableModels().second;
    KAIFreeObject(assistant);
    return error;
}

LoopbackReply answerText(const LoopbackRequest& /*request*/) {
    return {.body = "text"};
}

}  // namespace

TEST(KAICreateAssistant, GivesAnAssistantOfEveryType) {
    for (const KAIAssistantType type : kAllTypes) {
        IKAIAssistant* assistant = KAICreateAssistant(type, cfCreateHTTPPoolCenter(), "key", "host");
        EXPECT_NE(assistant, nullptr) << static_cast<int>(type);
        KAIFreeObject(assistant);
    }
}

TEST(KAICreateAssistant, GivesNullForAnUnknownTypeAndLeavesThePoolWithTheHost) {
    for (const std::int32_t type : {4, 5, 1000, -1, INT32_MIN, INT32_MAX}) {
        int destroyed = 0;
        auto pool = std::make_unique<CountedPool>(destroyed);
        EXPECT_EQ(KAICreateAssistant(static_cast<KAIAssistantType>(type), pool.get(), "key", "host"), nullptr);
        EXPECT_EQ(destroyed, 0) << type;
        pool.reset();
        EXPECT_EQ(destroyed, 1);
    }
}

TEST(KAICreateAssistant, UsesTheNumbersOfTheTypes) {
    static_assert(sizeof(KAIAssistantType) == 4);
    EXPECT_EQ(static_cast<int>(KAIAssistantType::OPENAI), 0);
    EXPECT_EQ(static_cast<int>(KAIAssistantType::GOOGLE), 1);
    EXPECT_EQ(static_cast<int>(KAIAssistantType::DEEPSEEK), 2);
    EXPECT_EQ(static_cast<int>(KAIAssistantType::OLLAMA), 3);
}

TEST(KAICreateAssistant, IgnoresTheKeyForOllamaCompletely) {
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = R"({"models":[]})"}; });
    IKAIAssistant* assistant =
        KAICreateAssistant(KAIAssistantType::OLLAMA, nullptr, "secret\r\nkey", server.obtainAuthority());
    EXPECT_EQ(assistant->obtainAvailableModels().second, "");
    KAIFreeObject(assistant);
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.target, "/api/tags");
    EXPECT_EQ(request.findHeader("Authorization"), nullptr);
    for (const auto& [name, value] : request.headers) {
        EXPECT_EQ(value.find("secret"), std::string::npos) << name;
    }
}

TEST(KAIFreeObject, IgnoresNull) {
    KAIFreeObject(nullptr);
}

TEST(KAIFreeObject, DestroysThePoolOfAnAssistantOnce) {
    for (const KAIAssistantType type : kAllTypes) {
        int destroyed = 0;
        IKAIAssistant* assistant = KAICreateAssistant(type, new CountedPool(destroyed), "key", "host");
        EXPECT_EQ(destroyed, 0);
        KAIFreeObject(assistant);
        EXPECT_EQ(destroyed, 1) << static_cast<int>(type);
    }
}

TEST(KAIFreeObject, DestroysThePoolBeforeThePropertiesThatSessionsReferTo) {
    for (const KAIAssistantType type : kAllTypes) {
        IKAISession* session = nullptr;
        std::string text;
        const auto act = [&] {
            text = session->serializeSession();
            KAIFreeObject(session);
        };
        IKAIAssistant* assistant = KAICreateAssistant(type, new ActingPool(act), "key", "host.example");
        const std::string instructions(1000, 'x');
        const std::string saved =
            R"({"assistant_id":"a","thread_id":"t","model":"m","user_instructions":")" + instructions + "\"}";
        session = assistant->restoreSession(saved).first;
        ASSERT_NE(session, nullptr);
        KAIFreeObject(assistant);
        EXPECT_NE(text.find(R"("api_host":"host.example","model":"m")"), std::string::npos) << text;
        EXPECT_NE(text.find(instructions), std::string::npos);
    }
}

TEST(KAIFreeObject, DestroysThePoolOfAnOpenAIAssistantBeforeItsLiveProperties) {
    IKAIProperties* properties = nullptr;
    std::string model;
    std::string host;
    const auto act = [&] {
        model = properties->obtainProperty("model").stringValue();
        host = properties->obtainProperty("api_host").stringValue();
    };
    IKAIAssistant* assistant =
        KAICreateAssistant(KAIAssistantType::OPENAI, new ActingPool(act), "key", "a-host-with-a-long-name.example");
    properties = assistant->obtainAssistantProperties();
    EXPECT_TRUE(properties->setProperty("model", "a-model-with-a-long-name"));
    KAIFreeObject(assistant);
    EXPECT_EQ(model, "a-model-with-a-long-name");
    EXPECT_EQ(host, "a-host-with-a-long-name.example");
}

TEST(KAIFreeObject, DestroysAPoolThatHoldsOpenConnections) {
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = R"({"models":[]})"}; });
    int destroyed = 0;
    IKAIAssistant* assistant =
        KAICreateAssistant(KAIAssistantType::OLLAMA, new CountedPool(destroyed), "", server.obtainAuthority());
    EXPECT_EQ(assistant->obtainAvailableModels().second, "");
    EXPECT_EQ(assistant->obtainAvailableModels().second, "");
    EXPECT_EQ(server.countConnections(), 1U) << "a pool of the host's own class keeps connections too";
    KAIFreeObject(assistant);
    EXPECT_EQ(destroyed, 1);
    EXPECT_TRUE(server.waitForOpenConnections(0)) << "freeing the assistant closes its connections";
}

TEST(KAIRegisterCallback, ReplacesAFormerCallbackAndEndsWithNull) {
    LoopbackServer server(answerText);
    s_formerCalls = 0;
    KAIRegisterCallback(countCalls);
    EXPECT_EQ(listModelsOf(server), "Invalid response: g/api/tags");
    EXPECT_EQ(s_formerCalls, 1);
    KAIRegisterCallback(translate);
    EXPECT_EQ(listModelsOf(server), "ungültige Antwort: g/api/tags");
    EXPECT_EQ(s_formerCalls, 1);
    KAIRegisterCallback(nullptr);
    EXPECT_EQ(listModelsOf(server), "Invalid response: g/api/tags");
}

TEST(KAISetHTTPSettings, IsCopiedAndReachesEveryLaterRequestOfEveryAssistant) {
    LoopbackServer server(answerText);
    std::vector<CMRestTraceRecord> records;
    {
        CMRestGlobalSettings settings;
        settings.userAgent = "host/1";
        settings.trace = [&records](const CMRestTraceRecord& record) { records.push_back(record); };
        KAISetHTTPSettings(settings);
        settings.userAgent = "changed";
    }
    listModelsOf(server);
    KAISetHTTPSettings(CMRestGlobalSettings());
    listModelsOf(server);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].method, "GET");
    EXPECT_EQ(records[0].status, 200);
    EXPECT_EQ(records[0].resultCode, 0);
    EXPECT_EQ(records[0].requestBytes, 0U);
    EXPECT_EQ(records[0].responseBytes, 4U);
    const std::vector<LoopbackRequest> requests = server.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(*requests[0].findHeader("User-Agent"), "host/1");
    EXPECT_NE(*requests[1].findHeader("User-Agent"), "host/1");
}

TEST(KAISetHTTPSettings, KeepsCredentialsOutOfTheTrace) {
    LoopbackServer server(answerText, {.tls = LoopbackTLS::Valid});
    std::vector<CMRestTraceRecord> records;
    CMRestGlobalSettings settings;
    settings.caBundleFile = server.obtainCAFile();
    settings.trace = [&records](const CMRestTraceRecord& record) { records.push_back(record); };
    KAISetHTTPSettings(settings);
    IKAIAssistant* assistant =
        KAICreateAssistant(KAIAssistantType::GOOGLE, nullptr, "secret", server.obtainAuthority());
    assistant->obtainAvailableModels();
    KAIFreeObject(assistant);
    KAISetHTTPSettings(CMRestGlobalSettings());
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].url, server.obtainURL("/v1beta/models?key=***"));
}

TEST(KAICallbackLocalizationInfoExports, CopyPointerAndBuffer) {
    KAICallbackLocalizationInfo source;
    source.sourceText = "text";
    std::memset(source.answerBuffer, 'x', sizeof source.answerBuffer);
    KAICallbackLocalizationInfo copied;
    copied = source;
    KAICallbackLocalizationInfo moved;
    moved = std::move(source);
    for (const KAICallbackLocalizationInfo* info : {&copied, &moved, &source}) {
        EXPECT_STREQ(info->sourceText, "text");
        EXPECT_EQ(std::string(info->answerBuffer, sizeof info->answerBuffer), std::string(1024, 'x'));
    }
}
