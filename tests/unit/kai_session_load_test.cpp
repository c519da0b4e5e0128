#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "chat_text.h"
#include "kai_session_deepseek.h"
#include "kai_session_settings.h"

namespace {

constexpr const char* kOneTable = R"([{"schemas":[{"tables":[{"name":"t","fields":[{"name":"a","type":"int"}]}]}]}])";

class KAISessionLoad : public testing::Test {
protected:
    bool load(const std::string& text) { return m_session.loadSession(text); }

    /// "ROLE:TEXT" of each message of the history.
    std::vector<std::string> readHistory() {
        std::vector<std::string> history;
        for (const auto& [role, text] : readMessages(m_session)) {
            history.push_back(std::to_string(role) + ":" + text);
        }
        return history;
    }

    KAIAssistantProperties m_properties;
    KAISession_DEEPSEEK m_session{m_properties};
};

}  // namespace

TEST_F(KAISessionLoad, RestoresWhatWasSerializedButTheTemperature) {
    const AssertionRecorder recorder;
    KAIAssistantProperties saved;
    saved.setProperty("api_host", "example.com");
    saved.setProperty("model", "m");
    saved.setProperty("temperature", "0.2");
    saved.setProperty("user_instructions", "U \xe2\x82\xac \"\\");
    saved.setProperty("system_instructions", CMVariantMap{{"b", "B"}, {"a", "A"}});
    saved.setProperty("db_structure", kOneTable);
    KAISession_DEEPSEEK session(saved);
    appendTurn(session, "q", "a");
    appendTurn(session, "line\nline", "");
    ASSERT_TRUE(load(session.serializeSession()));
    EXPECT_EQ(readHistory(), (std::vector<std::string>{"0:q", "1:a", "0:line\nline", "1:"}));
    EXPECT_EQ(m_properties.obtainSettings().apiHost, "example.com");
    EXPECT_EQ(m_properties.obtainSettings().model, "m");
    EXPECT_EQ(m_properties.obtainSettings().temperature, 1.0);
    EXPECT_EQ(*m_properties.obtainSettings().databaseStructure, kOneTable);
    EXPECT_EQ(m_properties.obtainCombinedInstructions(), saved.obtainCombinedInstructions());
}

TEST_F(KAISessionLoad, GivesTheSameTextAgainForTheSameTemperature) {
    m_properties.setProperty("api_host", "h");
    m_properties.setProperty("db_structure", kOneTable);
    m_properties.setProperty("system_instructions", CMVariantMap{{"a", "A"}});
    appendTurn(m_session, "q", "a");
    const std::string text = m_session.serializeSession();
    KAIAssistantProperties properties;
    KAISession_DEEPSEEK restored(properties);
    ASSERT_TRUE(restored.loadSession(text));
    EXPECT_EQ(restored.serializeSession(), text);
}

TEST_F(KAISessionLoad, MarksEveryKeyOfATextAsAssignedButTheSystemInstructions) {
    KAISession_DEEPSEEK session(m_properties);
    m_properties.setProperty("system_instructions", CMVariantMap{{"a", "A"}});
    const std::string text = session.serializeSession();
    KAIAssistantProperties properties;
    KAISession_DEEPSEEK restored(properties);
    ASSERT_TRUE(restored.loadSession(text));
    using Keys = std::set<std::string, std::less<>>;
    EXPECT_EQ(properties.obtainSettings().assignedKeys,
              (Keys{"api_host", "db_structure", "model", "temperature", "user_instructions"}));
    EXPECT_EQ(properties.obtainCombinedInstructions(), "A\n");
}

TEST_F(KAISessionLoad, SucceedsForAnEmptyObjectAndChangesNothing) {
    m_properties.setProperty("model", "m");
    const auto assignedKeys = m_properties.obtainSettings().assignedKeys;
    EXPECT_TRUE(load("{}"));
    EXPECT_TRUE(readMessages(m_session).empty());
    EXPECT_EQ(m_properties.obtainSettings().model, "m");
    EXPECT_EQ(m_properties.obtainSettings().assignedKeys, assignedKeys);
}

