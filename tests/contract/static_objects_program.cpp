#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kai.h"

// A host that keeps its assistants in a static object and still uses them while static objects are destroyed. Ends with
// 0 when every request of that time went where it should. Nothing is sent: each exchange is cancelled before it begins.
// What the settings hold is not destroyed either: it may refer to static objects.

namespace {

struct Provider {
    KAIAssistantType type;
    const char* modelsURL;
    const char* turnURL;
};

constexpr Provider kProviders[] = {
    {KAIAssistantType::OPENAI, "https://api.openai.com/v1/models", "https://api.openai.com/v1/threads/t/messages"},
    {KAIAssistantType::GOOGLE, "https://generativelanguage.googleapis.com/v1beta/models?key=***",
     "https://generativelanguage.googleapis.com/v1beta/models/m:generateContent?key=***"},
    {KAIAssistantType::DEEPSEEK, "https://api.deepseek.com/models", "https://api.deepseek.com/chat/completions"},
    {KAIAssistantType::OLLAMA, "http://localhost:11434/api/tags", "http://localhost:11434/api/chat"},
};

class Host {
public:
    Host() = default;
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    ~Host() {
        expectRequests();
        for (const auto& [assistant, session] : m_conversations) {
            KAIFreeObject(session);
            KAIFreeObject(assistant);
        }
    }

    void begin() {
        for (const Provider& provider : kProviders) {
            IKAIAssistant* assistant = KAICreateAssistant(provider.type, cfCreateHTTPPoolCenter(), "key", "");
            const auto [session, error] =
                assistant->restoreSession(R"({"assistant_id":"a","thread_id":"t","model":"m"})");
            check(error, "");
            m_conversations.emplace_back(assistant, session);
        }
    }

    void expectRequests() {
        for (std::size_t i = 0; i < m_conversations.size(); ++i) {
            const auto& [assistant, session] = m_conversations[i];
            check(assistant->obtainAvailableModels().second.empty() ? "success" : "cancelled", "cancelled");
            check(m_url, kProviders[i].modelsURL);
            check(assistant->addMessage(session, "q").second.empty() ? "success" : "cancelled", "cancelled");
            check(m_url, kProviders[i].turnURL);
        }
    }

    void keepURL(const std::string& url) { m_url = url; }

private:
    static void check(const std::string& value, const std::string& expected) {
        if (value != expected) {
            std::fprintf(stderr, "expected %s, got %s\n", expected.c_str(), value.c_str());
            std::_Exit(EXIT_FAILURE);
        }
    }

    std::string m_url;
    std::vector<std::pair<IKAIAssistant*, IKAISession*>> m_conversations;
};

// Made before whatever the library makes on first use, and so destroyed after it.
Host s_host;

/// Must not be destroyed once the host is.
class Watch {
public:
    ~Watch() { std::_Exit(EXIT_FAILURE); }
    [[nodiscard]] bool isLive() const { return m_isLive; }

private:
    bool m_isLive = true;
};

}  // namespace

int main() {
    CMRestGlobalSettings settings;
    settings.userAgent = "a name that is too long for a string's own buffer";
    settings.cancelled = [watch = std::make_shared<Watch>()] { return watch->isLive(); };
    settings.trace = [](const CMRestTraceRecord& record) { s_host.keepURL(record.url); };
    KAISetHTTPSettings(settings);
    s_host.begin();
    s_host.expectRequests();
}
