#include "kai_assistant_chat.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "assertion_recorder.h"
#include "chat_text.h"
#include "kai_assistant_ollama.h"
#include "loopback_server.h"

namespace {

constexpr std::string_view kModelsPath[] = {"list"};
constexpr std::string_view kChatPath[] = {"talk", "{model}"};
constexpr kai::ChatParam kHeaders[] = {{"x-key", "<{key}>"}, {"x-version", "2026-01-01"}};
constexpr kai::ChatParam kQueryParams[] = {{"k", "{key}!"}, {"v", "1"}};
constexpr kai::ChatMember kBody[] = {
    {kai::ChatValue::None, R"("limit":1024)"},
    {kai::ChatValue::Messages, R"("turns":[)", "]"},
    {kai::ChatValue::Instructions, R"("system":)"},
    {kai::ChatValue::Temperature, R"("heat":)"},
};

/// A provider that differs from all others in what a row can say, and has no class of its own.
constexpr kai::ChatProtocol kPlainProtocol{
    .scheme = "http://",
    .defaultHost = "localhost:1",
    .headers = kHeaders,
    .queryParams = kQueryParams,
    .modelsPath = kModelsPath,
    .chatPath = kChatPath,
    .modelsSuffix = ": g/list",
    .emptyModelSuffix = ": p/talk",
    .invalidReplySuffix = ": p/talk",
    .unsupportedReplySuffix = ": p/talk",
    .temperatures = {0.0, 1.0},
    .body = kBody,
    .userMessage = {R"({"by":"human","say":[{"text":)", "}]}"},
    .assistantMessage = {R"({"by":"machine","say":[{"text":)", "}]}"},
    .readModelsError = kai::readErrorBody,
    .readChatError = kai::readErrorBody,
    .readModels = [](const COJson& /*response*/) { return std::optional(std::vector<std::string>{"only"}); },
    .readReply = [](const COJson& response) -> std::optional<std::string> {
        return std::string(response.obtainMember("say").obtainString());
    },
};

/// Assistants that talk to a server, which answers "a" to everything, and calls of a host while a turn waits for it.
class ChatAssistant : public testing::Test {
protected:
    ChatAssistant() {
        CMRestGlobalSettings settings;
        settings.cancelled = [this] {
            if (const std::function<void()> act = std::exchange(m_whileWaiting, {})) {
                act();
            }
            return false;
        };
        HTTP::setGlobalSettings(settings);
    }
    ~ChatAssistant() override { HTTP::setGlobalSettings(CMRestGlobalSettings()); }

    static void set(IKAIAssistant& assistant, const std::string& key, const CMVariant& value) {
        assistant.setAssistantProperties([&](IKAIProperties* properties) { properties->setProperty(key, value); });
    }

    static void expectAnswer(IKAIAssistant& assistant, IKAISession& session, const std::string& text) {
        const auto [message, error] = assistant.addMessage(&session, text);
        const std::unique_ptr<IKAIMessage> owned(message);
        EXPECT_EQ(error, "");
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message->obtainSections().at(0)->obtainText(), "a");
    }

    [[nodiscard]] std::vector<std::string> readBodies() const {
        std::vector<std::string> bodies;
        for (const LoopbackRequest& request : m_server.requests()) {
            bodies.push_back(request.body);
        }
        return bodies;
    }

    std::function<void()> m_whileWaiting;
    LoopbackServer m_server{[](const LoopbackRequest&) {
        return LoopbackReply{.body = R"({"say":"a","message":{"role":"assistant","content":"a"}})"};
    }};
    AssertionRecorder m_recorder;
};

/// The same of a provider without classes of its own.
class ChatAssistantOfARow : public ChatAssistant {
protected:
    ChatAssistantOfARow() { set(m_assistant, "model", "m"); }

    kai::ChatAssistant m_assistant{kPlainProtocol, nullptr, m_server.obtainAuthority(), "secret"};
};

/// A conversation with an Ollama server.
class ChatAssistantWhileATurnWaits : public ChatAssistant {
protected:
    ChatAssistantWhileATurnWaits() {
        set(m_assistant, "model", "m");
        set(m_assistant, "user_instructions", "U");
        m_session.reset(m_assistant.createSession().first);
        expectAnswer(m_assistant, *m_session, "q1");
    }

    static constexpr const char* kSecondBody =
        R"({"model":"m","stream":false,"messages":[{"role":"system","content":"U\n\n"},{"role":"user","content":"q1"},)"
        R"({"role":"assistant","content":"a"},{"role":"user","content":"q2"}]})";

    KAIAssistant_OLLAMA m_assistant{nullptr, m_server.obtainAuthority()};
    std::unique_ptr<IKAISession> m_session;
};

}  // namespace

