#include <gtest/gtest.h>

#include "kai_session_deepseek.h"
#include "openai_fixture.h"

using Texts = std::vector<std::string>;

namespace {

class OpenAISessions : public OpenAITest {
protected:
    OpenAISessions() { createOnService(); }

    void expectCreationError(const std::string& error) {
        const auto [session, text] = m_assistant->createSession();
        EXPECT_EQ(session, nullptr);
        EXPECT_EQ(text, error);
    }
};

void translate(const char* /*eventName*/, void* data) {
    auto* info = static_cast<KAICallbackLocalizationInfo*>(data);
    ("<" + std::string(info->sourceText) + ">").copy(info->answerBuffer, sizeof info->answerBuffer - 1);
}

const std::string& obtainThreadID(const std::unique_ptr<IKAISession>& session) {
    return dynamic_cast<KAISession_OPENAI&>(*session).obtainThreadID();
}

}  // namespace

TEST_F(OpenAISessions, AreThreadsCreatedWithoutABody) {
    const auto first = createSession();
    const auto second = createSession();
    EXPECT_EQ(obtainThreadID(first), "thread_1");
    EXPECT_EQ(obtainThreadID(second), "thread_2");
    EXPECT_EQ(takeRequests(), (Texts{"POST /v1/threads", "POST /v1/threads"}));
    EXPECT_EQ(obtainLastBody(), "");
    EXPECT_EQ(m_server.requests().back().findHeader("Content-Type"), nullptr);
}

TEST_F(OpenAISessions, NeedAnAssistantOnTheService) {
    KAIRegisterCallback(translate);
    KAIAssistant_OPENAI fresh(nullptr, m_server.obtainAuthority(), "key");
    const auto [session, error] = fresh.createSession();
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(error, "Assistant not initialized, set assistant properties");
    EXPECT_EQ(takeRequests(), Texts());
}

TEST_F(OpenAISessions, ReportEachFailureOfTheirCreation) {
    answer("POST /v1/threads", LoopbackReply{.status = 429, .body = R"({"error":{"message":"slow down"}})"});
    expectCreationError("slow down");
    for (const char* body : {"", "text", "{"}) {
        answer("POST /v1/threads", body);
        expectCreationError("Invalid response: p/v1/threads");
    }
    for (const std::string& id : writeMembersThatAreNoString("id")) {
        answer("POST /v1/threads", "{" + id + R"("object":"thread"})");
        expectCreationError("Unsupported data format: p/v1/threads");
    }
    answer("POST /v1/threads", "[]");
    expectCreationError("Unsupported data format: p/v1/threads");
    KAIRegisterCallback(translate);
    expectCreationError("<Unsupported data format>: p/v1/threads");
}

TEST_F(OpenAISessions, DeleteOnlyTheirThreadUnlessTheyAreTheLast) {
    const auto first = createSession();
    const auto second = createSession();
    takeRequests();
    EXPECT_EQ(m_assistant->destroySession(first.get()), "");
    EXPECT_EQ(takeRequests(), Texts{"DELETE /v1/threads/thread_1"});
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    EXPECT_EQ(m_assistant->destroySession(second.get()), "");
    EXPECT_EQ(takeRequests(), (Texts{"DELETE /v1/threads/thread_2", "DELETE /v1/assistants/asst_1"}));
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
}

TEST_F(OpenAISessions, MayBeDestroyedInAnyOrder) {
    std::vector<std::unique_ptr<IKAISession>> sessions;
    for (int i = 0; i < 4; ++i) {
        sessions.push_back(createSession());
    }
    takeRequests();
    for (const std::size_t index : {2U, 0U, 3U, 1U}) {
        EXPECT_EQ(m_assistant->destroySession(sessions[index].get()), "");
    }
    EXPECT_EQ(takeRequests(),
              (Texts{"DELETE /v1/threads/thread_3", "DELETE /v1/threads/thread_1", "DELETE /v1/threads/thread_4",
                     "DELETE /v1/threads/thread_2", "DELETE /v1/assistants/asst_1"}));
}

TEST_F(OpenAISessions, LetANewAssistantBeCreatedAfterTheLastOne) {
    const auto session = createSession();
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    expectCreationError("Assistant not initialized, set assistant properties");
    takeRequests();
    EXPECT_EQ(set("user_instructions", "U"), "Model is empty") << "a creation begins with a fresh object again";
    EXPECT_EQ(set("model", "m2"), "");
    EXPECT_EQ(takeRequests(), Texts{"POST /v1/assistants"});
    EXPECT_NE(createSession(), nullptr);
}

