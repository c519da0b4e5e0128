#include "kai_database_structure.h"

#include <gtest/gtest.h>

#include <vector>

#include "assertion_recorder.h"
#include "kai_assistant_properties.h"

namespace {

/// Two catalogs: the second has no name.
constexpr const char* kWorkedExample = R"json([
  {"catalog_id": "c2", "catalog_name": "sales", "schemas": [{
    "schema_name": "dbo",
    "tables": [{
      "name": "orders",
      "fields": [{"name": "id", "type": "int"}, {"name": "user_id", "type": "int"}],
      "pkeys": ["id"],
      "fkeys": [{"fields": ["user_id"], "ref_schema": "public", "ref_table": "users", "ref_fields": ["id"]}]
    }],
    "views": [{"name": "v_orders", "fields": [{"name": "id", "type": "int"}]}]
  }]},
  {"schemas": [{
    "schema_name": "public",
    "tables": [{
      "name": "users",
      "fields": [{"name": "id", "type": "int"}, {"name": "email", "type": "varchar(255)"}],
      "pkeys": ["id"]
    }]
  }]}
])json";

constexpr const char* kMalformed = "false @ src/kai_assistant_properties.cpp";

KAIAssistantProperties makeProperties(const std::string& structure) {
    KAIAssistantProperties properties;
    properties.changeSettings([&](kai::AssistantSettings& settings) { settings.databaseStructure = structure; });
    return properties;
}

std::string buildText(const std::string& structure) {
    return makeProperties(structure).obtainDatabaseStructureText();
}

CMVariantList buildList(const std::string& structure) {
    return makeProperties(structure).obtainDatabaseStructure();
}

/// A view of no fields by which a place in the text is known.
std::string makeView(const std::string& name) {
    return R"({"name":")" + name + R"(","fields":[]})";
}

std::string makeSchema(const std::string& table, const std::string& members = "") {
    return "{" + members + (members.empty() ? "" : ",") + R"("tables":[)" + makeView(table) + "]}";
}

std::string makeCatalog(const std::string& members, const std::string& table) {
    return "{" + members + (members.empty() ? "" : ",") + R"("schemas":[)" + makeSchema(table) + "]}";
}

}  // namespace

TEST(KAIDatabaseStructure, TurnsTheWorkedExampleIntoItsFourLines) {
    EXPECT_EQ(buildText(kWorkedExample),
              "CREATE TABLE `public`.`users` (`id` int, `email` varchar(255), PRIMARY KEY(`id`))\n"
              "USE CATALOG `sales`\n"
              "CREATE TABLE `dbo`.`orders` (`id` int, `user_id` int, PRIMARY KEY(`id`), "
              "FOREIGN KEY(`user_id`) REFERENCES `public`.`users`(`id`))\n"
              "CREATE VIEW `dbo`.`v_orders` (`id` int)\n");
}

TEST(KAIDatabaseStructure, AnnotatesTheWorkedExample) {
    const CMVariantList catalogs = buildList(kWorkedExample);
    ASSERT_EQ(catalogs.size(), 2U);
    const CMVariantMap& unnamed = catalogs[0].mapValue();
    EXPECT_EQ(unnamed.size(), 2U);
    EXPECT_TRUE(unnamed.at("instructions").listValue().empty());
    const CMVariantMap& users = unnamed.at("schemas").listValue().at(0).mapValue();
    EXPECT_EQ(users.at("schema_name").stringValue(), "public");
    EXPECT_EQ(users.count("schema_id"), 0U);
    ASSERT_EQ(users.at("instructions").listValue().size(), 1U);
    const CMVariantMap& sales = catalogs[1].mapValue();
    EXPECT_EQ(sales.size(), 4U);
    EXPECT_EQ(sales.at("catalog_id").stringValue(), "c2");
    EXPECT_EQ(sales.at("catalog_name").stringValue(), "sales");
    ASSERT_EQ(sales.at("instructions").listValue().size(), 1U);
    EXPECT_EQ(sales.at("instructions").listValue()[0].stringValue(), "USE CATALOG `sales`");
    const CMVariantMap& dbo = sales.at("schemas").listValue().at(0).mapValue();
    EXPECT_EQ(dbo.size(), 2U);
    ASSERT_EQ(dbo.at("instructions").listValue().size(), 2U);
    EXPECT_EQ(dbo.at("instructions").listValue()[1].stringValue(), "CREATE VIEW `dbo`.`v_orders` (`id` int)");
}

