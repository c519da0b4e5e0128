#include "kai_assistant_google.h"

#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "chat_text.h"

using Texts = std::vector<std::string>;

namespace {

const kai::ChatProtocol& s_protocol = kai::obtainGoogleProtocol();

std::string read(const std::string& candidates) {
    return readReply(s_protocol, R"({"candidates":[)" + candidates + "]}");
}

}  // namespace

TEST(KAIAssistant_GOOGLE, WritesAFirstTurnWithASingleUserEntry) {
    KAIAssistantProperties properties;
    properties.setProperty("model", "gemini");
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "hello"),
              R"({"contents":[{"role":"user","parts":[{"text":"hello"}]}]})");
}

TEST(KAIAssistant_GOOGLE, WritesAThirdTurnAsUserModelUserModelUser) {
    const Messages history = {{0, "q1"}, {1, "a1"}, {0, "q2"}, {1, "a2"}};
    EXPECT_EQ(writeBody(s_protocol, KAIAssistantProperties(), history, "q3"),
              R"({"contents":[{"role":"user","parts":[{"text":"q1"}]},{"role":"model","parts":[{"text":"a1"}]},)"
              R"({"role":"user","parts":[{"text":"q2"}]},{"role":"model","parts":[{"text":"a2"}]},)"
              R"({"role":"user","parts":[{"text":"q3"}]}]})");
}

TEST(KAIAssistant_GOOGLE, WritesSystemInstructionPartsAsASingleObjectBetweenTemperatureAndContents) {
    const AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("temperature", "0.2");
    properties.setProperty("user_instructions", "U");
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "q"),
              R"({"generationConfig":{"temperature":0.2},"system_instruction":{"parts":{"text":"U\n\n"}},)"
              R"("contents":[{"role":"user","parts":[{"text":"q"}]}]})");
}

TEST(KAIAssistant_GOOGLE, WritesNoGenerationConfigWhenTheTemperatureWasNotAssigned) {
    KAIAssistantProperties properties;
    properties.changeSettings([](kai::AssistantSettings& settings) { settings.temperature = 0.5; });
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "q").find("generationConfig"), std::string::npos);
    properties.setProperty("temperature", CMVariant(0.7));
    EXPECT_EQ(writeBody(s_protocol, properties, {}, "q").find(R"({"generationConfig":{"temperature":0.5},)"), 0U);
}

TEST(KAIAssistant_GOOGLE, WritesAnyOtherRoleThanTheAssistantsAsTheUsers) {
    EXPECT_EQ(writeBody(s_protocol, KAIAssistantProperties(), {{2, "x"}}, "q"),
              R"({"contents":[{"role":"user","parts":[{"text":"x"}]},{"role":"user","parts":[{"text":"q"}]}]})");
}

TEST(KAIAssistant_GOOGLE, JoinsEveryPartOfEveryCandidateOfTheModel) {
    EXPECT_EQ(read(R"({"content":{"parts":[{"text":"A"},{"text":"B"}],"role":"model"},"finishReason":"STOP"},)"
                   R"({"content":{"role":"model","parts":[{"text":"C"}]}})"),
              "ABC");
}

TEST(KAIAssistant_GOOGLE, ReadsAnEmptyListOfCandidatesAsAnEmptyReply) {
    EXPECT_EQ(read(""), "");
}

TEST(KAIAssistant_GOOGLE, AddsNothingForACandidateOfAnotherForm) {
    const std::string good = R"(,{"content":{"role":"model","parts":[{"text":"B"}]}})";
    for (const char* candidate :
         {"null", "1", "\"A\"", "[]", "{}", R"({"content":null})", R"({"content":"A"})", R"({"content":[]})",
          R"({"content":{"parts":[{"text":"A"}]}})", R"({"content":{"role":"user","parts":[{"text":"A"}]}})",
          R"({"content":{"role":"Model","parts":[{"text":"A"}]}})", R"({"content":{"role":1,"parts":[{"text":"A"}]}})",
          R"({"content":{"role":"model"}})", R"({"content":{"role":"model","parts":null}})",
          R"({"content":{"role":"model","parts":{"text":"A"}}})", R"({"content":{"role":"model","parts":[]}})"}) {
        EXPECT_EQ(read(candidate + good), "B") << candidate;
    }
}

TEST(KAIAssistant_GOOGLE, AddsNothingForAPartOfAnotherForm) {
    for (const char* part : {"null", "1", "\"A\"", "[]", "{}", R"({"text":null})", R"({"text":1})", R"({"text":{}})",
                             R"({"inlineData":{"text":"A"}})", R"({"Text":"A"})"}) {
        EXPECT_EQ(read(R"({"content":{"role":"model","parts":[)" + std::string(part) + R"(,{"text":"B"}]}})"), "B")
            << part;
    }
}

