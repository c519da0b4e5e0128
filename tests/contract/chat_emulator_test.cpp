#include <gtest/gtest.h>

#include "emulator_fixture.h"

using Texts = std::vector<std::string>;

namespace {

/// A service that checks what it is sent and answers as the public one does, with all the members it adds.
class ChatEmulator : public testing::TestWithParam<ChatProvider>, protected EmulatorFixture {
protected:
    ChatEmulator()
        : EmulatorFixture({.provider = GetParam().emulatedService, .tls = GetParam().tls, .key = "secret"}) {}

    AssistantHandle createReadyAssistant() {
        AssistantHandle assistant = createAssistant(GetParam().type);
        const Texts models = assistant->obtainAvailableModels().first;
        EXPECT_FALSE(models.empty());
        EXPECT_EQ(assistant->setAssistantProperties([&models](IKAIProperties* properties) {
            properties->setProperty("model", models.at(0));
            properties->setProperty("temperature", "0.5");
            properties->setProperty("user_instructions", "Be brief.");
        }),
                  "");
        return assistant;
    }
};

INSTANTIATE_FOR_CHAT_PROVIDERS(ChatEmulator);

/// A DeepSeek assistant and a service of the chat-completions protocol below "/v1", as many others have it.
class ChatCompletionsBelowV1 : public testing::Test, protected EmulatorFixture {
protected:
    ChatCompletionsBelowV1() : EmulatorFixture({.provider = "deepseek", .key = "secret", .pathPrefix = "/v1"}) {}
};

}  // namespace

TEST_P(ChatEmulator, HoldsAConversationWithHistoryAndInstructions) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle session(assistant->createSession().first);
    for (const char* question : {"one", "two", "three"}) {
        EXPECT_EQ(say(*assistant, *session, question), std::string("answer to ") + question);
    }
    EXPECT_EQ(describe(obtainLastTurn()),
              (Texts{"user: one", "assistant: answer to one", "user: two", "assistant: answer to two", "user: three"}));
    EXPECT_EQ(obtainLastTurn().instructions, "Be brief.\n\n");
}

TEST_P(ChatEmulator, GoesOnAfterARestoreByAnotherAssistant) {
    AssistantHandle assistant = createReadyAssistant();
    SessionHandle session(assistant->createSession().first);
    EXPECT_EQ(say(*assistant, *session, "one"), "answer to one");
    const std::string text = session->serializeSession();
    session.reset();
    assistant = createAssistant(GetParam().type);
    session.reset(assistant->restoreSession(text).first);
    EXPECT_EQ(say(*assistant, *session, "two"), "answer to two");
    EXPECT_EQ(describe(obtainLastTurn()), (Texts{"user: one", "assistant: answer to one", "user: two"}));
}

TEST_P(ChatEmulator, ReportsARefusalInTheServicesWords) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle session(assistant->createSession().first);
    m_emulator.queueAnswer(KAIEmulatedAnswer::refuse(503, "The model is overloaded."));
    EXPECT_NE(say(*assistant, *session, "one").find("The model is overloaded."), std::string::npos);
    EXPECT_EQ(say(*assistant, *session, "two"), "answer to two");
    EXPECT_EQ(describe(obtainLastTurn()), Texts{"user: two"});
}

TEST_P(ChatEmulator, RefusesAWrongKeyWhereThereIsOne) {
    const AssistantHandle assistant = createAssistant(GetParam().type, "wrong");
    const auto [models, error] = assistant->obtainAvailableModels();
    const bool hasKey = !GetParam().keyHeader.empty() || !GetParam().keyParam.empty();
    EXPECT_EQ(error.empty(), !hasKey) << error;
    EXPECT_EQ(error.find("secret"), std::string::npos);
}

TEST_F(ChatCompletionsBelowV1, IsReachedByAHostWithThatPath) {
    const AssistantHandle assistant = createAssistant(KAIAssistantType::DEEPSEEK);
    EXPECT_EQ(PropertiesHandle(assistant->obtainAssistantProperties())->obtainProperty("api_host").stringValue(),
              m_emulator.obtainServer().obtainAuthority() + "/v1");
    const Texts models = assistant->obtainAvailableModels().first;
    ASSERT_FALSE(models.empty());
    assistant->setAssistantProperties(
        [&models](IKAIProperties* properties) { properties->setProperty("model", models[0]); });
    const SessionHandle session(assistant->createSession().first);
    EXPECT_EQ(say(*assistant, *session, "one"), "answer to one");
    EXPECT_EQ(m_emulator.obtainServer().requests().back().target, "/v1/chat/completions");
}