TEST(KAIDatabaseStructure, IsEmptyForATextThatIsNoJSONArray) {
    AssertionRecorder recorder;
    for (const char* text : {"", " ", "not JSON", "{}", "null", "1", "\"[]\"", "[", "[]x", R"({"schemas":[]})", "[]"}) {
        EXPECT_TRUE(buildList(text).empty()) << text;
        EXPECT_EQ(buildText(text), "") << text;
    }
    EXPECT_EQ(recorder.takeCount(), 0U);
}

TEST(KAIDatabaseStructure, GroupsTheStatementsOfASchemaByKind) {
    const std::string schema = R"({"mviews":[)" + makeView("m1") + "," + makeView("m2") + R"(],"views":[)" +
                               makeView("v1") + "," + makeView("v2") + R"(],"tables":[)" + makeView("t1") + "," +
                               makeView("t2") + "]}";
    EXPECT_EQ(buildText(R"([{"schemas":[)" + schema + "]}]"),
              "CREATE TABLE `t1` ()\nCREATE TABLE `t2` ()\n"
              "CREATE VIEW `v1` ()\nCREATE VIEW `v2` ()\n"
              "CREATE MATERIALIZED VIEW `m1` ()\nCREATE MATERIALIZED VIEW `m2` ()\n");
}

TEST(KAIDatabaseStructure, AcceptsASchemaWithoutTablesViewsOrMaterializedViews) {
    AssertionRecorder recorder;
    const CMVariantList catalogs = buildList(R"([{"schemas":[{"schema_id":"i","schema_name":"n"}]}])");
    ASSERT_EQ(catalogs.size(), 1U);
    const CMVariantMap& schema = catalogs[0].mapValue().at("schemas").listValue().at(0).mapValue();
    EXPECT_EQ(schema.size(), 3U);
    EXPECT_EQ(schema.at("schema_id").stringValue(), "i");
    EXPECT_EQ(schema.at("schema_name").stringValue(), "n");
    EXPECT_TRUE(schema.at("instructions").listValue().empty());
    EXPECT_EQ(recorder.takeCount(), 0U);
}

TEST(KAIDatabaseStructure, QualifiesStatementsByANonEmptySchemaName) {
    EXPECT_EQ(buildText(R"([{"schemas":[)" + makeSchema("t", R"("schema_name":"s")") + "]}]"),
              "CREATE TABLE `s`.`t` ()\n");
    EXPECT_EQ(buildText(R"([{"schemas":[)" + makeSchema("t", R"("schema_name":"")") + "]}]"), "CREATE TABLE `t` ()\n");
    EXPECT_EQ(buildText(R"([{"schemas":[)" + makeSchema("t") + "]}]"), "CREATE TABLE `t` ()\n");
}

TEST(KAIDatabaseStructure, KeepsAnEmptySchemaNameInTheList) {
    const CMVariantList catalogs = buildList(R"([{"schemas":[{"schema_name":""}]}])");
    EXPECT_EQ(catalogs.at(0).mapValue().at("schemas").listValue().at(0).mapValue().count("schema_name"), 1U);
}

