#include <gtest/gtest.h>

#include "openai_fixture.h"

using Texts = std::vector<std::string>;

namespace {

/// An OpenAI assistant with one session, and a service whose connection is reset in the middle of a request: no
/// response comes.
class OpenAIReset : public OpenAITest {
protected:
    OpenAIReset() {
        CMRestGlobalSettings settings;
        settings.caBundleFile = m_server.obtainCAFile();
        settings.trace = [this](const CMRestTraceRecord& record) { m_lastRecord = record; };
        KAISetHTTPSettings(settings);
        createOnService();
        m_session = createSession();
        m_before = m_session->serializeSession();
        takeRequests();
    }

    void reset(const std::string& request) { answer(request, {.fault = LoopbackFault::ResetBeforeReply}); }

    /// Expects a text to be the transport's own for an exchange without a response.
    void expectTransportText(const std::string& text) {
        EXPECT_EQ(m_lastRecord.status, 0);
        EXPECT_NE(m_lastRecord.resultCode, 0);
        EXPECT_NE(text, "");
        EXPECT_EQ(text, CF::obtainAppFactory()->obtainErrorTextService()->describe(m_lastRecord.resultCode).message);
    }

    /// Expects the assistant and its one session to be as they were, and to end as usual.
    void expectUnchanged() {
        EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
        EXPECT_EQ(m_session->serializeSession(), m_before);
        answerWell();
        takeRequests();
        EXPECT_EQ(m_assistant->destroySession(m_session.get()), "");
        EXPECT_EQ(takeRequests(), (Texts{"DELETE /v1/threads/thread_1", "DELETE /v1/assistants/asst_1"}));
        EXPECT_EQ(m_assistant->obtainAssistantID(), "");
    }

    /// Expects a turn to fail at a request, after so many others.
    void expectTurnToFailAt(const std::string& request, std::size_t requestsBefore) {
        reset(request);
        const auto [message, error] = m_assistant->addMessage(m_session.get(), "q");
        EXPECT_EQ(message, nullptr);
        expectTransportText(error);
        const Texts requests = takeRequests();
        ASSERT_GT(requests.size(), requestsBefore);
        for (std::size_t i = requestsBefore; i < requests.size(); ++i) {
            EXPECT_TRUE(requests[i].starts_with(request)) << requests[i];
        }
        EXPECT_TRUE(m_clock.sleeps.empty());
        expectUnchanged();
    }

    CMRestTraceRecord m_lastRecord;
    std::unique_ptr<IKAISession> m_session;
    std::string m_before;
};

}  // namespace

TEST_F(OpenAIReset, OfAModelListGivesNoModels) {
    reset("GET /v1/models");
    const auto [models, error] = m_assistant->obtainAvailableModels();
    EXPECT_TRUE(models.empty());
    expectTransportText(error);
    expectUnchanged();
}

TEST_F(OpenAIReset, OfACreationLeavesNoAssistant) {
    EXPECT_EQ(m_assistant->destroySession(m_session.get()), "");
    reset("POST /v1/assistants");
    expectTransportText(set("model", "refused"));
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
    EXPECT_EQ(get("model").stringValue(), "m");
    EXPECT_EQ(m_assistant->createSession().second, "Assistant not initialized, set assistant properties");
    EXPECT_EQ(m_assistant->destroySession(m_session.get()), "Session not found");
    answerWell();
    EXPECT_EQ(set("model", "taken"), "");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    EXPECT_EQ(get("model").stringValue(), "taken");
}

TEST_F(OpenAIReset, OfAModificationLeavesTheProperties) {
    reset("POST /v1/assistants/asst_1");
    expectTransportText(set("model", "refused"));
    EXPECT_EQ(get("model").stringValue(), "m");
    expectUnchanged();
}

TEST_F(OpenAIReset, OfAThreadsCreationGivesNoSession) {
    reset("POST /v1/threads");
    const auto [session, error] = m_assistant->createSession();
    EXPECT_EQ(session, nullptr);
    expectTransportText(error);
    expectUnchanged();
}

TEST_F(OpenAIReset, OfAMessageEndsTheTurn) {
    expectTurnToFailAt("POST /v1/threads/thread_1/messages", 0);
}

TEST_F(OpenAIReset, OfARunsCreationEndsTheTurn) {
    expectTurnToFailAt("POST /v1/threads/thread_1/runs", 1);
}

TEST_F(OpenAIReset, OfALookAtTheRunEndsTheTurn) {
    expectTurnToFailAt("GET /v1/threads/thread_1/runs/run_1", 2);
}

TEST_F(OpenAIReset, OfTheAnswersMessagesEndsTheTurn) {
    expectTurnToFailAt("GET /v1/threads/thread_1/messages", 3);
}

TEST_F(OpenAIReset, OfAThreadsDeletionKeepsTheSession) {
    reset("DELETE /v1/threads/thread_1");
    expectTransportText(m_assistant->destroySession(m_session.get()));
    expectUnchanged();
}

TEST_F(OpenAIReset, OfTheAssistantsDeletionIsIgnored) {
    reset("DELETE /v1/assistants/asst_1");
    EXPECT_EQ(m_assistant->destroySession(m_session.get()), "");
    EXPECT_EQ(m_lastRecord.status, 0);
    EXPECT_NE(m_lastRecord.resultCode, 0);
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
    EXPECT_EQ(m_assistant->destroySession(m_session.get()), "Session not found");
    EXPECT_EQ(m_assistant->createSession().second, "Assistant not initialized, set assistant properties");
}