TEST(KAIAssistant_GOOGLE, ReadsThePartsThatTheServiceMarksAsThoughtsLikeAllOthers) {
    EXPECT_EQ(read(R"({"content":{"role":"model","parts":[{"text":"A","thought":true},{"text":"B"}]}})"), "AB");
}

TEST(KAIAssistant_GOOGLE, RefusesAReplyWhoseCandidatesAreMissingOrNoArray) {
    for (const char* response : {"{}", "[]", "1", R"({"candidates":null})", R"({"candidates":{}})",
                                 R"({"candidates":"A"})", R"({"candidates":1})", R"({"promptFeedback":{}})"}) {
        EXPECT_EQ(readReply(s_protocol, response), "<unsupported>") << response;
    }
}

TEST(KAIAssistant_GOOGLE, ListsTheModelsThatGenerateContentInTheOrderOfTheResponse) {
    EXPECT_EQ(readModels(s_protocol, R"({"models":[
        {"name":"models/b","supportedGenerationMethods":["countTokens","generateContent"]},
        {"name":"models/embedding","supportedGenerationMethods":["embedContent"]},
        {"name":"models/a","supportedGenerationMethods":["generateContent"]},
        {"name":"models/b","supportedGenerationMethods":["generateContent"]}],"nextPageToken":"x"})"),
              (Texts{"b", "a", "b"}));
    EXPECT_EQ(readModels(s_protocol, R"({"models":[]})"), Texts());
}

TEST(KAIAssistant_GOOGLE, RemovesOnlyTheModelsPrefixFromAName) {
    const auto list = [](const std::string& name) {
        return readModels(
            s_protocol, R"({"models":[{"name":")" + name + R"(","supportedGenerationMethods":["generateContent"]}]})");
    };
    EXPECT_EQ(list("models/x"), Texts{"x"});
    EXPECT_EQ(list("models/"), Texts{""}) << "an empty name is kept";
    EXPECT_EQ(list("models/models/x"), Texts{"models/x"});
    EXPECT_EQ(list("tunedModels/x"), Texts{"tunedModels/x"});
    EXPECT_EQ(list("Models/x"), Texts{"Models/x"});
    EXPECT_EQ(list("models"), Texts{"models"});
    EXPECT_EQ(list(" models/x"), Texts{" models/x"});
    EXPECT_EQ(list(""), Texts{""});
}

TEST(KAIAssistant_GOOGLE, LeavesOutModelsOfAnotherForm) {
    for (const char* model : {
             "null",
             "1",
             "\"m\"",
             "[]",
             "{}",
             R"({"name":1,"supportedGenerationMethods":["generateContent"]})",
             R"({"supportedGenerationMethods":["generateContent"]})",
             R"({"name":"m"})",
             R"({"name":"m","supportedGenerationMethods":null})",
             R"({"name":"m","supportedGenerationMethods":"generateContent"})",
             R"({"name":"m","supportedGenerationMethods":{"generateContent":true}})",
             R"({"name":"m","supportedGenerationMethods":[]})",
             R"({"name":"m","supportedGenerationMethods":["GenerateContent","generateContent ","generate"]})",
             R"({"name":"m","supportedGenerationMethods":[["generateContent"]]})",
         }) {
        EXPECT_EQ(readModels(s_protocol, R"({"models":[)" + std::string(model) + "]}"), Texts()) << model;
    }
}

TEST(KAIAssistant_GOOGLE, IgnoresMethodsThatAreNoStrings) {
    EXPECT_EQ(
        readModels(s_protocol, R"({"models":[{"name":"m","supportedGenerationMethods":[1,null,"generateContent"]}]})"),
        Texts{"m"});
}

TEST(KAIAssistant_GOOGLE, RefusesAModelListWhoseModelsAreMissingOrNoArray) {
    for (const char* response : {"{}", "[]", R"({"models":null})", R"({"models":{}})", R"({"data":[]})"}) {
        EXPECT_EQ(readModels(s_protocol, response), Texts{"<unsupported>"}) << response;
    }
}

TEST(KAIAssistant_GOOGLE, ReadsTheMessageOfAnErrorBodyAndNeverTheBodyItself) {
    for (const auto reader : {s_protocol.readModelsError, s_protocol.readChatError}) {
        EXPECT_EQ(readError(reader, R"({"error":{"code":400,"message":"bad key","status":"INVALID_ARGUMENT"}})"),
                  "bad key");
        for (const char* body : {R"({"error":"bad key"})", R"({"error":{"message":1}})", R"({"error":{}})", "[]",
                                 "<html>Bad Gateway</html>", "", R"([{"error":{"message":"m"}}])"}) {
            EXPECT_EQ(readError(reader, body), "") << body;
        }
        EXPECT_EQ(reader(nullptr), "");
    }
}
