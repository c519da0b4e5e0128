#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "kai_assistant_properties.h"

namespace {

constexpr const char* kOneTable = R"([{"schemas":[{"tables":[{"name":"t","fields":[{"name":"a","type":"int"}]}]}]}])";

using Keys = std::set<std::string, std::less<>>;

/// Remembers what is set through it, and leaves the rest to the class it stands for.
class RecordingProperties : public KAIAssistantProperties {
public:
    bool setProperty(const std::string& key, const CMVariant& value) override {
        keysSet.push_back(key);
        return KAIAssistantProperties::setProperty(key, value);
    }

    std::vector<std::string> keysSet;
};

}  // namespace

TEST(KAIAssistantPropertiesCombinedInstructions, AreEmptyWithNothingSet) {
    EXPECT_EQ(KAIAssistantProperties().obtainCombinedInstructions(), "");
}

TEST(KAIAssistantPropertiesCombinedInstructions, HoldUserAndSystemInstructions) {
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", "U");
    properties.setProperty("system_instructions", CMVariantMap{{"name", "S"}});
    EXPECT_EQ(properties.obtainCombinedInstructions(), "U\n\nS\n");
    EXPECT_EQ(properties.obtainProperty("combined_instructions").stringValue(), "U\n\nS\n");
}

TEST(KAIAssistantPropertiesCombinedInstructions, EndUserInstructionsWithTwoLineFeedsAlsoWhenTheyStandAlone) {
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", "U\n");
    EXPECT_EQ(properties.obtainCombinedInstructions(), "U\n\n\n");
}

TEST(KAIAssistantPropertiesCombinedInstructions, OrderSystemInstructionsByTheBytesOfTheirNames) {
    KAIAssistantProperties properties;
    properties.setProperty("system_instructions",
                           CMVariantMap{{"b", "3"}, {"\xc3\xa9", "4"}, {"a", "2"}, {"B", "1"}, {"", "0"}});
    EXPECT_EQ(properties.obtainCombinedInstructions(), "0\n1\n2\n3\n4\n");
}

TEST(KAIAssistantPropertiesCombinedInstructions, EndTheDatabaseStructureWithOneMoreLineFeed) {
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", kOneTable);
    EXPECT_EQ(properties.obtainCombinedInstructions(), "CREATE TABLE `t` (`a` int)\n\n");
    properties.setProperty("user_instructions", "U");
    properties.setProperty("system_instructions", CMVariantMap{{"name", "S"}});
    EXPECT_EQ(properties.obtainCombinedInstructions(), "U\n\nS\nCREATE TABLE `t` (`a` int)\n\n");
}

TEST(KAIAssistantPropertiesCombinedInstructions, GetNoLineFeedForAStructureWithoutLines) {
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", "U");
    properties.setProperty("db_structure", R"([{"schemas":[{"schema_name":"empty"}]}])");
    EXPECT_EQ(properties.obtainCombinedInstructions(), "U\n\n");
}

TEST(KAIAssistantPropertiesCombinedInstructions, HoldTheLineFeedOfAStructureOfOneEmptyLine) {
    const AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", R"([{"schemas":[{"tables":[{}]}]}])");
    EXPECT_EQ(properties.obtainCombinedInstructions(), "\n\n");
}

TEST(KAIAssistantPropertiesCombinedInstructions, KeepTheBytesOfTheTexts) {
    const std::string bytes("x\0\xff", 3);
    KAIAssistantProperties properties;
    properties.setProperty("user_instructions", bytes);
    EXPECT_EQ(properties.obtainCombinedInstructions(), bytes + "\n\n");
}

TEST(KAIAssistantPropertiesCopy, KeepsEveryFieldAndTheAssignedKeys) {
    const AssertionRecorder recorder;
    KAIAssistantProperties source;
    source.setProperty("api_host", "h");
    source.setProperty("model", "m");
    source.setProperty("temperature", "0.5");
    source.setProperty("user_instructions", "u");
    source.setProperty("system_instructions", CMVariantMap{{"a", "X"}});
    source.setProperty("db_structure", kOneTable);
    source.setProperty("unknown", "x");
    KAIAssistantProperties copy(source);
    EXPECT_EQ(copy.obtainProperty("api_host").stringValue(), "h");
    EXPECT_EQ(copy.obtainProperty("model").stringValue(), "m");
    EXPECT_EQ(copy.obtainProperty("temperature").doubleValue(), 0.5);
    EXPECT_EQ(copy.obtainProperty("user_instructions").stringValue(), "u");
    EXPECT_EQ(copy.obtainProperty("system_instructions").mapValue().at("a").stringValue(), "X");
    EXPECT_EQ(*copy.obtainSettings().databaseStructure, kOneTable);
    EXPECT_EQ(copy.obtainSettings().assignedKeys, source.obtainSettings().assignedKeys);
    EXPECT_TRUE(copy.isAssigned("unknown"));
}

TEST(KAIAssistantPropertiesCopy, IsIndependentOfItsSource) {
    KAIAssistantProperties source;
    source.setProperty("model", "m");
    KAIAssistantProperties copy(source);
    copy.setProperty("model", "other");
    copy.setProperty("system_instructions", CMVariantMap{{"a", "X"}});
    EXPECT_EQ(source.obtainProperty("model").stringValue(), "m");
    EXPECT_EQ(source.obtainCombinedInstructions(), "");
    EXPECT_FALSE(source.isAssigned("system_instructions"));
}

