#include <gtest/gtest.h>

#include <chrono>

#include "emulator_fixture.h"

using Texts = std::vector<std::string>;

namespace {

void fill(IKAIProperties* properties) {
    properties->setProperty("model", "gpt-4o");
    properties->setProperty("temperature", "0.5");
    properties->setProperty("user_instructions", "Be brief.");
}

class OpenAIEmulator : public testing::Test, protected EmulatorFixture {
protected:
    OpenAIEmulator() : EmulatorFixture({.provider = "openai", .key = "secret"}) {
        m_emulator.answerWith([this](const KAIEmulatedTurn& turn) {
            const std::lock_guard lock(m_mutex);
            m_turns.push_back(turn);
            KAIEmulatedAnswer answer = KAIEmulatedAnswer::say("answer to " + turn.obtainQuestion());
            answer.runStates = {"completed"};
            return answer;
        });
    }

    AssistantHandle createReadyAssistant() {
        AssistantHandle assistant = createAssistant(KAIAssistantType::OPENAI);
        EXPECT_EQ(assistant->setAssistantProperties(fill), "");
        return assistant;
    }

    static SessionHandle createSession(IKAIAssistant& assistant) {
        auto [session, error] = assistant.createSession();
        EXPECT_EQ(error, "");
        return SessionHandle(session);
    }

    void queueRun(std::vector<std::string> states) {
        KAIEmulatedAnswer answer = KAIEmulatedAnswer::say("late answer");
        answer.runStates = std::move(states);
        m_emulator.queueAnswer(answer);
    }
};

}  // namespace

TEST_F(OpenAIEmulator, HoldsAConversationWithInstructions) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle session = createSession(*assistant);
    EXPECT_EQ(say(*assistant, *session, "one"), "answer to one");
    EXPECT_EQ(say(*assistant, *session, "two"), "answer to two");
    EXPECT_EQ(describe(obtainLastTurn()), (Texts{"user: one", "assistant: answer to one", "user: two"}));
    EXPECT_EQ(obtainLastTurn().instructions, "Be brief.\n\n");
    EXPECT_EQ(m_emulator.obtainServer().countConnections(), 1U);
}

TEST_F(OpenAIEmulator, LeavesNothingOnTheServiceAfterTheLastSession) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle first = createSession(*assistant);
    const SessionHandle second = createSession(*assistant);
    EXPECT_EQ(m_emulator.listLeft().size(), 3U);
    say(*assistant, *first, "one");
    EXPECT_EQ(assistant->destroySession(first.get()), "");
    EXPECT_EQ(m_emulator.listLeft().size(), 2U);
    EXPECT_EQ(assistant->destroySession(second.get()), "");
    EXPECT_EQ(m_emulator.listLeft(), Texts());
    EXPECT_EQ(assistant->setAssistantProperties(fill), "") << "a new assistant is created";
    EXPECT_EQ(m_emulator.listLeft().size(), 1U);
    const SessionHandle third = createSession(*assistant);
    EXPECT_EQ(say(*assistant, *third, "three"), "answer to three");
    EXPECT_EQ(assistant->destroySession(third.get()), "");
    EXPECT_EQ(m_emulator.listLeft(), Texts());
}

TEST_F(OpenAIEmulator, LeavesNothingWhateverTheOrderOfDestruction) {
    for (const auto& order : {std::vector<std::size_t>{0, 1, 2}, {2, 1, 0}, {1, 2, 0}, {0, 2, 1}}) {
        const AssistantHandle assistant = createReadyAssistant();
        std::vector<SessionHandle> sessions;
        for (int i = 0; i < 3; ++i) {
            sessions.push_back(createSession(*assistant));
        }
        for (const std::size_t index : order) {
            say(*assistant, *sessions[index], "one");
            EXPECT_EQ(assistant->destroySession(sessions[index].get()), "");
            sessions[index].reset();
        }
        EXPECT_EQ(m_emulator.listLeft(), Texts());
    }
}

TEST_F(OpenAIEmulator, KeepsOnTheServiceWhatWasNotDestroyed) {
    AssistantHandle assistant = createReadyAssistant();
    SessionHandle session = createSession(*assistant);
    session.reset();
    assistant.reset();
    EXPECT_EQ(m_emulator.listLeft().size(), 2U);
}

TEST_F(OpenAIEmulator, ContinuesARestoredThreadOnANewAssistantAndCleansUp) {
    AssistantHandle assistant = createReadyAssistant();
    SessionHandle session = createSession(*assistant);
    say(*assistant, *session, "one");
    const std::string text = session->serializeSession();
    session.reset();
    assistant = createAssistant(KAIAssistantType::OPENAI);
    const std::size_t requests = m_emulator.obtainServer().countRequests();
    session.reset(assistant->restoreSession(text).first);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(m_emulator.obtainServer().countRequests(), requests);
    EXPECT_EQ(session->serializeSession().substr(0, 60), text.substr(0, 60)) << "the same ids";
    EXPECT_EQ(say(*assistant, *session, "two"), "answer to two");
    EXPECT_EQ(describe(obtainLastTurn()), (Texts{"user: one", "assistant: answer to one", "user: two"}));
    EXPECT_EQ(assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_emulator.listLeft(), Texts());
}

