#include "kai_assistant_deepseek.h"

#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "chat_text.h"

using Texts = std::vector<std::string>;

namespace {

const kai::ChatProtocol& s_protocol = kai::obtainDeepSeekProtocol();

std::string read(const std::string& choices) {
    return readReply(s_protocol, R"({"choices":[)" + choices + "]}");
}

}  // namespace

TEST(KAIAssistant_DEEPSEEK, WritesAFirstTurnWithModelAndMessagesOnly) {
    KAIAssistantProperties properties;
    properties.setProperty("model", "deepseek-v4-flash");
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "hello"),
              R"({"model":"deepseek-v4-flash","messages":[{"role":"user","content":"hello"}]})");
}

TEST(KAIAssistant_DEEPSEEK, WritesTemperatureInstructionsHistoryAndTextInOrder) {
    const AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("model", "m");
    properties.setProperty("temperature", "0.2");
    properties.setProperty("user_instructions", "U");
    properties.setProperty("system_instructions", CMVariantMap{{"n", "S"}});
    const Messages history = {{0, "q1"}, {1, "a1"}, {0, "q2"}, {1, ""}};
    EXPECT_EQ(writeBody(s_protocol, properties, history, "q3"),
              R"({"model":"m","temperature":0.2,"messages":[{"role":"system","content":"U\n\nS\n"},)"
              R"({"role":"user","content":"q1"},{"role":"assistant","content":"a1"},)"
              R"({"role":"user","content":"q2"},{"role":"assistant","content":""},)"
              R"({"role":"user","content":"q3"}]})");
}

TEST(KAIAssistant_DEEPSEEK, WritesTheTemperatureOnlyWhenItWasAssigned) {
    KAIAssistantProperties properties;
    properties.setProperty("model", "m");
    properties.changeSettings([](kai::AssistantSettings& settings) { settings.temperature = 0.5; });
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "t").find("temperature"), std::string::npos);
    properties.setProperty("temperature", 0.7);
    EXPECT_NE(writeBody(s_protocol, properties, {}, "t").find(R"("temperature":0.5,)"), std::string::npos)
        << "a refused double marks the key as assigned and leaves the value";
}

TEST(KAIAssistant_DEEPSEEK, WritesAnyOtherRoleThanTheAssistantsAsTheUsers) {
    KAIAssistantProperties properties;
    properties.setProperty("model", "m");
    EXPECT_EQ(writeBody(s_protocol, properties, {{7, "x"}, {-1, "y"}}, "t"),
              R"({"model":"m","messages":[{"role":"user","content":"x"},{"role":"user","content":"y"},)"
              R"({"role":"user","content":"t"}]})");
}

TEST(KAIAssistant_DEEPSEEK, EscapesControlCharactersAndReplacesIllFormedText) {
    KAIAssistantProperties properties;
    properties.setProperty("model", std::string("a\0\"\\\x1f\x7f", 6));
    const std::string text = "\xff \xc3( \xe2\x82 \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82\xac\n";
    const std::string body = writeBody(s_protocol, properties, {}, text);
    EXPECT_EQ(body.find(R"({"model":"a\u0000\"\\\u001f)"), 0U) << body;
    const COJson json(body);
    ASSERT_TRUE(json.getIsValidJson());
    EXPECT_EQ(json.obtainMember("model").obtainString(), std::string_view("a\0\"\\\x1f\x7f", 6));
}

TEST(KAIAssistant_DEEPSEEK, JoinsTheContentsOfSeveralChoicesWithNothingBetween) {
    EXPECT_EQ(read(R"({"index":0,"message":{"role":"assistant","content":"A"},"finish_reason":"stop"})"), "A");
    EXPECT_EQ(read(R"({"message":{"role":"assistant","content":"A"}},{"message":{"content":"B","role":"assistant"}})"),
              "AB");
}

TEST(KAIAssistant_DEEPSEEK, ReadsAnEmptyListOfChoicesAsAnEmptyReply) {
    EXPECT_EQ(read(""), "");
}

