#include "kai_assistant_properties.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "assertion_recorder.h"

using Texts = std::vector<std::string>;
using ValueType = CMVariant::ValueType;

namespace {

constexpr const char* kNotAString =
    "value.getValueType() == CMVariant::ValueType::String @ src/kai_assistant_properties.cpp";
constexpr const char* kNotADouble =
    "value.getValueType() == CMVariant::ValueType::Double @ src/kai_assistant_properties.cpp";
constexpr const char* kNotAMap = "value.getValueType() == CMVariant::ValueType::Map @ src/kai_assistant_properties.cpp";
constexpr const char* kEntryNotAString =
    "kv.second.getValueType() == CMVariant::ValueType::String @ src/kai_assistant_properties.cpp";
constexpr const char* kNotJson = "json.getIsValidJson() @ src/kai_assistant_properties.cpp";
constexpr const char* kReadOnly = "false @ src/kai_assistant_properties.cpp";

constexpr const char* kOneTable = R"([{"schemas":[{"tables":[{"name":"t","fields":[{"name":"a","type":"int"}]}]}]}])";

/// A value of every type but the string.
const std::vector<CMVariant>& obtainOtherThanStrings() {
    static const std::vector<CMVariant> values{{}, 0.5, CMVariantList{"a"}, CMVariantMap{{"a", "b"}}};
    return values;
}

CMVariantMap readSystemInstructions(KAIAssistantProperties& properties) {
    return properties.obtainProperty("system_instructions").mapValue();
}

}  // namespace

TEST(KAIAssistantProperties, StartsWithTheDefaults) {
    KAIAssistantProperties properties;
    for (const char* key : {"api_host", "model", "user_instructions", "combined_instructions"}) {
        EXPECT_EQ(properties.obtainProperty(key).getValueType(), ValueType::String) << key;
        EXPECT_EQ(properties.obtainProperty(key).stringValue(), "") << key;
    }
    EXPECT_EQ(properties.obtainProperty("temperature").getValueType(), ValueType::Double);
    EXPECT_EQ(properties.obtainProperty("temperature").doubleValue(), 1.0);
    EXPECT_EQ(properties.obtainProperty("system_instructions").getValueType(), ValueType::Map);
    EXPECT_TRUE(readSystemInstructions(properties).empty());
    EXPECT_EQ(properties.obtainProperty("db_structure").getValueType(), ValueType::List);
    EXPECT_TRUE(properties.obtainProperty("db_structure").listValue().empty());
    EXPECT_TRUE(properties.obtainSettings().assignedKeys.empty());
}

TEST(KAIAssistantProperties, ReadsAnUnknownKeyAsNull) {
    KAIAssistantProperties properties;
    for (const char* key : {"", "name", "description", "Model", "model ", "MODEL", "temperatur"}) {
        EXPECT_EQ(properties.obtainProperty(key).getValueType(), ValueType::Null) << key;
    }
    EXPECT_EQ(properties.obtainProperty(std::string("model\0", 6)).getValueType(), ValueType::Null);
}

TEST(KAIAssistantProperties, DescribesItsSevenKeysInOrder) {
    const std::string structure =
        R"([{"catalog_id":"optional","catalog_name":"optional","schemas":[)"
        R"({"schema_id":"optional","schema_name":"optional",)"
        R"("tables":[{"name":"","fields":[{"name":"","type":""}],"pkeys":["optional"],)"
        R"("fkeys":[{"fields":[""],"ref_schema":"optional","ref_table":"","ref_fields":[""]}]}],)"
        R"("views":[null],"mviews":[null]}]}])";
    const std::vector<std::pair<std::string, std::string>> expected{
        {"api_host", "string"},
        {"model", "string"},
        {"temperature", "double"},
        {"user_instructions", "string"},
        {"system_instructions", "CMVariantMap(string, string)"},
        {"db_structure", "CMVariant - " + structure},
        {"combined_instructions", "string - read only"},
    };
    EXPECT_EQ(KAIAssistantProperties().obtainPropertyDescriptions(), expected);
}

TEST(KAIAssistantProperties, StoresTheHostTrimmed) {
    KAIAssistantProperties properties;
    EXPECT_TRUE(properties.setProperty("api_host", " \t\r\n\v\fexample.com:8443\f\v\n\r\t "));
    EXPECT_EQ(properties.obtainProperty("api_host").stringValue(), "example.com:8443");
    EXPECT_TRUE(properties.setProperty("api_host", " \t"));
    EXPECT_EQ(properties.obtainProperty("api_host").stringValue(), "");
}