TEST_F(OpenAIEmulator, ChangesTheAssistantOnTheServiceForOpenSessions) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle session = createSession(*assistant);
    EXPECT_EQ(assistant->setAssistantProperties(
                  [](IKAIProperties* properties) { properties->setProperty("user_instructions", "Be long."); }),
              "");
    say(*assistant, *session, "one");
    EXPECT_EQ(obtainLastTurn().instructions, "Be long.\n\n");
    EXPECT_EQ(m_emulator.listLeft().size(), 2U) << "modified, not created again";
    EXPECT_EQ(assistant->destroySession(session.get()), "");
}

TEST_F(OpenAIEmulator, KeepsTwoAssistantsApart) {
    const AssistantHandle first = createReadyAssistant();
    const AssistantHandle second = createReadyAssistant();
    const SessionHandle ofFirst = createSession(*first);
    const SessionHandle ofSecond = createSession(*second);
    EXPECT_EQ(say(*first, *ofFirst, "one"), "answer to one");
    EXPECT_EQ(say(*second, *ofSecond, "two"), "answer to two");
    EXPECT_EQ(second->destroySession(ofFirst.get()), "Session not found");
    EXPECT_EQ(first->destroySession(ofFirst.get()), "");
    EXPECT_EQ(m_emulator.listLeft().size(), 2U);
    EXPECT_EQ(say(*second, *ofSecond, "three"), "answer to three");
    EXPECT_EQ(second->destroySession(ofSecond.get()), "");
    EXPECT_EQ(m_emulator.listLeft(), Texts());
}

TEST_F(OpenAIEmulator, WaitsForARunInRealTimeThroughItsFirstRounds) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle session = createSession(*assistant);
    queueRun({"queued", "in_progress", "completed"});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(say(*assistant, *session, "one"), "late answer");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250 + 325));
    EXPECT_EQ(assistant->destroySession(session.get()), "");
}

TEST_F(OpenAIEmulator, ReportsFailedAndExpiredRunsAndGoesOn) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle session = createSession(*assistant);
    KAIEmulatedAnswer failed = KAIEmulatedAnswer::say("");
    failed.runStates = {"failed"};
    failed.runError = {"rate_limit_exceeded", "Slow down."};
    m_emulator.queueAnswer(failed);
    EXPECT_EQ(say(*assistant, *session, "one"), "<rate_limit_exceeded: Slow down.>");
    queueRun({"expired"});
    EXPECT_EQ(say(*assistant, *session, "two"), "<Timeout>");
    queueRun({"incomplete"});
    EXPECT_EQ(say(*assistant, *session, "three"), "<Timeout>");
    EXPECT_EQ(say(*assistant, *session, "four"), "answer to four");
    EXPECT_EQ(assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_emulator.listLeft(), Texts());
}

TEST_F(OpenAIEmulator, GivesASectionForEachPartOfEachMessageOfTheRun) {
    const AssistantHandle assistant = createReadyAssistant();
    const SessionHandle session = createSession(*assistant);
    KAIEmulatedAnswer answer;
    answer.choices = {{.parts = {"1", "2"}}, {.parts = {"3", "4"}}};
    answer.runStates = {"completed"};
    m_emulator.queueAnswer(answer);
    const std::string text = say(*assistant, *session, "one");
    EXPECT_EQ(text.size(), 7U) << text;
    EXPECT_NE(text.find("1|2"), std::string::npos) << text;
    EXPECT_NE(text.find("3|4"), std::string::npos) << text;
}

TEST_F(OpenAIEmulator, ReportsAThreadThatIsGone) {
    const AssistantHandle assistant = createAssistant(KAIAssistantType::OPENAI);
    const SessionHandle session(
        assistant->restoreSession(R"({"assistant_id":"asst_gone","thread_id":"thread_gone"})").first);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(say(*assistant, *session, "one"), "<No thread found with id 'thread_gone'.>");
    EXPECT_EQ(assistant->destroySession(session.get()), "No thread found with id 'thread_gone'.");
}

TEST_F(OpenAIEmulator, ListsModelsNewestFirst) {
    m_emulator.setModels({{"old", {{"created", 1}}}, {"new", {{"created", 3}}}, {"middle", {{"created", 2}}}});
    const AssistantHandle assistant = createAssistant(KAIAssistantType::OPENAI);
    EXPECT_EQ(assistant->obtainAvailableModels().first, (Texts{"new", "middle", "old"}));
}

TEST_F(OpenAIEmulator, RefusesAWrongKey) {
    const AssistantHandle assistant = createAssistant(KAIAssistantType::OPENAI, "wrong");
    EXPECT_EQ(assistant->obtainAvailableModels().second, "Incorrect API key provided.");
    EXPECT_EQ(assistant->setAssistantProperties(fill), "Incorrect API key provided.");
    EXPECT_EQ(m_emulator.listLeft(), Texts());
}

TEST_F(OpenAIEmulator, HandsOutItsLivePropertiesWhichMustNotBeFreed) {
    const AssistantHandle assistant = createReadyAssistant();
    IKAIProperties* properties = assistant->obtainAssistantProperties();
    EXPECT_EQ(assistant->obtainAssistantProperties(), properties);
    EXPECT_EQ(properties->obtainProperty("model").stringValue(), "gpt-4o");
    EXPECT_EQ(properties->obtainPropertyDescriptions().size(), 9U);
}
