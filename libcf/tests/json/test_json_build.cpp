#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "cf/json.h"

namespace {

TEST(COJsonBuild, BeginsAsAnEmptyObject) {
    const COJson json;
    EXPECT_TRUE(json.getIsValidJson());
    EXPECT_TRUE(json.obtainRoot().isObject());
    EXPECT_TRUE(json.obtainJsonKeys().empty());
    EXPECT_EQ(json.obtainJsonString(), "{}");
}

TEST(COJsonBuild, AddsMembersInOrder) {
    COJson json;
    json.addKeyValue("model").setString("deepseek-v4-flash");
    json.addKeyValue("temperature").setDouble(0.2);
    json.addKeyValue("stream").setBoolean(false);
    json.addKeyValue("none").setNull();
    json.addKeyValue("list").setArray();
    json.addKeyValue("map").setObject();
    EXPECT_EQ(json.obtainJsonString(),
              R"({"model":"deepseek-v4-flash","temperature":0.2,"stream":false,"none":null,"list":[],"map":{}})");
}

TEST(COJsonBuild, AddsMembersAndItemsAsNull) {
    COJson json;
    EXPECT_TRUE(json.addKeyValue("a").isNull());
    COJsonValue list = json.addKeyValue("views");
    list.setArray();
    EXPECT_TRUE(list.addItem().isNull());
    EXPECT_EQ(json.obtainJsonString(), R"({"a":null,"views":[null]})");
}

TEST(COJsonBuild, AppendsAMemberWhoseKeyIsThere) {
    COJson json;
    json.addKeyValue("a").setDouble(1);
    json.addKeyValue("a").setDouble(2);
    EXPECT_EQ(json.obtainJsonString(), R"({"a":1,"a":2})");
    EXPECT_EQ(json.obtainMember("a").obtainDouble(), 1.0);
}

TEST(COJsonBuild, EscapesKeysAndTexts) {
    COJson json;
    json.addKeyValue("k\"\n").setString("\\\x01\xFF");
    EXPECT_EQ(json.obtainJsonString(), R"({"k\"\n":"\\\u0001)"
                                       "\xEF\xBF\xBD\"}");
}

TEST(COJsonBuild, ReplacesWhatAValueHeld) {
    COJson json;
    COJsonValue value = json.addKeyValue("a");
    value.setObject();
    value.addKeyValue("inner").setString("text");
    value.setString("now a text");
    EXPECT_EQ(json.obtainJsonString(), R"({"a":"now a text"})");
    EXPECT_EQ(value.obtainSize(), 0U);
    value.setDouble(2);
    EXPECT_EQ(value.obtainString().data(), nullptr);
    value.setBoolean(true);
    EXPECT_EQ(value.obtainDouble(), 0.0);
    value.setNull();
    EXPECT_FALSE(value.obtainBoolean());
    value.setArray();
    EXPECT_EQ(json.obtainJsonString(), R"({"a":[]})");
    value.addItem();
    value.setArray();
    EXPECT_EQ(json.obtainJsonString(), R"({"a":[]})");
}

TEST(COJsonBuild, TurnsTheRootIntoAnyType) {
    COJson json;
    json.obtainRoot().setArray();
    json.obtainRoot().addItem().setString("a");
    EXPECT_EQ(json.obtainJsonString(), R"(["a"])");
    json.obtainRoot().setString("b");
    EXPECT_EQ(json.obtainJsonString(), R"("b")");
    EXPECT_FALSE(json.addKeyValue("c").getIsValidJson());
}

TEST(COJsonBuild, SetsATextToAPartOfItself) {
    COJson json;
    COJsonValue value = json.addKeyValue("a");
    value.setString("a text that is longer than what a string holds in itself");
    value.setString(value.obtainString().substr(2, 4));
    EXPECT_EQ(value.obtainString(), "text");
}

TEST(COJsonBuild, WritesANumberThatIsNotFiniteAsNull) {
    COJson json;
    json.addKeyValue("inf").setDouble(std::numeric_limits<double>::infinity());
    json.addKeyValue("nan").setDouble(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(json.obtainJsonString(), R"({"inf":null,"nan":null})");
    EXPECT_TRUE(json.obtainMember("inf").isNull());
}

TEST(COJsonBuild, KeepsHandlesValidWhileMoreIsAdded) {
    COJson json;
    COJsonValue first = json.addKeyValue("first");
    first.setArray();
    std::vector<COJsonValue> handles;
    for (int i = 0; i < 10'000; ++i) {
        handles.push_back(first.addItem());
    }
    json.addKeyValue("last");
    for (std::size_t i = 0; i < handles.size(); ++i) {
        handles[i].setDouble(static_cast<double>(i));
    }
    EXPECT_EQ(first.obtainSize(), handles.size());
    std::size_t expected = 0;
    for (const COJsonValue item : first.obtainItems()) {
        EXPECT_EQ(item.obtainInteger(), static_cast<std::int64_t>(expected++));
    }
}

TEST(COJsonBuild, AddsNothingToWhatIsNoContainer) {
    COJson json;
    COJsonValue text = json.addKeyValue("text");
    text.setString("a");
    EXPECT_FALSE(text.addKeyValue("b").getIsValidJson());
    EXPECT_FALSE(text.addItem().getIsValidJson());
    COJsonValue list = json.addKeyValue("list");
    list.setArray();
    EXPECT_FALSE(list.addKeyValue("b").getIsValidJson());
    COJsonValue map = json.addKeyValue("map");
    map.setObject();
    EXPECT_FALSE(map.addItem().getIsValidJson());
    EXPECT_EQ(json.obtainJsonString(), R"({"text":"a","list":[],"map":{}})");
}

TEST(COJsonBuild, DoesNotChangeADocumentThatWasRead) {
    const std::string text = R"({"a":"b","c":[1],"d":{}})";
    COJson json{std::string_view(text)};
    for (const char* key : {"a", "c", "d"}) {
        COJsonValue value = json.obtainMember(key);
        value.setString("x");
        value.setDouble(1);
        value.setBoolean(true);
        value.setNull();
        value.setArray();
        value.setObject();
        EXPECT_FALSE(value.addKeyValue("x").getIsValidJson());
        EXPECT_FALSE(value.addItem().getIsValidJson());
    }
    EXPECT_FALSE(json.addKeyValue("x").getIsValidJson());
    EXPECT_EQ(json.obtainJsonString(), text);
}

TEST(COJsonBuild, DoesNothingOnUndefinedHandles) {
    COJsonValue value;
    value.setString("x");
    value.setDouble(1);
    value.setBoolean(true);
    value.setNull();
    value.setArray();
    value.setObject();
    EXPECT_FALSE(value.addKeyValue("x").getIsValidJson());
    EXPECT_FALSE(value.addItem().getIsValidJson());
    EXPECT_FALSE(value.getIsValidJson());
}

TEST(COJsonBuild, WritesAndFreesATreeDeeperThanTheStack) {
    constexpr int kLevels = 1'000'000;
    COJson json;
    COJsonValue place = json.obtainRoot();
    place.setArray();
    for (int level = 1; level < kLevels; ++level) {
        place = place.addItem();
        place.setArray();
    }
    const std::string text = json.obtainJsonString();
    EXPECT_EQ(text, std::string(kLevels, '[') + std::string(kLevels, ']'));
}

TEST(COJsonBuild, WritesAPartOfATree) {
    COJson json;
    COJsonValue part = json.addKeyValue("part");
    part.setArray();
    part.addItem().setString("a");
    COJsonValue object = part.addItem();
    object.setObject();
    object.addKeyValue("b").setDouble(1);
    json.addKeyValue("behind").setString("not written");
    EXPECT_EQ(part.obtainJsonString(), R"(["a",{"b":1}])");
    EXPECT_EQ(object.obtainJsonString(), R"({"b":1})");
    EXPECT_EQ(object.obtainMember("b").obtainJsonString(), "1");
}

TEST(COJsonBuild, MovesWithAllItsNodes) {
    COJson source;
    source.addKeyValue("a").setString("b");
    COJson target(std::move(source));
    target.addKeyValue("c").setDouble(1);
    EXPECT_EQ(target.obtainJsonString(), R"({"a":"b","c":1})");
    target = COJson("[1]");
    EXPECT_EQ(target.obtainJsonString(), "[1]");
}

std::string writeVariant(const CMVariant& value) {
    return cfCreateCOJsonFromCMVariant(value).obtainJsonString();
}

TEST(CfCreateCOJsonFromCMVariant, TurnsEachTypeIntoItsJson) {
    EXPECT_EQ(writeVariant(CMVariant()), "null");
    EXPECT_EQ(writeVariant(CMVariant("a\"b")), R"("a\"b")");
    EXPECT_EQ(writeVariant(CMVariant(1.5)), "1.5");
    EXPECT_EQ(writeVariant(CMVariant(CMVariantList{})), "[]");
    EXPECT_EQ(writeVariant(CMVariant(CMVariantMap{})), "{}");
}

TEST(CfCreateCOJsonFromCMVariant, KeepsListsInOrderAndMapsInTheOrderOfNames) {
    const CMVariantMap map{{"b", CMVariant(CMVariantList{CMVariant("x"), CMVariant(), CMVariant(2.0)})},
                           {"a", CMVariant(CMVariantMap{{"inner", CMVariant("y")}})},
                           {"", CMVariant(0.25)}};
    EXPECT_EQ(writeVariant(CMVariant(map)), R"({"":0.25,"a":{"inner":"y"},"b":["x",null,2]})");
}

TEST(CfCreateCOJsonFromCMVariant, WritesANumberThatIsNotFiniteAsNull) {
    EXPECT_EQ(writeVariant(CMVariant(std::numeric_limits<double>::infinity())), "null");
    EXPECT_EQ(writeVariant(CMVariant(CMVariantList{CMVariant(-std::numeric_limits<double>::quiet_NaN())})), "[null]");
}

CMVariant nestLists(int levels, CMVariant inner) {
    for (int level = 0; level < levels; ++level) {
        CMVariantList list;
        list.push_back(std::move(inner));
        inner = CMVariant(std::move(list));
    }
    return inner;
}

TEST(CfCreateCOJsonFromCMVariant, WritesLevelsBeyond512AsNull) {
    const std::string opening(512, '[');
    const std::string closing(512, ']');
    EXPECT_EQ(writeVariant(nestLists(512, CMVariant("a"))), opening + "\"a\"" + closing);
    EXPECT_EQ(writeVariant(nestLists(512, CMVariant(CMVariantList{}))), opening + "null" + closing);
    EXPECT_EQ(writeVariant(nestLists(512, CMVariant(CMVariantMap{{"a", CMVariant("b")}}))), opening + "null" + closing);
    EXPECT_EQ(writeVariant(nestLists(2000, CMVariant("a"))), opening + "null" + closing);
}

TEST(CfCreateCOJsonFromCMVariant, GivesTextThatIsReadAgain) {
    const COJson json = cfCreateCOJsonFromCMVariant(nestLists(600, CMVariant("a")));
    EXPECT_TRUE(COJson(std::string_view(json.obtainJsonString())).getIsValidJson());
}

TEST(CfCreateCOJsonFromCMVariant, GivesADocumentThatCanBeChanged) {
    COJson json = cfCreateCOJsonFromCMVariant(CMVariant(CMVariantMap{{"a", CMVariant(1.0)}}));
    json.addKeyValue("b").setString("added");
    json.obtainMember("a").setString("changed");
    EXPECT_EQ(json.obtainJsonString(), R"({"a":"changed","b":"added"})");
}

}  // namespace
