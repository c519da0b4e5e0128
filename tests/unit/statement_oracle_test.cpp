#include "statement_oracle.h"

#include <gtest/gtest.h>

#include "assertion_recorder.h"
#include "kai_assistant_properties.h"
#include "structure_generator.h"

namespace {

nlohmann::json toJson(const CMVariant& value) {
    switch (value.getValueType()) {
        case CMVariant::ValueType::String:
            return value.stringValue();
        case CMVariant::ValueType::List: {
            nlohmann::json list = nlohmann::json::array();
            for (const CMVariant& item : value.listValue()) {
                list.push_back(toJson(item));
            }
            return list;
        }
        case CMVariant::ValueType::Map: {
            nlohmann::json map = nlohmann::json::object();
            for (const auto& [key, item] : value.mapValue()) {
                map[key] = toJson(item);
            }
            return map;
        }
        default:
            return nullptr;
    }
}

/// Compares the library with the oracle over many descriptions of which about so many values in a hundred are wrong.
/// @return the number of descriptions in which nothing at all was malformed
int compare(std::uint32_t wrongPercent, int count) {
    AssertionRecorder recorder;
    int flawless = 0;
    for (int seed = 0; seed < count; ++seed) {
        StructureGenerator generator(static_cast<std::uint64_t>(seed) * 1000 + wrongPercent, wrongPercent);
        const nlohmann::ordered_json structure = generator.makeStructure();
        const StatementOracle oracle(structure);
        const std::string json = structure.dump(seed % 2 == 0 ? -1 : 2);
        KAIAssistantProperties properties;
        EXPECT_TRUE(properties.setProperty("db_structure", json));
        const std::string text = properties.obtainDatabaseStructureText();
        const std::size_t textReports = recorder.takeCount();
        const nlohmann::json list = toJson(properties.obtainProperty("db_structure"));
        const std::size_t listReports = recorder.takeCount();
        if (text != oracle.text || list != oracle.list || textReports != oracle.reportCount ||
            listReports != oracle.reportCount) {
            ADD_FAILURE() << json << "\nexpected:\n" << oracle.text << "got:\n" << text << list.dump();
            break;
        }
        flawless += oracle.reportCount == 0 && !oracle.text.empty() ? 1 : 0;
    }
    return flawless;
}

}  // namespace

TEST(KAIStatementOracle, AgreesOnWellFormedDescriptions) {
    EXPECT_GT(compare(0, 2000), 1000);
}

TEST(KAIStatementOracle, AgreesOnDescriptionsWithAFewWrongValues) {
    EXPECT_GT(compare(2, 2000), 200);
}

TEST(KAIStatementOracle, AgreesOnDescriptionsWithManyWrongValues) {
    compare(25, 2000);
}
