#include <gtest/gtest.h>

#include "openai_fixture.h"

using Texts = std::vector<std::string>;

namespace {

class OpenAIRestore : public OpenAITest {
protected:
    std::unique_ptr<IKAISession> restore(const std::string& text) {
        auto [session, error] = m_assistant->restoreSession(text);
        EXPECT_EQ(error, "") << text;
        EXPECT_NE(session, nullptr);
        return std::unique_ptr<IKAISession>(session);
    }

    void expectFailure(const std::string& text) {
        const auto [session, error] = m_assistant->restoreSession(text);
        EXPECT_EQ(session, nullptr) << text;
        EXPECT_EQ(error, "Cannot load session data") << text;
        EXPECT_EQ(m_assistant->obtainAssistantID(), "") << text;
        EXPECT_EQ(get("model").stringValue(), "") << text;
    }
};

/// A text with both ids and the given members.
std::string write(const std::string& members) {
    return R"({"assistant_id":"asst_9","thread_id":"thread_9")" + (members.empty() ? "" : "," + members) + "}";
}

}  // namespace

TEST_F(OpenAIRestore, TakesOverIdsAndSettingsButTheTemperatureWithoutARequest) {
    KAIAssistantProperties_OPENAI saved;
    for (const char* key : {"api_host", "model", "user_instructions", "name", "description"}) {
        saved.setProperty(key, std::string("saved ") + key);
    }
    saved.setProperty("temperature", "0.2");
    saved.setProperty("system_instructions", CMVariantMap{{"b", "B"}, {"a", "A"}});
    saved.setProperty("db_structure", "[{\"schemas\":[]}]");
    const std::string text = makeThread(saved, "asst_9", "thread_9")->serializeSession();
    const auto session = restore(text);
    EXPECT_EQ(m_assistant->obtainAssistantID(), "asst_9");
    for (const char* key : {"api_host", "model", "user_instructions", "name", "description"}) {
        EXPECT_EQ(get(key).stringValue(), std::string("saved ") + key);
    }
    EXPECT_EQ(get("temperature").doubleValue(), 1.0);
    EXPECT_EQ(get("combined_instructions").stringValue(), saved.obtainCombinedInstructions());
    EXPECT_EQ(takeRequests(), Texts());
    saved.changeSettings([](kai::AssistantSettings& settings) { settings.temperature = 1.0; });
    EXPECT_EQ(session->serializeSession(), makeThread(saved, "asst_9", "thread_9")->serializeSession());
}

TEST_F(OpenAIRestore, LeavesEveryPropertyWhereOnlyTheIdsStand) {
    m_properties->setProperty("model", "current");
    m_properties->setProperty("name", "current");
    const auto session = restore(write(""));
    EXPECT_EQ(get("model").stringValue(), "current");
    EXPECT_EQ(get("name").stringValue(), "current");
    EXPECT_EQ(get("api_host").stringValue(), m_server.obtainAuthority());
}

TEST_F(OpenAIRestore, FailsForATextThatIsNotJSONOrNotAnObject) {
    for (const char* text : {"", "text", "{", "[]", "null", "1", R"("asst")"}) {
        expectFailure(text);
    }
}

TEST_F(OpenAIRestore, FailsWhereAnIdIsMissingOrNoStringBeforeAnythingIsWritten) {
    for (const std::string& id : writeMembersThatAreNoString("assistant_id")) {
        expectFailure("{" + id + R"("thread_id":"t","model":"written"})");
    }
    for (const std::string& id : writeMembersThatAreNoString("thread_id")) {
        expectFailure("{" + id + R"("assistant_id":"a","model":"written"})");
    }
}

TEST_F(OpenAIRestore, ReportsAFailureInTheHostsLanguage) {
    KAIRegisterCallback([](const char*, void* data) {
        std::string("translated").copy(static_cast<KAICallbackLocalizationInfo*>(data)->answerBuffer, 1023);
    });
    EXPECT_EQ(m_assistant->restoreSession("text").second, "translated");
}

TEST_F(OpenAIRestore, IsRefusedByAnAssistantThatHoldsAnIdInTheRequiredGrammar) {
    KAIRegisterCallback([](const char*, void* data) {
        std::string("translated").copy(static_cast<KAICallbackLocalizationInfo*>(data)->answerBuffer, 1023);
    });
    createOnService();
    m_recorder.takeTexts();
    const auto [session, error] = m_assistant->restoreSession(write(R"("model":"written")"));
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(error, "Assistant already exist, cannot restore assistant in serializedSession");
    EXPECT_EQ(m_recorder.takeTexts(), Texts{"this->m_assistantID.empty() @ src/kai_assistant_openai.cpp"});
    EXPECT_EQ(get("model").stringValue(), "m");
}

TEST_F(OpenAIRestore, IsRefusedAfterAFirstRestore) {
    const auto session = restore(write(""));
    EXPECT_EQ(m_assistant->restoreSession(write("")).second,
              "Assistant already exist, cannot restore assistant in serializedSession");
}

TEST_F(OpenAIRestore, MayBeTriedAgainAfterAFailure) {
    expectFailure("text");
    EXPECT_NE(restore(write("")), nullptr);
}

