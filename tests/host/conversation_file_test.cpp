#include "conversation/conversation_file.h"

#include <gmock/gmock.h>

#include "conversation/conversation.h"
#include "host_error.h"
#include "test_folder.h"

namespace {

using testing::HasSubstr;

std::string describeReading(const std::string& fileName) {
    try {
        return "read: " + host::readConversationFile(fileName).sessionText;
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), host::ExitCode::Usage);
        return error.what();
    }
}

std::string describeTarget(const std::string& fileName) {
    try {
        host::checkSaveTarget(fileName);
        return "accepted";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), host::ExitCode::Usage);
        return error.what();
    }
}

TEST(ConversationFile, HasTheFormThatTheGuideDescribes) {
    EXPECT_EQ(host::writeConversation({"deepseek", "0.2", R"({"model":"m"})"}),
              R"({"kai_conversation":1,"provider":"deepseek","temperature":"0.2","session":{"model":"m"}})"
              "\n");
    EXPECT_EQ(host::writeConversation({"ollama", "", "{}"}),
              R"({"kai_conversation":1,"provider":"ollama","session":{}})"
              "\n");
}

TEST(ConversationFile, ReadsWhatItWrote) {
    const TestFolder folder;
    const std::string session = R"({"model":"m\u001b","messages":[{"role":"user","content":"Łódź \"x\""}]})";
    const host::ConversationRecord read =
        host::readConversationFile(folder.write("a", host::writeConversation({"google", "1.5", session})));
    EXPECT_EQ(read.provider, "google");
    EXPECT_EQ(read.temperature, "1.5");
    const host::SessionSummary saved = host::summarizeSession(read.sessionText);
    EXPECT_EQ(saved.settings.model, "m\x1b");
    EXPECT_EQ(saved.messageCount, 1U);
    EXPECT_EQ(saved.messageBytes, std::string("Łódź \"x\"").size());
}

TEST(ConversationFile, RefusesWhatIsNoConversation) {
    const TestFolder folder;
    for (const char* content :
         {"", "not JSON", "[]", "{}", R"({"kai_conversation":2,"provider":"deepseek","session":{}})",
          R"({"kai_conversation":1,"session":{}})", R"({"kai_conversation":1,"provider":7,"session":{}})",
          R"({"kai_conversation":1,"provider":"deepseek"})",
          R"({"kai_conversation":1,"provider":"deepseek","session":"{}"})",
          R"({"kai_conversation":1,"provider":"deepseek","session":{})"}) {
        EXPECT_THAT(describeReading(folder.write("a", content)), HasSubstr("it is not a conversation file")) << content;
    }
}

TEST(ConversationFile, SaysWhyItCannotBeRead) {
    const TestFolder folder;
    EXPECT_THAT(describeReading(folder.name("none")), HasSubstr("No such file or directory"));
    EXPECT_THAT(describeReading(folder.name("")), HasSubstr("it is not a conversation file"));
}

TEST(ConversationFile, SavesOverAConversationOrNothing) {
    const TestFolder folder;
    EXPECT_EQ(describeTarget(folder.name("new")), "accepted");
    EXPECT_EQ(describeTarget(folder.write("empty", "")), "accepted");
    EXPECT_EQ(describeTarget(folder.write("old", host::writeConversation({"deepseek", "", "{}"}))), "accepted");
}

TEST(ConversationFile, NeverSavesOverAnotherFile) {
    const TestFolder folder;
    EXPECT_THAT(describeTarget(folder.write("shop.db", "SQLite format 3")), HasSubstr("it is not a conversation file"));
    EXPECT_THAT(describeTarget(folder.write("other.json", "{}")), HasSubstr("it is not a conversation file"));
}

TEST(SessionSummary, ReadsWhatTheSessionTextSays) {
    const host::SessionSummary saved = host::summarizeSession(
        R"({"api_host":"h","model":"m","temperature":1.0,"user_instructions":"u",)"
        R"("system_instructions":[{"key":"a","value":"x"},{"key":"b","value":"y"}],"db_structure":"[]",)"
        R"("messages":[{"role":"user","content":"q"},{"role":"assistant","content":"aa"}]})");
    EXPECT_EQ(saved.settings.apiHost, "h");
    EXPECT_EQ(saved.settings.model, "m");
    EXPECT_EQ(saved.settings.temperature, "");
    EXPECT_EQ(saved.settings.userInstructions, "u");
    EXPECT_EQ(saved.settings.systemInstructions, (std::map<std::string, std::string>{{"a", "x"}, {"b", "y"}}));
    EXPECT_EQ(saved.settings.structure.stringValue(), "[]");
    EXPECT_EQ(saved.messageCount, 2U);
    EXPECT_EQ(saved.messageBytes, 3U);
}

TEST(SessionSummary, TakesMissingAndMistypedMembersAsEmpty) {
    for (const char* text : {"{}", R"({"model":1,"messages":{},"system_instructions":"x","db_structure":[]})", "x"}) {
        const host::SessionSummary saved = host::summarizeSession(text);
        EXPECT_EQ(saved.settings.model, "") << text;
        EXPECT_EQ(saved.messageCount, 0U) << text;
        EXPECT_EQ(saved.settings.structure.getValueType(), CMVariant::ValueType::Null) << text;
    }
}

}  // namespace