TEST(KAIAssistantProperties, StoresModelAndUserInstructionsUntrimmed) {
    KAIAssistantProperties properties;
    EXPECT_TRUE(properties.setProperty("model", " m\n"));
    EXPECT_TRUE(properties.setProperty("user_instructions", "\t u "));
    EXPECT_EQ(properties.obtainProperty("model").stringValue(), " m\n");
    EXPECT_EQ(properties.obtainProperty("user_instructions").stringValue(), "\t u ");
}

TEST(KAIAssistantProperties, StoresTextsWithTheirBytesWhateverTheyAre) {
    const std::string bytes("\0\xff\xc3\x28 z", 6);
    KAIAssistantProperties properties;
    for (const char* key : {"model", "user_instructions"}) {
        EXPECT_TRUE(properties.setProperty(key, bytes));
        EXPECT_EQ(properties.obtainProperty(key).stringValue(), bytes) << key;
    }
}

TEST(KAIAssistantProperties, RefusesOtherTypesForTheStringKeysAndReportsTheCheck) {
    for (const char* key : {"api_host", "model", "user_instructions"}) {
        KAIAssistantProperties properties;
        ASSERT_TRUE(properties.setProperty(key, "former"));
        AssertionRecorder recorder;
        for (const CMVariant& value : obtainOtherThanStrings()) {
            EXPECT_FALSE(properties.setProperty(key, value)) << key;
            EXPECT_EQ(recorder.takeTexts(), Texts{kNotAString}) << key;
        }
        EXPECT_EQ(properties.obtainProperty(key).stringValue(), "former") << key;
    }
}

TEST(KAIAssistantProperties, MarksAKeyAsAssignedAlsoWhenItsValueIsRefused) {
    const AssertionRecorder recorder;
    for (const char* key : {"api_host", "model", "temperature", "user_instructions", "system_instructions"}) {
        KAIAssistantProperties properties;
        EXPECT_FALSE(properties.setProperty(key, {})) << key;
        EXPECT_TRUE(properties.isAssigned(key)) << key;
    }
}

TEST(KAIAssistantProperties, ReportsNothingForValuesOfTheRightType) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("api_host", "h");
    properties.setProperty("model", "m");
    properties.setProperty("user_instructions", "u");
    properties.setProperty("system_instructions", CMVariantMap{{"a", "b"}});
    properties.setProperty("db_structure", kOneTable);
    properties.setProperty("unknown", 0.5);
    EXPECT_EQ(recorder.takeTexts(), Texts());
}

TEST(KAIAssistantProperties, RefusesTheTemperatureAsADoubleYetMarksItAsAssigned) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    EXPECT_FALSE(properties.setProperty("temperature", 0.5));
    EXPECT_EQ(properties.obtainProperty("temperature").doubleValue(), 1.0);
    EXPECT_TRUE(properties.isAssigned("temperature"));
    EXPECT_EQ(recorder.takeTexts(), Texts()) << "the check names the very type that the guard refuses";
}

TEST(KAIAssistantProperties, TakesTheTemperatureAsAStringThoughItReportsTheCheck) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    EXPECT_TRUE(properties.setProperty("temperature", " 0.25 "));
    EXPECT_EQ(properties.obtainProperty("temperature").doubleValue(), 0.25);
    EXPECT_EQ(recorder.takeTexts(), Texts{kNotADouble});
}

TEST(KAIAssistantProperties, StoresZeroForATemperatureThatSpellsNoFiniteNumber) {
    const AssertionRecorder recorder;
    for (const char* text : {"", "warm", "1,5", "0.5 degrees", "nan", "inf", "-inf", "1e999", "0x10"}) {
        KAIAssistantProperties properties;
        EXPECT_TRUE(properties.setProperty("temperature", text)) << text;
        EXPECT_EQ(properties.obtainProperty("temperature").doubleValue(), 0.0) << text;
    }
}