TEST_F(KAISessionLoad, SucceedsForValidJSONThatIsNoObject) {
    for (const char* text : {"[]", "null", "1", "\"text\"", "true", R"([{"model":"m","messages":[]}])"}) {
        EXPECT_TRUE(load(text)) << text;
        EXPECT_TRUE(readMessages(m_session).empty()) << text;
    }
    EXPECT_TRUE(m_properties.obtainSettings().assignedKeys.empty());
}

TEST_F(KAISessionLoad, FailsForATextThatIsNotJSONAndChangesNothing) {
    for (const std::string& text :
         {std::string(), std::string(" "), std::string("not JSON"), std::string(R"({"model":"m")"),
          std::string(R"({"model":"m"} x)"), std::string("{\"model\":\"\xff}"), std::string(R"({"model":"\ud80"})"),
          std::string("{\"model\":\"m\"}\0", 14), std::string(R"({"model":"m",})"),
          std::string(513, '[') + std::string(513, ']')}) {
        EXPECT_FALSE(load(text)) << text;
        EXPECT_TRUE(m_properties.obtainSettings().assignedKeys.empty()) << text;
        EXPECT_EQ(m_properties.obtainSettings().model, "") << text;
    }
}

TEST_F(KAISessionLoad, ReadsWhatIsNoCharacterAsAReplacement) {
    EXPECT_TRUE(load("{\"model\":\"\xff\",\"messages\":[{\"role\":\"user\",\"content\":\"\\ud800\"}]}"));
    EXPECT_EQ(m_properties.obtainSettings().model, "\xef\xbf\xbd");
    EXPECT_EQ(readHistory(), std::vector<std::string>{"0:\xef\xbf\xbd"});
}

TEST_F(KAISessionLoad, LeavesTheTemperatureAsItWasAndMarksItAsAssigned) {
    AssertionRecorder recorder;
    EXPECT_TRUE(load(R"({"temperature":0.2})"));
    EXPECT_EQ(m_properties.obtainSettings().temperature, 1.0);
    EXPECT_TRUE(m_properties.isAssigned("temperature"));
    EXPECT_EQ(recorder.takeCount(), 0U);
}

TEST_F(KAISessionLoad, LeavesTheTemperatureAloneWhenItIsNoNumber) {
    for (const char* value : {"\"0.2\"", "null", "{}", "[0.2]", "true"}) {
        EXPECT_TRUE(load(R"({"temperature":)" + std::string(value) + "}"));
        EXPECT_FALSE(m_properties.isAssigned("temperature")) << value;
        EXPECT_EQ(m_properties.obtainSettings().temperature, 1.0);
    }
}

TEST_F(KAISessionLoad, StoresTheHostTrimmedAndTheDefaultHostForABlankOne) {
    EXPECT_TRUE(load(R"({"api_host":" h\t"})"));
    EXPECT_EQ(m_properties.obtainSettings().apiHost, "h");
    EXPECT_TRUE(load(R"({"api_host":" "})"));
    EXPECT_EQ(m_properties.obtainSettings().apiHost, "api.deepseek.com");
}

TEST_F(KAISessionLoad, LeavesSettingsOfAnotherTypeAlone) {
    AssertionRecorder recorder;
    for (const char* key : {"api_host", "model", "user_instructions", "db_structure", "system_instructions"}) {
        for (const char* value : {"null", "1", "{}", "true"}) {
            EXPECT_TRUE(load("{\"" + std::string(key) + "\":" + value + "}"));
            EXPECT_FALSE(m_properties.isAssigned(key)) << key << value;
        }
    }
    EXPECT_EQ(recorder.takeCount(), 0U);
    EXPECT_EQ(m_properties.obtainCombinedInstructions(), "");
}