TEST(KAIAssistantPropertiesCopyAssigned, CarriesOnlyWhatTheHostAssigned) {
    KAIAssistantProperties source;
    source.setProperty("model", "new");
    KAIAssistantProperties target;
    target.setProperty("api_host", "kept");
    target.setProperty("user_instructions", "kept");
    source.copyAssignedProperties(target);
    EXPECT_EQ(target.obtainProperty("model").stringValue(), "new");
    EXPECT_EQ(target.obtainProperty("api_host").stringValue(), "kept");
    EXPECT_EQ(target.obtainProperty("user_instructions").stringValue(), "kept");
    EXPECT_EQ(target.obtainSettings().assignedKeys, (Keys{"api_host", "model", "user_instructions"}));
}

TEST(KAIAssistantPropertiesCopyAssigned, CarriesTheSameKeysFromACopy) {
    KAIAssistantProperties source;
    source.setProperty("model", "m");
    source.setProperty("db_structure", kOneTable);
    KAIAssistantProperties copy(source);
    KAIAssistantProperties target;
    copy.copyAssignedProperties(target);
    EXPECT_EQ(target.obtainSettings().assignedKeys, (Keys{"db_structure", "model"}));
    EXPECT_EQ(target.obtainDatabaseStructureText(), "CREATE TABLE `t` (`a` int)\n");
}

TEST(KAIAssistantPropertiesCopyAssigned, OffersTheKeysInTheOrderOfTheirDescriptions) {
    const AssertionRecorder recorder;
    KAIAssistantProperties source;
    for (const char* key : {"unknown", "combined_instructions", "system_instructions", "user_instructions",
                            "temperature", "model", "db_structure", "api_host"}) {
        source.setProperty(key, {});
    }
    RecordingProperties target;
    source.copyAssignedProperties(target);
    EXPECT_EQ(target.keysSet, (std::vector<std::string>{"api_host", "model", "temperature", "user_instructions",
                                                        "system_instructions"}));
    EXPECT_TRUE(target.isAssigned("db_structure"));
    EXPECT_FALSE(target.isAssigned("combined_instructions"));
    EXPECT_FALSE(target.isAssigned("unknown"));
}

TEST(KAIAssistantPropertiesCopyAssigned, MergesSystemInstructionsIntoTheTargets) {
    KAIAssistantProperties source;
    source.setProperty("system_instructions", CMVariantMap{{"b", "B"}});
    KAIAssistantProperties target;
    target.setProperty("system_instructions", CMVariantMap{{"a", "A"}, {"b", "former"}});
    source.copyAssignedProperties(target);
    EXPECT_EQ(target.obtainCombinedInstructions(), "A\nB\n");
}

TEST(KAIAssistantPropertiesCopyAssigned, LeavesTheTemperatureWhichTheTargetRefusesAsADouble) {
    AssertionRecorder recorder;
    KAIAssistantProperties source;
    source.setProperty("temperature", "0.5");
    recorder.takeTexts();
    KAIAssistantProperties target;
    source.copyAssignedProperties(target);
    EXPECT_EQ(target.obtainProperty("temperature").doubleValue(), 1.0);
    EXPECT_TRUE(target.isAssigned("temperature"));
    EXPECT_EQ(recorder.takeCount(), 0U);
}

TEST(KAIAssistantPropertiesCopyAssigned, ReplacesTheDatabaseStructureAlsoByAnEmptyOne) {
    KAIAssistantProperties source;
    EXPECT_FALSE(source.setProperty("db_structure", ""));
    KAIAssistantProperties target;
    target.setProperty("db_structure", kOneTable);
    source.copyAssignedProperties(target);
    EXPECT_EQ(*target.obtainSettings().databaseStructure, "");
}

TEST(KAIAssistantPropertiesCopyAssigned, CarriesTheDatabaseStructureWithoutReadingIt) {
    AssertionRecorder recorder;
    KAIAssistantProperties source;
    source.setProperty("db_structure", "[]");
    source.changeSettings(
        [](kai::AssistantSettings& settings) { settings.databaseStructure = std::string("not JSON"); });
    KAIAssistantProperties target;
    source.copyAssignedProperties(target);
    EXPECT_EQ(*target.obtainSettings().databaseStructure, "not JSON");
    EXPECT_EQ(recorder.takeCount(), 0U);
}

TEST(KAIAssistantPropertiesCopy, SharesLargeTextsWithItsSource) {
    KAIAssistantProperties source;
    source.setProperty("db_structure", kOneTable);
    source.setProperty("user_instructions", "U");
    source.setProperty("system_instructions", CMVariantMap{{"a", "A"}});
    const kai::InstructionSources sources = source.obtainSettings();
    EXPECT_EQ(KAIAssistantProperties(source).obtainSettings(), sources) << "equal means the same texts in memory";
    source.setProperty("model", "m");
    EXPECT_EQ(source.obtainSettings(), sources);
    KAIAssistantProperties target;
    target.changeSettings([&](kai::AssistantSettings& settings) { source.takeOverAssigned(settings); });
    EXPECT_EQ(target.obtainSettings(), sources);
    KAIAssistantProperties other;
    source.copyAssignedProperties(other);
    EXPECT_EQ(other.obtainSettings().databaseStructure, sources.databaseStructure);
}
