#include "kai_assistant_ollama.h"

#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "chat_text.h"

using Texts = std::vector<std::string>;

namespace {

const kai::ChatProtocol& s_protocol = kai::obtainOllamaProtocol();

}  // namespace

TEST(KAIAssistant_OLLAMA, WritesModelStreamAndMessagesWithoutATemperature) {
    KAIAssistantProperties properties;
    properties.setProperty("model", "llama3");
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "hello"),
              R"({"model":"llama3","stream":false,"messages":[{"role":"user","content":"hello"}]})");
}

TEST(KAIAssistant_OLLAMA, WritesTheTemperatureUnderOptionsBetweenStreamAndMessages) {
    const AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("model", "m");
    properties.setProperty("temperature", "0.2");
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "q"),
              R"({"model":"m","stream":false,"options":{"temperature":0.2},"messages":[)"
              R"({"role":"user","content":"q"}]})");
}

TEST(KAIAssistant_OLLAMA, WritesTheSystemEntryFirstOnEveryTurn) {
    KAIAssistantProperties properties;
    properties.setProperty("model", "m");
    properties.setProperty("user_instructions", "U");
    EXPECT_EQ(writeBody(s_protocol, properties, {{0, "q1"}, {1, "a1"}}, "q2"),
              R"({"model":"m","stream":false,"messages":[{"role":"system","content":"U\n\n"},)"
              R"({"role":"user","content":"q1"},{"role":"assistant","content":"a1"},{"role":"user","content":"q2"}]})");
}

TEST(KAIAssistant_OLLAMA, ReadsTheContentOfTheAssistantsMessage) {
    EXPECT_EQ(readReply(s_protocol, R"({"model":"m","message":{"role":"assistant","content":"A"},"done":true,)"
                                    R"("done_reason":"stop","total_duration":1})"),
              "A");
    EXPECT_EQ(readReply(s_protocol, R"({"message":{"content":"","role":"assistant"}})"), "");
}

TEST(KAIAssistant_OLLAMA, RefusesAReplyWhoseMessageIsMissingOrNotTheAssistants) {
    for (const char* response : {
             "{}",
             "[]",
             "1",
             R"({"message":null})",
             R"({"message":"A"})",
             R"({"message":[]})",
             R"({"message":{}})",
             R"({"message":{"content":"A"}})",
             R"({"message":{"role":"user","content":"A"}})",
             R"({"message":{"role":"Assistant","content":"A"}})",
             R"({"message":{"role":"assistant ","content":"A"}})",
             R"({"message":{"role":1,"content":"A"}})",
             R"({"message":{"role":"assistant"}})",
             R"({"message":{"role":"assistant","content":null}})",
             R"({"message":{"role":"assistant","content":1}})",
             R"({"message":{"role":"assistant","content":["A"]}})",
         }) {
        EXPECT_EQ(readReply(s_protocol, response), "<unsupported>") << response;
    }
}

TEST(KAIAssistant_OLLAMA, ListsEveryNameWithoutFilterOrPrefixHandling) {
    EXPECT_EQ(readModels(s_protocol, R"({"models":[{"name":"models/b","model":"x"},{"name":"a:latest"},{"model":"y"},)"
                                     R"({"name":1},null,"n",[],{"name":""},{"name":"a:latest"}]})"),
              (Texts{"models/b", "a:latest", "", "a:latest"}));
    EXPECT_EQ(readModels(s_protocol, R"({"models":[]})"), Texts());
}

TEST(KAIAssistant_OLLAMA, RefusesAModelListWhoseModelsAreMissingOrNoArray) {
    for (const char* response : {"{}", "[]", R"({"models":null})", R"({"models":{}})", R"({"data":[]})"}) {
        EXPECT_EQ(readModels(s_protocol, response), Texts{"<unsupported>"}) << response;
    }
}

TEST(KAIAssistant_OLLAMA, DoesNotReadTheErrorBodyOfAModelList) {
    EXPECT_EQ(readError(s_protocol.readModelsError, R"({"error":{"message":"m"}})"), "");
    EXPECT_EQ(readError(s_protocol.readModelsError, "text"), "");
    EXPECT_EQ(s_protocol.readModelsError(nullptr), "");
}

TEST(KAIAssistant_OLLAMA, ReadsTheErrorBodyOfAChatTurnWhole) {
    EXPECT_EQ(readError(s_protocol.readChatError, R"({"error":{"message":"m"}})"), "m");
    EXPECT_EQ(readError(s_protocol.readChatError, R"({"error":"model 'x' not found"})"),
              R"({"error":"model 'x' not found"})");
    EXPECT_EQ(s_protocol.readChatError(nullptr), "");
}