TEST_F(KAISessionLoad, SetsSystemInstructionsDirectly) {
    m_properties.setProperty("system_instructions", CMVariantMap{{"a", "former"}, {"b", "kept"}});
    m_properties.changeSettings([](kai::AssistantSettings& settings) { settings.assignedKeys.clear(); });
    EXPECT_TRUE(load(R"({"system_instructions":[{"key":"c","value":"C"},{"value":"A","key":"a"}]})"));
    EXPECT_EQ(m_properties.obtainCombinedInstructions(), "A\nkept\nC\n");
    EXPECT_FALSE(m_properties.isAssigned("system_instructions"));
}

TEST_F(KAISessionLoad, KeepsAnEmptySystemInstructionAsAnEmptyLine) {
    EXPECT_TRUE(load(R"({"system_instructions":[{"key":"a","value":""},{"key":"b","value":"B"}]})"));
    EXPECT_EQ(m_properties.obtainSettings().systemInstructions->size(), 2U);
    EXPECT_EQ(m_properties.obtainCombinedInstructions(), "\nB\n");
}

TEST_F(KAISessionLoad, SkipsSystemInstructionsOfAnotherForm) {
    EXPECT_TRUE(load(R"({"system_instructions":[null,1,"a",[],{},{"key":"a"},{"value":"A"},{"key":1,"value":"A"},)"
                     R"({"key":"a","value":1},{"key":"a","value":null},{"key":"b","value":"B"}]})"));
    EXPECT_EQ(m_properties.obtainCombinedInstructions(), "B\n");
}

TEST_F(KAISessionLoad, KeepsTheStoredStructureWhenTheSavedOneIsEmptyOrNotJSON) {
    AssertionRecorder recorder;
    m_properties.setProperty("db_structure", kOneTable);
    EXPECT_TRUE(load(R"({"db_structure":""})"));
    EXPECT_EQ(recorder.takeCount(), 0U);
    EXPECT_TRUE(load(R"({"db_structure":"not JSON"})"));
    EXPECT_EQ(recorder.takeCount(), 1U);
    EXPECT_EQ(*m_properties.obtainSettings().databaseStructure, kOneTable);
    EXPECT_TRUE(m_properties.isAssigned("db_structure"));
}

TEST_F(KAISessionLoad, HasAnEmptyHistoryWhenMessagesAreMissingOrNoArray) {
    appendTurn(m_session, "q", "a");
    for (const char* messages : {"null", "1", "\"m\"", R"({"role":"user","content":"x"})", "true"}) {
        EXPECT_TRUE(load(R"({"model":"m","messages":)" + std::string(messages) + "}"));
        EXPECT_TRUE(readHistory().empty()) << messages;
    }
    EXPECT_EQ(m_properties.obtainSettings().model, "m");
}

TEST_F(KAISessionLoad, SkipsMessagesOfAnotherFormAndKeepsTheRestInOrder) {
    EXPECT_TRUE(load(R"({"messages":[{"role":"assistant","content":"1"},null,1,"m",[],{},{"role":"user"},)"
                     R"({"content":"x"},{"role":"User","content":"x"},{"role":"model","content":"x"},)"
                     R"({"role":"system","content":"x"},{"role":"","content":"x"},{"role":0,"content":"x"},)"
                     R"({"role":"user","content":1},{"role":"user","content":null},)"
                     R"({"role":"user","content":"2","time":5},{"content":"3","role":"user"}]})"));
    EXPECT_EQ(readHistory(), (std::vector<std::string>{"1:1", "0:2", "0:3"}));
}

TEST_F(KAISessionLoad, AcceptsAByteOrderMarkAndIndentedText) {
    EXPECT_TRUE(load("\xef\xbb\xbf{\n  \"model\" : \"m\" ,\n\t\"messages\" : [ ]\r\n}\n"));
    EXPECT_EQ(m_properties.obtainSettings().model, "m");
}

TEST_F(KAISessionLoad, ReadsANumberOutsideTheRangeOfADouble) {
    EXPECT_TRUE(
        load(R"({"temperature":1e999,"messages":[{"role":"user","content":"x","n":123456789012345678901234}]})"));
    EXPECT_EQ(m_properties.obtainSettings().temperature, 1.0);
    EXPECT_EQ(readHistory(), (std::vector<std::string>{"0:x"}));
}