TEST_F(OpenAIRestore, LeavesTheTemperatureAndMarksItAsAssigned) {
    const auto session = restore(write(R"("temperature":0.2)"));
    EXPECT_EQ(get("temperature").doubleValue(), 1.0);
    EXPECT_TRUE(dynamic_cast<KAIAssistantProperties&>(*m_properties).isAssigned("temperature"));
}

TEST_F(OpenAIRestore, DoesNotRecordNameAndDescriptionAsAssigned) {
    const auto session = restore(write(R"("name":"N","description":"D","model":"m")"));
    auto& properties = dynamic_cast<KAIAssistantProperties&>(*m_properties);
    EXPECT_FALSE(properties.isAssigned("name"));
    EXPECT_FALSE(properties.isAssigned("description"));
    EXPECT_TRUE(properties.isAssigned("model"));
    EXPECT_EQ(get("name").stringValue(), "N");
    EXPECT_EQ(get("description").stringValue(), "D");
}

TEST_F(OpenAIRestore, LeavesMembersOfAnotherTypeAlone) {
    const auto session = restore(
        write(R"("name":1,"description":null,"model":[],"api_host":{},"user_instructions":true,"db_structure":1,)"
              R"("temperature":"0.5","system_instructions":{"key":"a","value":"A"})"));
    EXPECT_EQ(get("name").stringValue(), "Keltrix Assistant");
    EXPECT_EQ(get("model").stringValue(), "");
    EXPECT_EQ(get("api_host").stringValue(), m_server.obtainAuthority());
    EXPECT_EQ(get("combined_instructions").stringValue(), "");
    EXPECT_TRUE(dynamic_cast<KAIAssistantProperties&>(*m_properties).obtainSettings().assignedKeys.empty());
    EXPECT_EQ(m_recorder.takeTexts(), Texts());
}

TEST_F(OpenAIRestore, SetsSystemInstructionsDirectlyEmptyOnesToo) {
    m_properties->setProperty("system_instructions", CMVariantMap{{"a", "former"}, {"b", "kept"}});
    const auto session = restore(
        write(R"("system_instructions":[{"key":"a","value":""},{"key":"c","value":"C"},{"key":1,"value":"x"},null])"));
    EXPECT_EQ(get("combined_instructions").stringValue(), "\nkept\nC\n");
}

TEST_F(OpenAIRestore, RefusesAnEmptyOrInvalidStructureAndTrimsTheHost) {
    m_properties->setProperty("db_structure", "[]");
    const auto session = restore(write(R"("db_structure":"text","api_host":" h\t")"));
    EXPECT_EQ(*dynamic_cast<KAIAssistantProperties&>(*m_properties).obtainSettings().databaseStructure, "[]");
    EXPECT_EQ(get("api_host").stringValue(), "h");
}

TEST_F(OpenAIRestore, IsFollowedByAModificationOfTheRestoredAssistant) {
    answer("POST /v1/assistants/asst_9", R"({"id":"asst_9"})");
    const auto session = restore(write(""));
    EXPECT_EQ(set("model", "m"), "");
    EXPECT_EQ(takeRequests(), Texts{"POST /v1/assistants/asst_9"});
}

TEST_F(OpenAIRestore, LetsTheLastSessionDeleteTheRestoredAssistant) {
    const auto session = restore(write(""));
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(takeRequests(), (Texts{"DELETE /v1/threads/thread_9", "DELETE /v1/assistants/asst_9"}));
    EXPECT_EQ(m_assistant->obtainAssistantID(), "");
    EXPECT_NE(restore(write("")), nullptr) << "nothing is held any more";
}

TEST_F(OpenAIRestore, ContinuesTheThread) {
    const auto session = restore(write(""));
    auto [message, error] = m_assistant->addMessage(session.get(), "q");
    EXPECT_EQ(error, "");
    KAIFreeObject(message);
    EXPECT_EQ(takeRequests(),
              (Texts{"POST /v1/threads/thread_9/messages", "POST /v1/threads/thread_9/runs",
                     "GET /v1/threads/thread_9/runs/run_1", "GET /v1/threads/thread_9/messages?run_id=run_1"}));
}

TEST_F(OpenAIRestore, TakesTheDefaultHostForABlankOne) {
    const auto session = restore(write(R"("api_host":" \t")"));
    EXPECT_EQ(get("api_host").stringValue(), "api.openai.com");
}

TEST_F(OpenAIRestore, RefusesIdsThatWouldNameAnotherPath) {
    for (const char* id : {".", ".."}) {
        expectFailure(R"({"assistant_id":")" + std::string(id) + R"(","thread_id":"t","model":"written"})");
        expectFailure(R"({"assistant_id":"a","thread_id":")" + std::string(id) + R"(","model":"written"})");
    }
}

TEST_F(OpenAIRestore, SendsIdsAsSegmentsOfThePath) {
    const auto session =
        restore(R"({"assistant_id":"../models/ft:mine","thread_id":"a/../b?c=d#e%20\u00e4 A-Z_0.9~..."})");
    EXPECT_EQ(m_assistant->destroySession(session.get()), "");
    EXPECT_EQ(takeRequests(), (Texts{"DELETE /v1/threads/a%2F..%2Fb%3Fc%3Dd%23e%2520%C3%A4%20A-Z_0.9~...",
                                     "DELETE /v1/assistants/..%2Fmodels%2Fft%3Amine"}));
}
