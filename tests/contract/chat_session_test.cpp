#include <gtest/gtest.h>

#include <cstring>

#include "chat_fixture.h"

namespace {

using ChatSession = ChatContract;
INSTANTIATE_FOR_CHAT_PROVIDERS(ChatSession);

/// A session of nobody's.
class ForeignSession : public IKAISession {
public:
    std::string serializeSession() override { return "foreign"; }
};

void translate(const char* /*eventName*/, void* data) {
    std::strcpy(static_cast<KAICallbackLocalizationInfo*>(data)->answerBuffer, "translated");
}

}  // namespace

TEST_P(ChatSession, WritesItsTextWithSettingsAndHistory) {
    const SessionHandle session = createSession();
    set("user_instructions", "U");
    converse(*session, "q", "a");
    EXPECT_EQ(session->serializeSession(),
              R"({"api_host":")" + m_server.obtainAuthority() +
                  R"(","model":"m","temperature":1,"user_instructions":"U","db_structure":"",)"
                  R"("messages":[{"role":"user","content":"q"},{"role":"assistant","content":"a"}]})");
}

TEST_P(ChatSession, HoldsNoKeyInItsText) {
    const SessionHandle session = createSession();
    converse(*session, "q", "a");
    EXPECT_EQ(session->serializeSession().find("secret"), std::string::npos);
}

TEST_P(ChatSession, GoesOnAfterARestoreOnANewAssistant) {
    SessionHandle session = createSession();
    set("user_instructions", "U");
    converse(*session, "q1", "a1");
    const std::string text = session->serializeSession();
    session.reset();
    m_assistant = createAssistant("secret", "");
    session = restoreSession(*m_assistant, text);
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body,
              writeBody({.temperature = "1", .instructions = "U\n\n", .messages = {{0, "q1"}, {1, "a1"}, {0, "q2"}}}));
}

TEST_P(ChatSession, SendsTheUnchangedTemperatureAfterARestore) {
    const SessionHandle session = restoreSession(*m_assistant, R"({"temperature":0.2})");
    EXPECT_EQ(get(*m_assistant, "temperature").doubleValue(), 1.0);
    converse(*session, "q", "a");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.temperature = "1", .messages = {{0, "q"}}}));
}

TEST_P(ChatSession, CanBeRestoredFromTheTextOfAnyOtherChatProvider) {
    const SessionHandle session = createSession();
    converse(*session, "q1", "a1");
    const std::string text = session->serializeSession();
    for (const ChatProvider& other : obtainChatProviders()) {
        const AssistantHandle assistant(KAICreateAssistant(other.type, nullptr, "", ""));
        EXPECT_EQ(restoreSession(*assistant, text)->serializeSession(), text) << other.name;
    }
}

TEST_P(ChatSession, GetsTheDefaultHostWhereARestoredTextHasAnEmptyOne) {
    for (const char* host : {"", "  "}) {
        set("api_host", "example.com");
        const SessionHandle session = restoreSession(*m_assistant, R"({"api_host":")" + std::string(host) + "\"}");
        EXPECT_EQ(get(*m_assistant, "api_host").stringValue(), GetParam().defaultHost);
    }
}

TEST_P(ChatSession, WritesARestoredTextIntoTheSettingsOfEverySession) {
    const SessionHandle open = createSession();
    const SessionHandle restored = restoreSession(
        *m_assistant, R"({"model":"restored","user_instructions":"R","messages":[{"role":"user","content":"x"}]})");
    converse(*open, "q", "a");
    EXPECT_EQ(obtainLastRequest().body,
              writeBody({.model = "restored", .instructions = "R\n\n", .messages = {{0, "q"}}}));
    converse(*restored, "q", "a");
    EXPECT_EQ(obtainLastRequest().body,
              writeBody({.model = "restored", .instructions = "R\n\n", .messages = {{0, "x"}, {0, "q"}}}));
}