TEST(KAIDatabaseStructure, WritesTheLineOfAnEmptyCatalogNameAmongTheUnnamedCatalogs) {
    const std::string structure = "[" + makeCatalog(R"("catalog_name":"b")", "t1") + "," +
                                  makeCatalog(R"("catalog_name":"")", "t2") + "," + makeCatalog("", "t3") + "," +
                                  makeCatalog(R"("catalog_name":"a")", "t4") + "]";
    EXPECT_EQ(buildText(structure),
              "USE CATALOG ``\nCREATE TABLE `t2` ()\nCREATE TABLE `t3` ()\n"
              "USE CATALOG `b`\nCREATE TABLE `t1` ()\nUSE CATALOG `a`\nCREATE TABLE `t4` ()\n");
    const CMVariantList catalogs = buildList(structure);
    ASSERT_EQ(catalogs.size(), 4U);
    EXPECT_EQ(catalogs[0].mapValue().at("instructions").listValue().at(0).stringValue(), "USE CATALOG ``");
    EXPECT_EQ(catalogs[2].mapValue().at("catalog_name").stringValue(), "b");
    EXPECT_EQ(catalogs[3].mapValue().at("catalog_name").stringValue(), "a");
}

TEST(KAIDatabaseStructure, WritesNamesOfCatalogsAndSchemasAsReceived) {
    EXPECT_EQ(buildText(R"([{"catalog_name":" a`b ","schemas":[)" + makeSchema("t", R"("schema_name":"`\n")") + "]}]"),
              "USE CATALOG ` a`b `\nCREATE TABLE ``\n`.`t` ()\n");
}

TEST(KAIDatabaseStructure, SkipsACatalogThatIsNoObject) {
    AssertionRecorder recorder;
    for (const char* item : {"null", "1", "\"c\"", "[]", "true"}) {
        const std::string structure = "[" + std::string(item) + "," + makeCatalog("", "t") + "]";
        EXPECT_EQ(buildText(structure), "CREATE TABLE `t` ()\n") << item;
        EXPECT_EQ(recorder.takeTexts(), std::vector<std::string>{kMalformed}) << item;
        EXPECT_EQ(buildList(structure).size(), 1U) << item;
        EXPECT_EQ(recorder.takeTexts(), std::vector<std::string>{kMalformed}) << item;
    }
}

TEST(KAIDatabaseStructure, SkipsACatalogWithMistypedMembersOrWithoutSchemas) {
    AssertionRecorder recorder;
    for (const char* catalog :
         {R"({"catalog_id":1,"schemas":[]})", R"({"catalog_id":null,"schemas":[]})",
          R"({"catalog_name":1,"schemas":[]})", R"({"catalog_name":null,"schemas":[]})", R"({"catalog_name":"c"})",
          R"({"catalog_name":"c","schemas":null})", R"({"catalog_name":"c","schemas":{}})", "{}"}) {
        const std::string structure = "[" + std::string(catalog) + "," + makeCatalog("", "t") + "]";
        EXPECT_EQ(buildText(structure), "CREATE TABLE `t` ()\n") << catalog;
        EXPECT_EQ(recorder.takeTexts(), std::vector<std::string>{kMalformed}) << catalog;
        EXPECT_EQ(buildList(structure).size(), 1U) << catalog;
        EXPECT_EQ(recorder.takeCount(), 1U) << catalog;
    }
}

TEST(KAIDatabaseStructure, SkipsASchemaThatIsNoObjectOrHasMistypedMembers) {
    AssertionRecorder recorder;
    for (const char* schema :
         {"null", "1", "\"s\"", "[]", R"({"schema_id":1})", R"({"schema_id":null})", R"({"schema_name":[]})",
          R"({"schema_name":null})", R"({"tables":null})", R"({"tables":{}})", R"({"views":"v"})", R"({"views":null})",
          R"({"mviews":1})", R"({"mviews":null})"}) {
        const std::string structure = R"([{"schemas":[)" + std::string(schema) + "," + makeSchema("t") + "]}]";
        EXPECT_EQ(buildText(structure), "CREATE TABLE `t` ()\n") << schema;
        EXPECT_EQ(recorder.takeTexts(), std::vector<std::string>{kMalformed}) << schema;
        EXPECT_EQ(buildList(structure).at(0).mapValue().at("schemas").listValue().size(), 1U) << schema;
        EXPECT_EQ(recorder.takeCount(), 1U) << schema;
    }
}

