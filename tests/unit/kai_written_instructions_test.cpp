// The instructions as a turn sends them: written once for the same settings, and again after any change.

#include <gtest/gtest.h>

#include <string>

#include "assertion_recorder.h"
#include "kai_assistant_properties_openai.h"
#include "kai_session_deepseek.h"

namespace {

constexpr const char* kOneTable = R"([{"schemas":[{"tables":[{"name":"t","fields":[{"name":"a","type":"int"}]}]}]}])";
constexpr const char* kMalformedTable = R"([{"schemas":[{"tables":[{"name":"t"}]}]}])";

/// The combined instructions as the properties compute them now, as a JSON string; empty when there are none.
std::string computeWritten(const KAIAssistantProperties& properties) {
    const std::string instructions = properties.obtainCombinedInstructions();
    if (instructions.empty()) {
        return {};
    }
    std::string text;
    {
        COJsonWriter writer(text);
        writer.writeString(instructions);
    }
    return text;
}

void expectCurrent(const KAIAssistantProperties& properties) {
    const auto written = properties.obtainWrittenInstructions();
    EXPECT_EQ(written ? *written : "", computeWritten(properties));
}

}  // namespace

TEST(KAIWrittenInstructions, AreNullWhenThereAreNone) {
    const KAIAssistantProperties properties;
    EXPECT_EQ(properties.obtainWrittenInstructions(), nullptr);
}

TEST(KAIWrittenInstructions, AreTheCombinedInstructionsAsAJsonString) {
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", "Say \"yes\"\\\n");
    properties.setProperty("system_instructions", CMVariantMap{{"a", "\xc3\xa4\x01"}});
    const auto written = properties.obtainWrittenInstructions();
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(*written, "\"Say \\\"yes\\\"\\\\\\n\\n\\n\xc3\xa4\\u0001\\n\"");
}

TEST(KAIWrittenInstructions, AreWrittenOnceForTheSameSettings) {
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", kOneTable);
    const auto written = properties.obtainWrittenInstructions();
    EXPECT_EQ(properties.obtainWrittenInstructions(), written);
    EXPECT_EQ(KAIAssistantProperties(properties).obtainWrittenInstructions(), written)
        << "a copy has the same settings";
    properties.setProperty("model", "m");
    properties.setProperty("api_host", "h");
    EXPECT_EQ(properties.obtainWrittenInstructions(), written) << "these settings are no part of them";
}

TEST(KAIWrittenInstructions, AreWrittenAgainAfterEveryChangeOfWhatTheyAreMadeFrom) {
    const AssertionRecorder recorder;
    KAIAssistantProperties properties;
    const std::pair<const char*, CMVariant> changes[] = {
        {"user_instructions", "U"},
        {"user_instructions", "V"},
        {"system_instructions", CMVariantMap{{"a", "A"}, {"b", "B"}}},
        {"system_instructions", CMVariantMap{{"a", ""}}},
        {"db_structure", kOneTable},
        {"db_structure", "[]"},
        {"db_structure", CMVariantList{CMVariantMap{{"catalog_name", "c"}, {"schemas", CMVariantList{}}}}},
        {"user_instructions", ""},
    };
    for (const auto& [key, value] : changes) {
        EXPECT_EQ(properties.obtainWrittenInstructions() == nullptr, computeWritten(properties).empty());
        EXPECT_TRUE(properties.setProperty(key, value)) << key;
        expectCurrent(properties);
    }
}

TEST(KAIWrittenInstructions, AreWrittenAgainWhenSettingsAreReplaced) {
    KAIAssistantProperties_OPENAI properties;
    properties.setProperty("user_instructions", "former");
    KAIAssistantProperties_OPENAI other;
    other.setProperty("user_instructions", "other");
    expectCurrent(properties);
    other.copyAssignedProperties(properties);
    expectCurrent(properties);
    other.setProperty("user_instructions", "another");
    properties.adoptSettings(std::move(other));
    expectCurrent(properties);
}

TEST(KAIWrittenInstructions, AreWrittenAgainAfterARestore) {
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", "former");
    expectCurrent(properties);
    KAISession_DEEPSEEK session(properties);
    ASSERT_TRUE(session.loadSession(R"({"system_instructions":[{"key":"a","value":"A"}]})"));
    expectCurrent(properties);
    EXPECT_EQ(*properties.obtainWrittenInstructions(), R"("former\n\nA\n")");
}

TEST(KAIWrittenInstructions, ReportAMalformedStructureAtEveryCall) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", kMalformedTable);
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(*properties.obtainWrittenInstructions(), R"("\n\n")");
        EXPECT_EQ(recorder.takeTexts(), std::vector<std::string>{"false @ src/kai_assistant_properties.cpp"});
    }
    properties.setProperty("db_structure", kOneTable);
    expectCurrent(properties);
    EXPECT_EQ(recorder.takeCount(), 0U);
}

TEST(KAIWrittenInstructions, LeaveTheOperationsOfThePropertiesToComputeAtEachCall) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", kMalformedTable);
    EXPECT_NE(properties.obtainWrittenInstructions(), nullptr);
    recorder.takeCount();
    properties.obtainProperty("combined_instructions");
    properties.obtainProperty("combined_instructions");
    properties.obtainProperty("db_structure");
    EXPECT_EQ(recorder.takeCount(), 3U);
}

TEST(KAIWrittenInstructions, OutliveAChangeOfTheProperties) {
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", "before");
    const auto written = properties.obtainWrittenInstructions();
    properties.setProperty("user_instructions", "after");
    EXPECT_EQ(*written, R"("before\n\n")");
    EXPECT_EQ(*properties.obtainWrittenInstructions(), R"("after\n\n")");
}