TEST_P(ChatSession, CannotBeRestoredFromATextThatIsNotJSON) {
    for (const char* text : {"", "text", "{", R"({"model":"restored"} x)"}) {
        const auto [session, error] = m_assistant->restoreSession(text);
        EXPECT_EQ(session, nullptr);
        EXPECT_EQ(error, "Cannot load session data");
    }
    EXPECT_EQ(get(*m_assistant, "model").stringValue(), "m");
}

TEST_P(ChatSession, ReportsAFailedRestoreInTheHostsLanguageWithoutASuffix) {
    KAIRegisterCallback(translate);
    EXPECT_EQ(m_assistant->restoreSession("text").second, "translated");
}

TEST_P(ChatSession, RestoresAnEmptyObjectAsAnEmptyConversation) {
    const SessionHandle session = restoreSession(*m_assistant, "{}");
    converse(*session, "q", "a");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q"}}}));
}

TEST_P(ChatSession, KeepsItsHistoryApartFromAnotherSessions) {
    const SessionHandle first = createSession();
    const SessionHandle second = createSession();
    converse(*first, "f1", "fa1");
    converse(*second, "s1", "sa1");
    converse(*first, "f2", "fa2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "f1"}, {1, "fa1"}, {0, "f2"}}}));
    converse(*second, "s2", "sa2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "s1"}, {1, "sa1"}, {0, "s2"}}}));
}

TEST_P(ChatSession, SeesChangedPropertiesLikeEveryOtherSession) {
    const SessionHandle first = createSession();
    const SessionHandle second = createSession();
    set("model", "changed");
    for (IKAISession* session : {first.get(), second.get()}) {
        converse(*session, "q", "a");
        EXPECT_EQ(obtainLastRequest().body, writeBody({.model = "changed", .messages = {{0, "q"}}}));
    }
}

TEST_P(ChatSession, IsEmptyWhenItIsOfAnotherAssistantOfTheProvider) {
    const AssistantHandle other = createAssistant("secret", "theirs");
    const SessionHandle session = createSession(*other);
    answerText("a");
    const std::string before = session->serializeSession();
    EXPECT_EQ(say(*session, "q").error, "Session is empty");
    EXPECT_EQ(m_server.countRequests(), 0U);
    EXPECT_EQ(session->serializeSession(), before);
    EXPECT_EQ(say(*other, *session, "q").text, "a");
}

TEST_P(ChatSession, IsEmptyWhenItIsNull) {
    const auto [message, error] = m_assistant->addMessage(nullptr, "q");
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(error, "Session is empty");
    EXPECT_EQ(m_server.countRequests(), 0U);
}

TEST_P(ChatSession, IsEmptyWhenItIsForeign) {
    ForeignSession foreign;
    EXPECT_EQ(say(foreign, "q").error, "Session is empty");
    for (const ChatProvider& provider : obtainChatProviders()) {
        if (provider.name != GetParam().name) {
            const AssistantHandle other(KAICreateAssistant(provider.type, nullptr, "", "example.com"));
            const SessionHandle session = createSession(*other);
            EXPECT_EQ(say(*session, "q").error, "Session is empty") << provider.name;
        }
    }
    EXPECT_EQ(m_server.countRequests(), 0U);
}

TEST_P(ChatSession, IsLookedAtBeforeTheModelAndReportedUntranslated) {
    KAIRegisterCallback(translate);
    const AssistantHandle assistant = createAssistant("secret", "");
    EXPECT_EQ(assistant->addMessage(nullptr, "q").second, "Session is empty");
}

TEST_P(ChatSession, IsNotTouchedByDestroySession) {
    const SessionHandle session = createSession();
    converse(*session, "q1", "a1");
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_server.countRequests(), 1U);
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, "a1"}, {0, "q2"}}}));
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_assistant->destroySession(nullptr), "");
    ForeignSession foreign;
    EXPECT_EQ(m_assistant->destroySession(&foreign), "");
}

TEST_P(ChatSession, MayBeFreedWhileOthersGoOn) {
    SessionHandle first = createSession();
    const SessionHandle second = createSession();
    converse(*first, "q", "a");
    first.reset();
    converse(*second, "q", "a");
}
