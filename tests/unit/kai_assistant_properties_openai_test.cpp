#include "kai_assistant_properties_openai.h"

#include <gtest/gtest.h>

#include "assertion_recorder.h"

using Texts = std::vector<std::string>;

namespace {

constexpr const char* kNotAString =
    "value.getValueType() == CMVariant::ValueType::String @ src/kai_assistant_properties_openai.cpp";

}  // namespace

TEST(KAIAssistantProperties_OPENAI, StartsWithNameDescriptionAndTheInheritedDefaults) {
    KAIAssistantProperties_OPENAI properties;
    EXPECT_EQ(properties.obtainProperty("name").stringValue(), "Keltrix Assistant");
    EXPECT_EQ(properties.obtainProperty("description").getValueType(), CMVariant::ValueType::String);
    EXPECT_EQ(properties.obtainProperty("description").stringValue(), "");
    EXPECT_EQ(properties.obtainProperty("temperature").doubleValue(), 1.0);
    EXPECT_EQ(properties.obtainProperty("combined_instructions").stringValue(), "");
    EXPECT_EQ(properties.obtainProperty("Name").getValueType(), CMVariant::ValueType::Null);
}

TEST(KAIAssistantProperties_OPENAI, DescribesNameAndDescriptionBehindTheSevenOthers) {
    KAIAssistantProperties_OPENAI properties;
    auto expected = KAIAssistantProperties().obtainPropertyDescriptions();
    expected.emplace_back("name", "string");
    expected.emplace_back("description", "string");
    EXPECT_EQ(properties.obtainPropertyDescriptions(), expected);
    EXPECT_EQ(expected.size(), 9U);
}

TEST(KAIAssistantProperties_OPENAI, StoresNameAndDescriptionYetNeverRecordsThemAsAssigned) {
    AssertionRecorder recorder;
    KAIAssistantProperties_OPENAI properties;
    EXPECT_TRUE(properties.setProperty("name", " N "));
    EXPECT_TRUE(properties.setProperty("description", ""));
    EXPECT_EQ(properties.obtainProperty("name").stringValue(), " N ");
    EXPECT_FALSE(properties.isAssigned("name"));
    EXPECT_FALSE(properties.isAssigned("description"));
    EXPECT_TRUE(properties.obtainSettings().assignedKeys.empty());
    EXPECT_EQ(recorder.takeTexts(), Texts());
}

TEST(KAIAssistantProperties_OPENAI, StoresAnotherTypeAsItsTextThoughItReportsTheCheck) {
    AssertionRecorder recorder;
    for (const char* key : {"name", "description"}) {
        KAIAssistantProperties_OPENAI properties;
        EXPECT_TRUE(properties.setProperty(key, 0.25));
        EXPECT_EQ(properties.obtainProperty(key).stringValue(), "0.25");
        for (const CMVariant& value :
             {CMVariant(), CMVariant(CMVariantList{"x"}), CMVariant(CMVariantMap{{"x", "y"}})}) {
            properties.setProperty(key, "former");
            EXPECT_TRUE(properties.setProperty(key, value));
            EXPECT_EQ(properties.obtainProperty(key).stringValue(), "");
        }
        EXPECT_EQ(recorder.takeTexts(), Texts(4, kNotAString));
    }
}

TEST(KAIAssistantProperties_OPENAI, HandlesEveryOtherKeyLikeItsBase) {
    AssertionRecorder recorder;
    KAIAssistantProperties_OPENAI properties;
    EXPECT_TRUE(properties.setProperty("model", "m"));
    EXPECT_EQ(properties.obtainProperty("model").stringValue(), "m");
    EXPECT_TRUE(properties.isAssigned("model"));
    EXPECT_FALSE(properties.setProperty("temperature", 0.5));
    EXPECT_FALSE(properties.setProperty("unknown", "x"));
    EXPECT_FALSE(properties.setProperty("model", 1.0));
    EXPECT_EQ(recorder.takeTexts(),
              Texts{"value.getValueType() == CMVariant::ValueType::String @ src/kai_assistant_properties.cpp"});
}

TEST(KAIAssistantProperties_OPENAI, LeavesNameAndDescriptionOutOfACopyOfTheAssignedKeys) {
    KAIAssistantProperties_OPENAI source;
    source.setProperty("name", "N");
    source.setProperty("description", "D");
    source.setProperty("model", "m");
    KAIAssistantProperties_OPENAI target;
    source.copyAssignedProperties(target);
    EXPECT_EQ(target.obtainProperty("model").stringValue(), "m");
    EXPECT_EQ(target.obtainProperty("name").stringValue(), "Keltrix Assistant");
    EXPECT_EQ(target.obtainProperty("description").stringValue(), "");
}

TEST(KAIAssistantProperties_OPENAI, CopiesAndAdoptsEveryField) {
    KAIAssistantProperties_OPENAI source;
    source.setProperty("name", "N");
    source.setProperty("description", "D");
    source.setProperty("model", "m");
    KAIAssistantProperties_OPENAI copy(source);
    EXPECT_EQ(copy.obtainSettings().name, "N");
    EXPECT_EQ(copy.obtainSettings().description, "D");
    EXPECT_TRUE(copy.isAssigned("model"));
    KAIAssistantProperties_OPENAI fresh;
    fresh.adoptSettings(std::move(copy));
    EXPECT_EQ(fresh.obtainSettings().name, "N");
    EXPECT_EQ(fresh.obtainSettings().model, "m");
    EXPECT_TRUE(fresh.isAssigned("model"));
}