TEST_F(ChatAssistantOfARow, SendsWhatTheRowSays) {
    set(m_assistant, "temperature", "1.5");
    set(m_assistant, "user_instructions", "U");
    const std::unique_ptr<IKAISession> session(m_assistant.createSession().first);
    expectAnswer(m_assistant, *session, "q1");
    expectAnswer(m_assistant, *session, "q2");
    EXPECT_EQ(readBodies().at(1),
              R"({"limit":1024,"turns":[{"by":"human","say":[{"text":"q1"}]},{"by":"machine","say":[{"text":"a"}]},)"
              R"({"by":"human","say":[{"text":"q2"}]}],"system":"U\n\n","heat":1})");
    EXPECT_EQ(m_assistant.obtainAvailableModels().first, std::vector<std::string>{"only"});
    const std::vector<LoopbackRequest> requests = m_server.requests();
    EXPECT_EQ(requests.at(1).target, "/talk/m?k=secret%21&v=1");
    EXPECT_EQ(requests.at(2).target, "/list?k=secret%21&v=1");
    for (const LoopbackRequest& request : requests) {
        ASSERT_NE(request.findHeader("x-key"), nullptr);
        EXPECT_EQ(*request.findHeader("x-key"), "<secret>");
        ASSERT_NE(request.findHeader("x-version"), nullptr);
        EXPECT_EQ(*request.findHeader("x-version"), "2026-01-01");
        EXPECT_EQ(request.findHeader("Authorization"), nullptr);
    }
}

TEST_F(ChatAssistantOfARow, HasSessionsOfTheCommonClass) {
    const auto [session, error] = m_assistant.restoreSession(
        R"({"api_host":"","messages":[{"role":"user","content":"q"},{"role":"assistant","content":"a"}]})");
    const std::unique_ptr<IKAISession> owned(session);
    EXPECT_EQ(error, "");
    EXPECT_EQ(session->serializeSession(),
              R"({"api_host":"localhost:1","model":"m","temperature":1,"user_instructions":"","db_structure":"",)"
              R"("messages":[{"role":"user","content":"q"},{"role":"assistant","content":"a"}]})");
    m_recorder.takeReports();
    dynamic_cast<kai::ChatSession&>(*session).obtainHistory()->appendMessage(7, "x");
    EXPECT_TRUE(session->serializeSession().ends_with(R"(,{"role":"","content":"x"}]})"));
    const std::vector<AssertionReport> reports = m_recorder.takeReports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].sourceFile, "src/kai_session_chat.cpp");
}

TEST_F(ChatAssistantOfARow, RefusesASessionOfAnotherAssistant) {
    kai::ChatAssistant other(kPlainProtocol, nullptr, m_server.obtainAuthority(), "theirs");
    const std::unique_ptr<IKAISession> session(other.createSession().first);
    EXPECT_EQ(m_assistant.addMessage(session.get(), "q").second, "Session is empty");
    EXPECT_EQ(m_server.countRequests(), 0U);
}

TEST_F(ChatAssistantWhileATurnWaits, SendsTheBodyOfItsBeginningWhateverIsSet) {
    m_whileWaiting = [this] {
        set(m_assistant, "model", "other");
        set(m_assistant, "user_instructions", std::string(100'000, 'V'));
        set(m_assistant, "api_host", "localhost:1");
    };
    expectAnswer(m_assistant, *m_session, "q2");
    EXPECT_EQ(readBodies().at(1), kSecondBody);
}

TEST_F(ChatAssistantWhileATurnWaits, HoldsATurnThatBeganMeanwhileBeforeItself) {
    m_whileWaiting = [this] { expectAnswer(m_assistant, *m_session, std::string(100'000, 'n')); };
    expectAnswer(m_assistant, *m_session, "q2");
    EXPECT_EQ(readBodies().at(2), kSecondBody);
    EXPECT_EQ(readMessages(dynamic_cast<kai::ChatSession&>(*m_session)),
              (Messages{{0, "q1"}, {1, "a"}, {0, std::string(100'000, 'n')}, {1, "a"}, {0, "q2"}, {1, "a"}}));
}

TEST_F(ChatAssistantWhileATurnWaits, MayLoseItsSession) {
    m_whileWaiting = [this] { m_session.reset(); };
    expectAnswer(m_assistant, *m_session, "q2");
    EXPECT_EQ(readBodies().at(1), kSecondBody);
}

TEST_F(ChatAssistantWhileATurnWaits, MayLoseItsSessionToTheTrace) {
    CMRestGlobalSettings settings;
    settings.trace = [this](const CMRestTraceRecord&) { m_session.reset(); };
    HTTP::setGlobalSettings(settings);
    expectAnswer(m_assistant, *m_session, "q2");
    EXPECT_EQ(m_session, nullptr);
}