TEST(KAIAssistantProperties, RefusesTheTemperatureAsNullListOrMap) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("temperature", "0.25");
    recorder.takeTexts();
    for (const CMVariant& value : {CMVariant(), CMVariant(CMVariantList()), CMVariant(CMVariantMap())}) {
        EXPECT_FALSE(properties.setProperty("temperature", value));
        EXPECT_EQ(recorder.takeTexts(), Texts{kNotADouble});
    }
    EXPECT_EQ(properties.obtainProperty("temperature").doubleValue(), 0.25);
}

TEST(KAIAssistantProperties, MergesSystemInstructionsByNameAndRemovesEmptyOnes) {
    KAIAssistantProperties properties;
    EXPECT_TRUE(properties.setProperty("system_instructions", CMVariantMap{{"a", "X"}, {"b", "Y"}}));
    EXPECT_TRUE(properties.setProperty("system_instructions", CMVariantMap{{"a", ""}, {"c", "Z"}}));
    const CMVariantMap merged = readSystemInstructions(properties);
    ASSERT_EQ(merged.size(), 2U);
    EXPECT_EQ(merged.at("b").stringValue(), "Y");
    EXPECT_EQ(merged.at("c").stringValue(), "Z");
    EXPECT_EQ(properties.obtainCombinedInstructions(), "Y\nZ\n");
}

TEST(KAIAssistantProperties, ReplacesASystemInstructionOfTheSameName) {
    KAIAssistantProperties properties;
    properties.setProperty("system_instructions", CMVariantMap{{"a", "X"}});
    properties.setProperty("system_instructions", CMVariantMap{{"a", "other"}, {"A", "upper"}});
    EXPECT_EQ(properties.obtainCombinedInstructions(), "upper\nother\n");
}

TEST(KAIAssistantProperties, SkipsSystemInstructionsThatAreNotStringsAndTakesTheOthers) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("system_instructions", CMVariantMap{{"b", "kept"}});
    const CMVariantMap map{{"a", 1.0}, {"b", CMVariant()}, {"c", "Z"}, {"d", CMVariantMap()}, {"e", CMVariantList()}};
    EXPECT_TRUE(properties.setProperty("system_instructions", map));
    EXPECT_EQ(recorder.takeTexts(), Texts(4, kEntryNotAString));
    EXPECT_EQ(properties.obtainCombinedInstructions(), "kept\nZ\n");
}

TEST(KAIAssistantProperties, RefusesOtherTypesThanAMapForTheSystemInstructions) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("system_instructions", CMVariantMap{{"a", "X"}});
    for (const CMVariant& value : {CMVariant(), CMVariant("X"), CMVariant(1.0), CMVariant(CMVariantList())}) {
        EXPECT_FALSE(properties.setProperty("system_instructions", value));
        EXPECT_EQ(recorder.takeTexts(), Texts{kNotAMap});
    }
    EXPECT_EQ(properties.obtainCombinedInstructions(), "X\n");
}

TEST(KAIAssistantProperties, TakesAnEmptyMapOfSystemInstructionsAndKeepsAll) {
    KAIAssistantProperties properties;
    properties.setProperty("system_instructions", CMVariantMap{{"a", "X"}});
    EXPECT_TRUE(properties.setProperty("system_instructions", CMVariantMap()));
    EXPECT_EQ(properties.obtainCombinedInstructions(), "X\n");
}

TEST(KAIAssistantProperties, StoresValidDatabaseStructureTextExactlyAsGiven) {
    KAIAssistantProperties properties;
    const std::string text = std::string(" \n") + kOneTable + "\t ";
    EXPECT_TRUE(properties.setProperty("db_structure", text));
    EXPECT_EQ(*properties.obtainSettings().databaseStructure, text);
    EXPECT_EQ(properties.obtainProperty("db_structure").listValue().size(), 1U);
}

TEST(KAIAssistantProperties, TakesAnyValidJSONAsDatabaseStructure) {
    AssertionRecorder recorder;
    for (const char* text : {"{}", "null", "1", "\"text\"", "true", "[]"}) {
        KAIAssistantProperties properties;
        EXPECT_TRUE(properties.setProperty("db_structure", text)) << text;
        EXPECT_EQ(*properties.obtainSettings().databaseStructure, text);
        EXPECT_TRUE(properties.obtainProperty("db_structure").listValue().empty()) << text;
        EXPECT_EQ(properties.obtainCombinedInstructions(), "") << text;
    }
    EXPECT_EQ(recorder.takeTexts(), Texts());
}

