#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kai.h"

using Texts = std::vector<std::string>;

namespace {

/// Where requests go, told by the trace: each exchange is cancelled before it begins, so none leaves the machine.
class RequestURLs : public testing::Test {
protected:
    RequestURLs() {
        CMRestGlobalSettings settings;
        settings.cancelled = [] { return true; };
        settings.trace = [this](const CMRestTraceRecord& record) {
            EXPECT_EQ(record.status, 0);
            m_urls.push_back(record.method + " " + record.url);
        };
        KAISetHTTPSettings(settings);
    }
    ~RequestURLs() override { KAISetHTTPSettings(CMRestGlobalSettings()); }

    /// An assistant and a session of it.
    class Conversation {
    public:
        Conversation(KAIAssistantType type, const std::string& host)
            : m_assistant(KAICreateAssistant(type, nullptr, "secret", host)),
              m_session(m_assistant->restoreSession(R"({"assistant_id":"a","thread_id":"t","model":"m"})").first) {}
        ~Conversation() {
            KAIFreeObject(m_session);
            KAIFreeObject(m_assistant);
        }
        Conversation(const Conversation&) = delete;
        Conversation& operator=(const Conversation&) = delete;

        IKAIAssistant* operator->() const { return m_assistant; }
        [[nodiscard]] IKAISession* obtainSession() const { return m_session; }

    private:
        IKAIAssistant* m_assistant;
        IKAISession* m_session;
    };

    /// The requests of a model list and of a turn.
    Texts listAndTalk(const Conversation& conversation) {
        m_urls.clear();
        EXPECT_NE(conversation->obtainAvailableModels().second, "");
        EXPECT_NE(conversation->addMessage(conversation.obtainSession(), "q").second, "");
        return m_urls;
    }

    /// The same of an assistant that is made with this host, and of one that is given it later.
    void expectURLs(KAIAssistantType type, const std::string& host, const Texts& urls) {
        EXPECT_EQ(listAndTalk(Conversation(type, host)), urls);
        const Conversation later(type, "former.example");
        later->setAssistantProperties(
            [&host](IKAIProperties* properties) { EXPECT_TRUE(properties->setProperty("api_host", host)); });
        EXPECT_EQ(listAndTalk(later), urls);
    }

    Texts m_urls;
};

}  // namespace

TEST_F(RequestURLs, LeadToEachProvidersPublicServiceForABlankHost) {
    for (const char* host : {"", " \t\r\n"}) {
        expectURLs(KAIAssistantType::OPENAI, host,
                   {"GET https://api.openai.com/v1/models", "POST https://api.openai.com/v1/threads/t/messages"});
        expectURLs(KAIAssistantType::GOOGLE, host,
                   {"GET https://generativelanguage.googleapis.com/v1beta/models?key=***",
                    "POST https://generativelanguage.googleapis.com/v1beta/models/m:generateContent?key=***"});
        expectURLs(KAIAssistantType::DEEPSEEK, host,
                   {"GET https://api.deepseek.com/models", "POST https://api.deepseek.com/chat/completions"});
        expectURLs(KAIAssistantType::OLLAMA, host,
                   {"GET http://localhost:11434/api/tags", "POST http://localhost:11434/api/chat"});
    }
}

TEST_F(RequestURLs, OfAnOpenAIAssistantLeadToTheServicesResources) {
    const Conversation conversation(KAIAssistantType::OPENAI, "");
    conversation->setAssistantProperties([](IKAIProperties* properties) { properties->setProperty("model", "m2"); });
    conversation->createSession();
    conversation->destroySession(conversation.obtainSession());
    EXPECT_EQ(m_urls, (Texts{"POST https://api.openai.com/v1/assistants/a", "POST https://api.openai.com/v1/threads",
                             "DELETE https://api.openai.com/v1/threads/t"}));
    m_urls.clear();
    IKAIAssistant* fresh = KAICreateAssistant(KAIAssistantType::OPENAI, nullptr, "secret", "");
    fresh->setAssistantProperties([](IKAIProperties* properties) { properties->setProperty("model", "m"); });
    KAIFreeObject(fresh);
    EXPECT_EQ(m_urls, Texts{"POST https://api.openai.com/v1/assistants"});
}

TEST_F(RequestURLs, HaveTheSchemeTwiceForAHostThatIsGivenWithOne) {
    expectURLs(KAIAssistantType::OPENAI, "https://example.com",
               {"GET https://https://example.com/v1/models", "POST https://https://example.com/v1/threads/t/messages"});
    expectURLs(KAIAssistantType::GOOGLE, "https://example.com",
               {"GET https://https://example.com/v1beta/models?key=***",
                "POST https://https://example.com/v1beta/models/m:generateContent?key=***"});
    expectURLs(KAIAssistantType::DEEPSEEK, "http://example.com",
               {"GET https://http://example.com/models", "POST https://http://example.com/chat/completions"});
    expectURLs(KAIAssistantType::OLLAMA, "http://example.com",
               {"GET http://http://example.com/api/tags", "POST http://http://example.com/api/chat"});
}
