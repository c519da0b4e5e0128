#include <gtest/gtest.h>

#include <string>

#include "kai_assistant_properties.h"

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

TEST(KAIWrittenInstructions, OutliveAChangeOfTheProperties) {
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", "before");
    const auto written = properties.obtainWrittenInstructions();
    properties.setProperty("user_instructions", "after");
    EXPECT_EQ(*written, R"("before\n\n")");
    EXPECT_EQ(*properties.obtainWrittenInstructions(), R"("after\n\n")");
}
