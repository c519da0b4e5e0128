#include "kai_session_chat.h"

#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "chat_text.h"
#include "kai_session_deepseek.h"
#include "kai_session_google.h"
#include "kai_session_ollama.h"

namespace {

struct SessionKind {
    const char* name;
    std::unique_ptr<kai::ChatSession> (*create)(KAIAssistantProperties&);
    const char* sourceFile;
};

template <class Session>
std::unique_ptr<kai::ChatSession> createSession(KAIAssistantProperties& properties) {
    return std::make_unique<Session>(properties);
}

const SessionKind s_kinds[] = {
    {"DEEPSEEK", createSession<KAISession_DEEPSEEK>, "src/kai_session_deepseek.cpp"},
    {"GOOGLE", createSession<KAISession_GOOGLE>, "src/kai_session_google.cpp"},
    {"OLLAMA", createSession<KAISession_OLLAMA>, "src/kai_session_ollama.cpp"},
};

class KAISessionChatText : public testing::TestWithParam<SessionKind> {
protected:
    KAIAssistantProperties m_properties;
    std::unique_ptr<kai::ChatSession> m_session = GetParam().create(m_properties);
};

INSTANTIATE_TEST_SUITE_P(Providers, KAISessionChatText, testing::ValuesIn(s_kinds),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace

TEST_P(KAISessionChatText, OfANewSessionHasAnEmptyHistoryAndNoSystemInstructions) {
    EXPECT_EQ(m_session->serializeSession(),
              R"({"api_host":"","model":"","temperature":1,"user_instructions":"","db_structure":"","messages":[]})");
}

TEST_P(KAISessionChatText, HoldsEveryMemberInOrder) {
    const AssertionRecorder recorder;
    m_properties.setProperty("api_host", "example.com");
    m_properties.setProperty("model", "m");
    m_properties.setProperty("temperature", "0.2");
    m_properties.setProperty("user_instructions", "U");
    m_properties.setProperty("system_instructions", CMVariantMap{{"b", "B"}, {"a", "A"}});
    m_properties.setProperty("db_structure", R"([ {"schemas":[]} ])");
    appendTurn(*m_session, "question", "answer");
    appendTurn(*m_session, "", "\"two\"\nlines");
    EXPECT_EQ(m_session->serializeSession(),
              R"({"api_host":"example.com","model":"m","temperature":0.2,"user_instructions":"U",)"
              R"("system_instructions":[{"key":"a","value":"A"},{"key":"b","value":"B"}],)"
              R"("db_structure":"[ {\"schemas\":[]} ]",)"
              R"("messages":[{"role":"user","content":"question"},{"role":"assistant","content":"answer"},)"
              R"({"role":"user","content":""},{"role":"assistant","content":"\"two\"\nlines"}]})");
}

TEST_P(KAISessionChatText, OfAConversationHasTheSpareCapacityToBeParsedInPlace) {
    // What COJson::parseInPlace needs; its text would be copied otherwise.
    constexpr std::size_t kPadding = 64;
    for (std::size_t size = 0; size < 200; ++size) {
        appendTurn(*m_session, std::string(size, 'q'), "a");
        const std::string text = m_session->serializeSession();
        EXPECT_GE(text.capacity() - text.size(), kPadding) << size;
    }
}

TEST_P(KAISessionChatText, HoldsTheTemperatureAlsoWhenItWasNeverAssigned) {
    m_properties.changeSettings([](kai::AssistantSettings& settings) { settings.temperature = 0.75; });
    EXPECT_NE(m_session->serializeSession().find(R"("temperature":0.75,)"), std::string::npos);
}

TEST_P(KAISessionChatText, ReportsAnUnknownRoleAtLine45OfTheSessionsOwnSourceAndWritesItEmpty) {
    AssertionRecorder recorder;
    m_session->obtainHistory()->appendMessage(7, "x");
    m_session->obtainHistory()->appendMessage(0, "y");
    EXPECT_NE(
        m_session->serializeSession().find(R"("messages":[{"role":"","content":"x"},{"role":"user","content":"y"}])"),
        std::string::npos);
    const std::vector<AssertionReport> reports = recorder.takeReports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].condition, "false");
    EXPECT_EQ(reports[0].sourceFile, GetParam().sourceFile);
    EXPECT_EQ(reports[0].line, 45);
}

TEST_P(KAISessionChatText, IsValidJSONWhateverBytesTheTextsHold) {
    m_properties.setProperty("model", std::string("\0\xff", 2));
    m_properties.setProperty("user_instructions", "\xed\xa0\x80");
    m_properties.setProperty("system_instructions", CMVariantMap{{"\xfe", "\xc0\xaf"}});
    appendTurn(*m_session, "\x80", std::string("a\0b", 3));
    const COJson json(m_session->serializeSession());
    ASSERT_TRUE(json.getIsValidJson());
    EXPECT_EQ(json.obtainMember("model").obtainString(), std::string_view("\0\xef\xbf\xbd", 4));
    const COJsonValue answer = *++json.obtainMember("messages").obtainItems().begin();
    EXPECT_EQ(answer.obtainMember("content").obtainString(), std::string_view("a\0b", 3));
}

TEST_P(KAISessionChatText, LeavesThePropertiesAliveWhenTheSessionIsFreed) {
    m_properties.setProperty("model", "m");
    KAIFreeObject(m_session.release());
    EXPECT_EQ(m_properties.obtainProperty("model").stringValue(), "m");
}
