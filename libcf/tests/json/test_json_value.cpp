#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "cf/json.h"

namespace {

using namespace std::string_literals;
using Type = COJsonValue::Type;

/// The same document read from a text and built, so that each read is tried on both.
class COJsonValueOfBothKinds : public testing::TestWithParam<bool> {
protected:
    static constexpr std::string_view kText =
        R"({"string":"text","empty":"","number":2.5,"true":true,"false":false,"null":null,)"
        R"("array":["a",1,[]],"object":{"inner":{"deep":"yes"}}})";

    COJsonValueOfBothKinds() : m_json(GetParam() ? COJson(kText) : build()) {}

    [[nodiscard]] COJsonValue obtain(std::string_view key) const { return m_json.obtainMember(key); }

    static COJson build() {
        COJson json;
        json.addKeyValue("string").setString("text");
        json.addKeyValue("empty").setString("");
        json.addKeyValue("number").setDouble(2.5);
        json.addKeyValue("true").setBoolean(true);
        json.addKeyValue("false").setBoolean(false);
        json.addKeyValue("null");
        COJsonValue array = json.addKeyValue("array");
        array.setArray();
        array.addItem().setString("a");
        array.addItem().setDouble(1);
        array.addItem().setArray();
        COJsonValue object = json.addKeyValue("object");
        object.setObject();
        COJsonValue inner = object.addKeyValue("inner");
        inner.setObject();
        inner.addKeyValue("deep").setString("yes");
        return json;
    }