TEST(KAIAssistantProperties, RefusesAnEmptyDatabaseStructureWithoutAReport) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", kOneTable);
    EXPECT_FALSE(properties.setProperty("db_structure", ""));
    EXPECT_EQ(*properties.obtainSettings().databaseStructure, kOneTable);
    EXPECT_EQ(recorder.takeTexts(), Texts());
}

TEST(KAIAssistantProperties, RefusesADatabaseStructureThatIsNotJSON) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", kOneTable);
    for (const std::string& text : {std::string("not JSON"), std::string("[1,]"), std::string("[] []"),
                                    std::string(" "), std::string("[\xff]"), std::string("[]\0", 3)}) {
        EXPECT_FALSE(properties.setProperty("db_structure", text)) << text;
        EXPECT_EQ(recorder.takeTexts(), Texts{kNotJson}) << text;
    }
    EXPECT_EQ(*properties.obtainSettings().databaseStructure, kOneTable);
}

TEST(KAIAssistantProperties, StoresADatabaseStructureGivenAsAListAsJSON) {
    KAIAssistantProperties properties;
    const CMVariantMap field{{"name", "a"}, {"type", "int"}};
    const CMVariantMap table{{"name", "t"}, {"fields", CMVariantList{field}}};
    const CMVariantMap schema{{"tables", CMVariantList{table}}};
    const CMVariantMap catalog{{"schemas", CMVariantList{schema}}};
    EXPECT_TRUE(properties.setProperty("db_structure", CMVariantList{catalog}));
    EXPECT_EQ(*properties.obtainSettings().databaseStructure,
              R"([{"schemas":[{"tables":[{"fields":[{"name":"a","type":"int"}],"name":"t"}]}]}])");
    EXPECT_EQ(properties.obtainDatabaseStructureText(), "CREATE TABLE `t` (`a` int)\n");
}

TEST(KAIAssistantProperties, DoesNotCheckTheContentOfADatabaseStructureGivenAsAList) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    const CMVariantList list{1.5, CMVariant(), "x", std::numeric_limits<double>::infinity()};
    EXPECT_TRUE(properties.setProperty("db_structure", list));
    EXPECT_EQ(*properties.obtainSettings().databaseStructure, R"([1.5,null,"x",null])");
    EXPECT_EQ(recorder.takeTexts(), Texts());
    EXPECT_TRUE(properties.setProperty("db_structure", CMVariantList()));
    EXPECT_EQ(*properties.obtainSettings().databaseStructure, "[]");
}

TEST(KAIAssistantProperties, AnswersTrueForADatabaseStructureOfAnotherTypeAndChangesNothing) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", kOneTable);
    for (const CMVariant& value : {CMVariant(0.5), CMVariant(), CMVariant(CMVariantMap{{"a", "b"}})}) {
        EXPECT_TRUE(properties.setProperty("db_structure", value));
    }
    EXPECT_EQ(*properties.obtainSettings().databaseStructure, kOneTable);
    EXPECT_EQ(recorder.takeTexts(), Texts());
}

TEST(KAIAssistantProperties, RefusesToSetTheCombinedInstructions) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    EXPECT_FALSE(properties.setProperty("combined_instructions", "text"));
    EXPECT_EQ(recorder.takeTexts(), Texts{kReadOnly});
    EXPECT_EQ(properties.obtainProperty("combined_instructions").stringValue(), "");
    EXPECT_TRUE(properties.isAssigned("combined_instructions"));
}

TEST(KAIAssistantProperties, RefusesAnUnknownKeyYetMarksItAsAssigned) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    for (const char* key : {"", "name", "Model", "api_host "}) {
        EXPECT_FALSE(properties.setProperty(key, "value")) << key;
        EXPECT_TRUE(properties.isAssigned(key)) << key;
    }
    EXPECT_FALSE(properties.isAssigned("model"));
    EXPECT_EQ(recorder.takeTexts(), Texts());
}

TEST(KAIAssistantProperties, NamesALineOfItsSourceInEachReport) {
    AssertionRecorder recorder;
    KAIAssistantProperties properties;
    properties.setProperty("model", {});
    properties.setProperty("combined_instructions", {});
    const std::vector<AssertionReport> reports = recorder.takeReports();
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_GT(reports[0].line, 0);
    EXPECT_GT(reports[1].line, 0);
    EXPECT_NE(reports[0].line, reports[1].line);
}
