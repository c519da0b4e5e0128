#include "kai_assistant_chat.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "kai_assistant_deepseek.h"
#include "kai_assistant_google.h"
#include "kai_assistant_ollama.h"

namespace {

struct AssistantKind {
    const char* name;
    std::unique_ptr<IKAIAssistant> (*create)();
};

const AssistantKind s_kinds[] = {
    {"DEEPSEEK",
     []() -> std::unique_ptr<IKAIAssistant> {
         return std::make_unique<KAIAssistant_DEEPSEEK>(nullptr, "host.example", "key");
     }},
    {"GOOGLE",
     []() -> std::unique_ptr<IKAIAssistant> {
         return std::make_unique<KAIAssistant_GOOGLE>(nullptr, "host.example", "key");
     }},
    {"OLLAMA",
     []() -> std::unique_ptr<IKAIAssistant> { return std::make_unique<KAIAssistant_OLLAMA>(nullptr, "host.example"); }},
};

/// An assistant whose exchanges are counted and cancelled before they begin.
class KAIAssistantChatTurn : public testing::TestWithParam<AssistantKind> {
protected:
    KAIAssistantChatTurn() {
        CMRestGlobalSettings settings;
        settings.cancelled = [] { return true; };
        settings.trace = [this](const CMRestTraceRecord&) { ++m_exchanges; };
        HTTP::setGlobalSettings(settings);
    }
    ~KAIAssistantChatTurn() override { HTTP::setGlobalSettings(CMRestGlobalSettings()); }

    int m_exchanges = 0;
    std::unique_ptr<IKAIAssistant> m_assistant = GetParam().create();
};

INSTANTIATE_TEST_SUITE_P(Providers, KAIAssistantChatTurn, testing::ValuesIn(s_kinds),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace

TEST_P(KAIAssistantChatTurn, ThrowsAndSendsNothingWhereAMessageOfTheHistoryHasNoSection) {
    const std::unique_ptr<IKAISession> session(m_assistant->restoreSession(R"({"model":"m"})").first);
    auto& chat = dynamic_cast<KAISessionChat&>(*session);
    chat.appendTurn("q", "a");
    EXPECT_EQ(m_assistant->addMessage(session.get(), "q2").first, nullptr);
    EXPECT_EQ(m_exchanges, 1) << "a history without such a message is sent";
    chat.appendMessage(std::make_unique<KAIMessage>());
    try {
        m_assistant->addMessage(session.get(), "q2");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid vector subscript");
    }
    EXPECT_EQ(m_exchanges, 1);
    const KAIChatHistory& history = chat.obtainHistory();
    ASSERT_EQ(history.size(), 3U);
    EXPECT_EQ(obtainFirstText(*history[0]), "q");
    EXPECT_EQ(obtainFirstText(*history[1]), "a");
    EXPECT_TRUE(history[2]->obtainSections().empty());
}