TEST(KAIDatabaseStructure, KeepsTheLineOfACatalogWhoseSchemasAreAllSkipped) {
    const AssertionRecorder recorder;
    EXPECT_EQ(buildText(R"([{"catalog_name":"c","schemas":[1,2]}])"), "USE CATALOG `c`\n");
}

TEST(KAIDatabaseStructure, LeavesAnEmptyLineForAMalformedTable) {
    AssertionRecorder recorder;
    const std::string structure = R"([{"schemas":[{"tables":[)" + makeView("a") +
                                  R"(,{"name":"bad","fields":[{"name":"x","type":1}]},)" + makeView("b") + "]}]}]";
    EXPECT_EQ(buildText(structure), "CREATE TABLE `a` ()\n\nCREATE TABLE `b` ()\n");
    EXPECT_EQ(recorder.takeTexts(), std::vector<std::string>{kMalformed});
    const CMVariantList catalogs = buildList(structure);
    const CMVariantMap& schema = catalogs.at(0).mapValue().at("schemas").listValue().at(0).mapValue();
    ASSERT_EQ(schema.at("instructions").listValue().size(), 3U);
    EXPECT_EQ(schema.at("instructions").listValue()[1].getValueType(), CMVariant::ValueType::String);
    EXPECT_EQ(schema.at("instructions").listValue()[1].stringValue(), "");
}

TEST(KAIDatabaseStructure, IgnoresInstructionsInTheInput) {
    const std::string structure =
        R"([{"instructions":["x"],"schemas":[{"instructions":["y"],"tables":[)" + makeView("t") + "]}]}]";
    EXPECT_EQ(buildText(structure), "CREATE TABLE `t` ()\n");
    const CMVariantList catalogs = buildList(structure);
    EXPECT_TRUE(catalogs.at(0).mapValue().at("instructions").listValue().empty());
}

TEST(KAIDatabaseStructure, TakesTheFirstOfTwoMembersWithTheSameKey) {
    EXPECT_EQ(buildText(R"([{"schemas":[{"schema_name":"a","schema_name":"b","tables":[)" + makeView("t") + "]}]}]"),
              "CREATE TABLE `a`.`t` ()\n");
}

TEST(KAIDatabaseStructure, ReadsItsOwnTemplateAsADescription) {
    AssertionRecorder recorder;
    const std::string text = kai::buildDatabaseStructureTemplate().obtainJsonString();
    EXPECT_EQ(buildText(text),
              "USE CATALOG `optional`\nCREATE TABLE `optional`.`` (`` , PRIMARY KEY(`optional`), "
              "FOREIGN KEY(``) REFERENCES `optional`.``(``))\n\n\n");
    EXPECT_EQ(recorder.takeCount(), 2U) << "the unset items of views and mviews";
}

TEST(KAIDatabaseStructure, ComputesAnewOnEveryRead) {
    KAIAssistantProperties properties;
    properties.setProperty("db_structure", "[" + makeCatalog("", "a") + "]");
    EXPECT_EQ(properties.obtainDatabaseStructureText(), "CREATE TABLE `a` ()\n");
    properties.setProperty("db_structure", "[" + makeCatalog("", "b") + "]");
    EXPECT_EQ(properties.obtainDatabaseStructureText(), "CREATE TABLE `b` ()\n");
}

TEST(KAIDatabaseStructure, GivesNothingForATextNestedDeeperThan512Levels) {
    const std::string deep(513, '[');
    EXPECT_EQ(buildText(deep + std::string(513, ']')), "");
    AssertionRecorder recorder;
    EXPECT_EQ(buildText(std::string(512, '[') + std::string(512, ']')), "");
    EXPECT_EQ(recorder.takeCount(), 1U) << "one catalog that is no object";
}