    COJson m_json;
};

INSTANTIATE_TEST_SUITE_P(ReadOrBuilt, COJsonValueOfBothKinds, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Read" : "Built"; });

TEST_P(COJsonValueOfBothKinds, TellTheirTypes) {
    EXPECT_EQ(m_json.obtainType(), Type::Object);
    EXPECT_EQ(obtain("string").obtainType(), Type::String);
    EXPECT_EQ(obtain("number").obtainType(), Type::Number);
    EXPECT_EQ(obtain("true").obtainType(), Type::Boolean);
    EXPECT_EQ(obtain("false").obtainType(), Type::Boolean);
    EXPECT_EQ(obtain("null").obtainType(), Type::Null);
    EXPECT_EQ(obtain("array").obtainType(), Type::Array);
    EXPECT_EQ(obtain("object").obtainType(), Type::Object);
    EXPECT_EQ(obtain("missing").obtainType(), Type::Undefined);
    EXPECT_TRUE(obtain("string").isString());
    EXPECT_TRUE(obtain("number").isNumber());
    EXPECT_TRUE(obtain("array").isArray());
    EXPECT_TRUE(obtain("object").isObject());
    EXPECT_TRUE(obtain("null").isNull());
    EXPECT_FALSE(obtain("missing").isNull());
}

TEST_P(COJsonValueOfBothKinds, CountANullAsAValueThatIsThere) {
    EXPECT_TRUE(obtain("null").getIsValidJson());
    EXPECT_FALSE(obtain("missing").getIsValidJson());
}

TEST_P(COJsonValueOfBothKinds, GiveTheTextOfStringsOnly) {
    EXPECT_EQ(obtain("string").obtainString(), "text");
    EXPECT_EQ(obtain("empty").obtainString(), "");
    EXPECT_NE(obtain("empty").obtainString().data(), nullptr);
    for (const char* key : {"number", "true", "null", "array", "object", "missing"}) {
        EXPECT_EQ(obtain(key).obtainString().data(), nullptr) << key;
        EXPECT_TRUE(obtain(key).obtainString().empty()) << key;
    }
}

TEST_P(COJsonValueOfBothKinds, GiveNumbersAndTruthValuesOfTheirTypeOnly) {
    EXPECT_EQ(obtain("number").obtainDouble(), 2.5);
    EXPECT_EQ(obtain("number").obtainInteger(), 2);
    EXPECT_TRUE(obtain("true").obtainBoolean());
    for (const char* key : {"false", "string", "number", "null", "array", "object", "missing"}) {
        EXPECT_FALSE(obtain(key).obtainBoolean()) << key;
    }
    for (const char* key : {"true", "string", "null", "array", "object", "missing"}) {
        EXPECT_EQ(obtain(key).obtainDouble(), 0.0) << key;
        EXPECT_EQ(obtain(key).obtainInteger(), 0) << key;
    }
}

TEST_P(COJsonValueOfBothKinds, FindMembersOfObjectsOnly) {
    EXPECT_EQ(obtain("object").obtainMember("inner").obtainMember("deep").obtainString(), "yes");
    EXPECT_FALSE(obtain("object").obtainMember("deep").getIsValidJson());
    for (const char* key : {"string", "number", "true", "null", "array", "missing"}) {
        EXPECT_FALSE(obtain(key).obtainMember("a").getIsValidJson()) << key;
    }
}

TEST_P(COJsonValueOfBothKinds, CompareKeysByteByByte) {
    EXPECT_FALSE(obtain("String").getIsValidJson());
    EXPECT_FALSE(obtain("strin").getIsValidJson());
    EXPECT_FALSE(obtain("string ").getIsValidJson());
    EXPECT_FALSE(obtain("string\0"s).getIsValidJson());
    EXPECT_FALSE(obtain("").getIsValidJson());
}

TEST_P(COJsonValueOfBothKinds, GiveTheirSize) {
    EXPECT_EQ(m_json.obtainRoot().obtainSize(), 8U);
    EXPECT_EQ(obtain("array").obtainSize(), 3U);
    EXPECT_EQ(obtain("object").obtainSize(), 1U);
    for (const char* key : {"string", "number", "true", "null", "missing"}) {
        EXPECT_EQ(obtain(key).obtainSize(), 0U) << key;
    }
}

TEST_P(COJsonValueOfBothKinds, GiveTheItemsOfArraysInOrder) {
    std::vector<std::string> items;
    for (const COJsonValue item : obtain("array").obtainItems()) {
        items.push_back(item.obtainJsonString());
    }
    EXPECT_EQ(items, (std::vector<std::string>{"\"a\"", "1", "[]"}));
    for (const char* key : {"object", "string", "number", "null", "missing"}) {
        for ([[maybe_unused]] const COJsonValue item : obtain(key).obtainItems()) {
            ADD_FAILURE() << key;
        }
    }
}

TEST_P(COJsonValueOfBothKinds, GiveTheMembersOfObjectsInOrder) {
    std::string members;
    for (const COJsonMember member : m_json.obtainRoot().obtainMembers()) {
        members.append(member.key).append("=").append(member.value.obtainJsonString()).append(";");
    }
    EXPECT_EQ(members, R"(string="text";empty="";number=2.5;true=true;false=false;null=null;)"
                       R"(array=["a",1,[]];object={"inner":{"deep":"yes"}};)");
    for (const char* key : {"array", "string", "number", "null", "missing"}) {
        for ([[maybe_unused]] const COJsonMember member : obtain(key).obtainMembers()) {
            ADD_FAILURE() << key;
        }
    }
}

TEST_P(COJsonValueOfBothKinds, GiveTheKeysOfObjectsInOrder) {
    EXPECT_EQ(m_json.obtainJsonKeys(),
              (std::vector<std::string>{"string", "empty", "number", "true", "false", "null", "array", "object"}));
    EXPECT_EQ(obtain("object").obtainJsonKeys(), std::vector<std::string>{"inner"});
    for (const char* key : {"array", "string", "number", "null", "missing"}) {
        EXPECT_TRUE(obtain(key).obtainJsonKeys().empty()) << key;
    }
}

TEST_P(COJsonValueOfBothKinds, FindSeveralMembersAtOnce) {
    const auto [string, number, null] = m_json.obtainRoot().obtainMemberValues({"string", "number", "null"});
    EXPECT_EQ(string.obtainString(), "text");
    EXPECT_EQ(number.obtainDouble(), 2.5);
    EXPECT_TRUE(null.isNull());
    const auto [object, missing, array] = m_json.obtainRoot().obtainMemberValues({"object", "missing", "array"});
    EXPECT_TRUE(object.isObject());
    EXPECT_FALSE(missing.getIsValidJson());
    EXPECT_TRUE(array.isArray());
    for (const char* key : {"array", "string", "null", "missing"}) {
        const auto [first, second] = obtain(key).obtainMemberValues({"string", "number"});
        EXPECT_FALSE(first.getIsValidJson() || second.getIsValidJson()) << key;
    }
}

TEST_P(COJsonValueOfBothKinds, AreWrittenAsText) {
    EXPECT_EQ(m_json.obtainJsonString(), kText);
    EXPECT_EQ(m_json.obtainRoot().obtainJsonString(), kText);
    EXPECT_EQ(obtain("object").obtainJsonString(), R"({"inner":{"deep":"yes"}})");
    EXPECT_EQ(obtain("null").obtainJsonString(), "null");
    EXPECT_EQ(obtain("missing").obtainJsonString(), "");
}

TEST(COJsonValue, IsTwoWordsThatAreCopiedFreely) {
    static_assert(sizeof(COJsonValue) == 2 * sizeof(void*) && std::is_trivially_copyable_v<COJsonValue>);
    static_assert(std::is_trivially_destructible_v<COJsonValue>);
}

TEST(COJsonValue, IsUndefinedAtFirst) {
    const COJsonValue value;
    EXPECT_EQ(value.obtainType(), Type::Undefined);
    EXPECT_FALSE(value.obtainMember("a").obtainMember("b").getIsValidJson());
    EXPECT_EQ(value.obtainJsonString(), "");
}

TEST(COJsonValue, IsWrittenAsNullWhereItIsUndefined) {
    std::string text;
    COJsonWriter writer(text);
    COJsonValue().writeJson(writer);
    writer.finish();
    EXPECT_EQ(text, "null");
}

TEST(COJsonValue, FindsKeysOfEveryLength) {
    std::string text = "{";
    std::vector<std::string> keys;
    for (std::size_t size = 0; size <= 40; ++size) {
        for (const char last : {'x', 'y'}) {
            keys.push_back(size == 0 ? "" : std::string(size - 1, 'k') + last);
            text += "\"" + keys.back() + "\":" + std::to_string(keys.size()) + ",";
        }
    }
    text.back() = '}';
    const COJson json{std::string_view(text)};
    ASSERT_TRUE(json.getIsValidJson());
    for (std::size_t index = 0; index < keys.size(); ++index) {
        const std::int64_t expected = keys[index].empty() ? 1 : static_cast<std::int64_t>(index + 1);
        EXPECT_EQ(json.obtainMember(keys[index]).obtainInteger(), expected) << keys[index];
        if (!keys[index].empty()) {
            std::string other = keys[index];
            other[other.size() / 2] = '#';
            EXPECT_FALSE(json.obtainMember(other).getIsValidJson()) << other;
        }
    }
}

TEST(COJsonValue, FindsKeysThatWereEscaped) {
    const COJson json(R"({"a\"b":1,"\u00e4":2,"":3,"nul\u0000":4})");
    EXPECT_EQ(json.obtainMember("a\"b").obtainInteger(), 1);
    EXPECT_EQ(json.obtainMember("\xC3\xA4").obtainInteger(), 2);
    EXPECT_EQ(json.obtainMember("").obtainInteger(), 3);
    EXPECT_EQ(json.obtainMember("nul\0"s).obtainInteger(), 4);
}

TEST(COJsonValue, FindsSeveralMembersInAnyOrderAmongOthers) {
    for (const std::string_view text :
         {R"({"a":1,"b":2,"c":3})", R"({"c":3,"b":2,"a":1})", R"({"b":2,"x":9,"c":3,"a":1,"y":[]})",
          R"({"x":{"a":7},"a":1,"y":["b"],"b":2,"z":"c","c":3})", R"({"a":1,"a":8,"c":3,"c":8,"b":2,"b":8})",
          R"({"a":1,"x":8,"a":8,"b":2,"c":3})"}) {
        const COJson json(text);
        const auto [a, b, c, missing] = json.obtainRoot().obtainMemberValues({"a", "b", "c", "missing"});
        EXPECT_EQ(a.obtainInteger(), 1) << text;
        EXPECT_EQ(b.obtainInteger(), 2) << text;
        EXPECT_EQ(c.obtainInteger(), 3) << text;
        EXPECT_FALSE(missing.getIsValidJson()) << text;
    }
}

TEST(COJsonValue, FindsSeveralMembersOfAnEmptyObject) {
    const COJson json("{}");
    const auto [a, b] = json.obtainRoot().obtainMemberValues({"a", "b"});
    EXPECT_FALSE(a.getIsValidJson() || b.getIsValidJson());
}

TEST(COJsonValue, CountsMoreValuesThanTheEnginesCounterHolds) {
    constexpr std::size_t kCount = (std::size_t{1} << 24) + 5;
    std::string text = "[";
    text.reserve(2 * kCount + 1);
    for (std::size_t i = 0; i < kCount; ++i) {
        text += "1,";
    }
    text.back() = ']';
    const COJson json{std::string_view(text)};
    EXPECT_EQ(json.obtainRoot().obtainSize(), kCount);
}

TEST(COJsonValue, ReadsAcrossNestedContainersWhenItIterates) {
    const COJson json(R"([[1,[2]],{"a":[3],"b":{}},"x",4,5.5,18446744073709551615,true,null,[]])");
    std::vector<std::string> items;
    for (const COJsonValue item : json.obtainRoot().obtainItems()) {
        items.push_back(item.obtainJsonString());
    }
    EXPECT_EQ(items, (std::vector<std::string>{"[1,[2]]", R"({"a":[3],"b":{}})", "\"x\"", "4", "5.5",
                                               "18446744073709551615", "true", "null", "[]"}));
}

}  // namespace