TEST(KAIAssistant_DEEPSEEK, AddsNothingForAChoiceOfAnotherForm) {
    const std::string good = R"(,{"message":{"role":"assistant","content":"B"}})";
    for (const char* choice :
         {"null", "1", "\"A\"", "[]", "{}", R"({"message":null})", R"({"message":"A"})", R"({"message":[]})",
          R"({"message":{"content":"A"}})", R"({"message":{"role":"user","content":"A"}})",
          R"({"message":{"role":"Assistant","content":"A"}})", R"({"message":{"role":"assistant ","content":"A"}})",
          R"({"message":{"role":1,"content":"A"}})", R"({"message":{"role":"assistant"}})",
          R"({"message":{"role":"assistant","content":null}})", R"({"message":{"role":"assistant","content":1}})",
          R"({"message":{"role":"assistant","content":["A"]}})"}) {
        EXPECT_EQ(read(choice + good), "B") << choice;
    }
}

TEST(KAIAssistant_DEEPSEEK, RefusesAReplyWhoseChoicesAreMissingOrNoArray) {
    for (const char* response :
         {"{}", "[]", "null", "1", R"("choices")", R"({"choices":null})", R"({"choices":{}})", R"({"choices":"A"})",
          R"({"choices":1})", R"({"Choices":[]})", R"([{"choices":[]}])"}) {
        EXPECT_EQ(readReply(s_protocol, response), "<unsupported>") << response;
    }
}

TEST(KAIAssistant_DEEPSEEK, ListsTheModelsInTheOrderOfTheResponseWithDuplicates) {
    EXPECT_EQ(readModels(s_protocol, R"({"object":"list","data":[{"id":"b","object":"model","owned_by":"x"},)"
                                     R"({"object":"model","id":"a"},{"id":"b","object":"model"}]})"),
              (Texts{"b", "a", "b"}));
    EXPECT_EQ(readModels(s_protocol, R"({"data":[]})"), Texts());
}

TEST(KAIAssistant_DEEPSEEK, LeavesOutModelsOfAnotherForm) {
    EXPECT_EQ(readModels(s_protocol, R"({"data":[{"id":"a","object":"Model"},{"id":"b","object":"model "},{"id":"c"},)"
                                     R"({"object":"model"},{"id":1,"object":"model"},{"id":"d","object":1},null,1,"e",)"
                                     R"([],{},{"id":null,"object":"model"},{"id":"","object":"model"}]})"),
              Texts{""})
        << "an empty identifier is a string";
}

TEST(KAIAssistant_DEEPSEEK, RefusesAModelListWhoseDataIsMissingOrNoArray) {
    for (const char* response :
         {"{}", "[]", "1", R"({"data":null})", R"({"data":{}})", R"({"data":"a"})", R"({"models":[]})"}) {
        EXPECT_EQ(readModels(s_protocol, response), Texts{"<unsupported>"}) << response;
    }
}

TEST(KAIAssistant_DEEPSEEK, ReadsTheMessageOfAnErrorBodyAndOtherwiseTheBodyItself) {
    for (const auto reader : {s_protocol.readModelsError, s_protocol.readChatError}) {
        EXPECT_EQ(readError(reader, R"({"error":{"code":1,"message":"no credit"}})"), "no credit");
        EXPECT_EQ(readError(reader, R"({"error":{"message":""}})"), "");
        for (const char* body : {R"({"error":"no credit"})", R"({"error":{"message":1}})", R"({"error":{}})",
                                 R"({"error":null})", R"({"error":["message"]})", R"({"message":"m"})", "[]", "1",
                                 "<html>Bad Gateway</html>", "", "{", R"({"error":{"message":"m"}} x)"}) {
            EXPECT_EQ(readError(reader, body), body);
        }
    }
}

TEST(KAIAssistant_DEEPSEEK, ReadsAMissingResponseAsAnEmptyError) {
    EXPECT_EQ(s_protocol.readModelsError(nullptr), "");
    EXPECT_EQ(s_protocol.readChatError(nullptr), "");
}
