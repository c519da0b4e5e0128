// Compiled together with the library's sources while assertions are compiled out: the guards behind them stay.

#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "kai_assistant_openai.h"
#include "kai_session_deepseek.h"
#include "kai_session_google.h"
#include "kai_session_ollama.h"

#ifndef CF_NO_ASSERTIONS
#error "this test is about a build without assertions"
#endif

namespace {

/// Expects that no check is reported.
class KAINoAssertions : public testing::Test {
protected:
    ~KAINoAssertions() override { EXPECT_EQ(m_recorder.takeTexts(), std::vector<std::string>()); }

    AssertionRecorder m_recorder;
    KAIAssistantProperties m_properties;
};

}  // namespace

TEST_F(KAINoAssertions, KeepTheRefusalOfValuesOfAnotherType) {
    m_properties.setProperty("model", "former");
    for (const char* key : {"api_host", "model", "user_instructions", "temperature", "system_instructions"}) {
        EXPECT_FALSE(m_properties.setProperty(key, CMVariant())) << key;
        EXPECT_FALSE(m_properties.setProperty(key, 0.5)) << key;
        EXPECT_FALSE(m_properties.setProperty(key, CMVariantList())) << key;
    }
    EXPECT_EQ(m_properties.obtainProperty("model").stringValue(), "former");
    EXPECT_EQ(m_properties.obtainProperty("temperature").doubleValue(), 1.0);
}

TEST_F(KAINoAssertions, KeepTheTemperatureAsAString) {
    EXPECT_TRUE(m_properties.setProperty("temperature", "0.5"));
    EXPECT_EQ(m_properties.obtainProperty("temperature").doubleValue(), 0.5);
}

TEST_F(KAINoAssertions, KeepTheRefusalOfReadOnlyAndInvalidValues) {
    EXPECT_FALSE(m_properties.setProperty("combined_instructions", "x"));
    EXPECT_FALSE(m_properties.setProperty("db_structure", "not JSON"));
    EXPECT_EQ(*m_properties.obtainSettings().databaseStructure, "");
}

TEST_F(KAINoAssertions, SkipInstructionsThatAreNoStrings) {
    EXPECT_TRUE(m_properties.setProperty("system_instructions", CMVariantMap{{"a", 1.0}, {"b", "B"}}));
    EXPECT_EQ(m_properties.obtainCombinedInstructions(), "B\n");
}

TEST_F(KAINoAssertions, LeaveMalformedPartsOfADatabaseOut) {
    m_properties.setProperty("db_structure", R"([1,{"schemas":[2,{"tables":[3,{"name":"t","fields":[]}]}]}])");
    EXPECT_EQ(m_properties.obtainDatabaseStructureText(), "\nCREATE TABLE `t` ()\n");
    EXPECT_EQ(m_properties.obtainDatabaseStructure().size(), 1U);
}

TEST_F(KAINoAssertions, WriteAnUnknownRoleAsAnEmptyText) {
    KAISession_DEEPSEEK deepSeek(m_properties);
    KAISession_GOOGLE google(m_properties);
    KAISession_OLLAMA ollama(m_properties);
    for (kai::ChatSession* session :
         {static_cast<kai::ChatSession*>(&deepSeek), static_cast<kai::ChatSession*>(&google),
          static_cast<kai::ChatSession*>(&ollama)}) {
        session->obtainHistory()->appendMessage(7, "x");
        EXPECT_NE(session->serializeSession().find(R"({"role":"","content":"x"})"), std::string::npos);
    }
}

TEST_F(KAINoAssertions, StoreANameOfAnotherTypeAsItsText) {
    KAIAssistantProperties_OPENAI properties;
    EXPECT_TRUE(properties.setProperty("name", 0.5));
    EXPECT_EQ(properties.obtainSettings().name, "0.5");
}

TEST_F(KAINoAssertions, RefuseASecondRestore) {
    KAIAssistant_OPENAI assistant(nullptr, "host", "key");
    const std::string text = R"({"assistant_id":"a","thread_id":"t"})";
    const auto [session, error] = assistant.restoreSession(text);
    EXPECT_EQ(error, "");
    EXPECT_EQ(assistant.restoreSession(text).second,
              "Assistant already exist, cannot restore assistant in serializedSession");
    KAIFreeObject(session);
}