TEST_F(OpenAISessions, AreNotFoundWhenNullForeignOrDestroyed) {
    KAIRegisterCallback(translate);
    const auto session = createSession();
    KAIAssistantProperties properties;
    KAISession_DEEPSEEK foreign(properties);
    KAIAssistantProperties_OPENAI otherProperties;
    const auto other = makeThread(otherProperties, "asst_1", "thread_1");
    takeRequests();
    for (IKAISession* unknown : {static_cast<IKAISession*>(nullptr), static_cast<IKAISession*>(&foreign),
                                 static_cast<IKAISession*>(other.get())}) {
        EXPECT_EQ(m_assistant->destroySession(unknown), "Session not found");
    }
    EXPECT_EQ(takeRequests(), Texts());
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_assistant->destroySession(session.get()), "Session not found");
}

TEST_F(OpenAISessions, StayWhenTheirDeletionFails) {
    const auto session = createSession();
    answer("DELETE /v1/threads/thread_1", LoopbackReply{.status = 500, .body = R"({"error":{"message":"m"}})"});
    EXPECT_EQ(m_assistant->destroySession(session.get()), "m");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    answerWell();
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
}

TEST_F(OpenAISessions, IgnoreAFailedDeletionOfTheAssistant) {
    const auto session = createSession();
    answer("DELETE /v1/assistants/asst_1", LoopbackReply{.status = 500});
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
}

TEST_F(OpenAISessions, DoNotReadTheBodyOfADeletion) {
    const auto session = createSession();
    answer("DELETE /v1/threads/thread_1", "not JSON");
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
}

TEST_F(OpenAISessions, KeepALineBreakOfAnIdInItsSegmentOfThePath) {
    answer("POST /v1/threads", R"({"id":"t\r\nX-Injected: 1"})");
    const auto session = createSession();
    takeRequests();
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(takeRequests().at(0), "DELETE /v1/threads/t%0D%0AX-Injected%3A%201");
    EXPECT_EQ(m_server.requests().at(m_server.requests().size() - 2).findHeader("X-Injected"), nullptr);
}

TEST_F(OpenAISessions, KeepWhatMeansSomethingInAURLInItsSegmentOfThePath) {
    answer("POST /v1/threads", R"({"id":"a/../b?c=d&e%2f"})");
    const auto session = createSession();
    takeRequests();
    KAIFreeObject(m_assistant->addMessage(session.get(), "q").first);
    EXPECT_EQ(takeRequests().at(0), "POST /v1/threads/a%2F..%2Fb%3Fc%3Dd%26e%252f/messages");
}

TEST_F(OpenAISessions, WithAnEmptyIdLeaveItsSegmentOutOfThePath) {
    answer("POST /v1/threads", R"({"id":""})");
    const auto session = createSession();
    takeRequests();
    KAIFreeObject(m_assistant->addMessage(session.get(), "q").first);
    EXPECT_EQ(takeRequests().at(0), "POST /v1/threads/messages");
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(takeRequests().at(0), "DELETE /v1/threads/");
}

TEST_F(OpenAISessions, WriteTheirTextInOrder) {
    const auto session = createSession();
    EXPECT_EQ(session->serializeSession(),
              R"({"assistant_id":"asst_1","thread_id":"thread_1","name":"Keltrix Assistant","description":"",)"
              R"("api_host":")" +
                  m_server.obtainAuthority() +
                  R"(","model":"m","temperature":1,"user_instructions":"","db_structure":""})");
    m_properties->setProperty("system_instructions", CMVariantMap{{"b", "B"}, {"a", "A"}});
    m_properties->setProperty("description", "D");
    m_properties->setProperty("db_structure", "[]");
    EXPECT_EQ(session->serializeSession(),
              R"({"assistant_id":"asst_1","thread_id":"thread_1","name":"Keltrix Assistant","description":"D",)"
              R"("api_host":")" +
                  m_server.obtainAuthority() +
                  R"(","model":"m","temperature":1,"user_instructions":"",)"
                  R"("system_instructions":[{"key":"a","value":"A"},{"key":"b","value":"B"}],"db_structure":"[]"})");
}

TEST_F(OpenAISessions, RefuseAThreadWhoseIdWouldNameAnotherPath) {
    for (const char* id : {".", ".."}) {
        answer("POST /v1/threads", R"({"id":")" + std::string(id) + "\"}");
        expectCreationError("Unsupported data format: p/v1/threads");
    }
}
