#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "assertion_recorder.h"
#include "kai_assistant_properties.h"

namespace {

const std::string kTwoFields = R"json("fields":[{"name":"a","type":"int"},{"name":"b","type":"varchar(255)"}])json";

std::string buildStatement(const std::string& description, const std::string& qualifier = "s",
                           const std::string& kind = "TABLE") {
    const COJson json(description);
    EXPECT_TRUE(json.getIsValidJson()) << description;
    return KAIAssistantProperties::buildCreateStatement(qualifier, kind, json.obtainRoot());
}

/// The statement of table t with the two fields above and the given members.
std::string buildTable(const std::string& members) {
    return buildStatement(R"({"name":"t",)" + kTwoFields + (members.empty() ? "" : ",") + members + "}");
}

std::string buildWithForeignKey(const std::string& key) {
    return buildTable(R"("fkeys":[)" + key + "]");
}

const std::string kStart = "CREATE TABLE `s`.`t` (`a` int, `b` varchar(255)";

class KAICreateStatement : public testing::Test {
protected:
    /// Expects an empty statement and exactly one report.
    void expectRefused(const std::string& description) {
        EXPECT_EQ(buildStatement(description), "") << description;
        EXPECT_EQ(m_recorder.takeTexts(), (std::vector<std::string>{"false @ src/kai_assistant_properties.cpp"}))
            << description;
    }

    AssertionRecorder m_recorder;
};

}  // namespace

TEST_F(KAICreateStatement, WritesNameFieldsAndTypesAsReceived) {
    EXPECT_EQ(buildTable(""), kStart + ")");
    EXPECT_EQ(buildStatement(R"({"name":" t`x ","fields":[{"name":"","type":""},{"name":"`","type":" int\n"}]})"),
              "CREATE TABLE `s`.` t`x ` (`` , ```  int\n)");
    EXPECT_EQ(m_recorder.takeCount(), 0U);
}

TEST_F(KAICreateStatement, WritesNamesOfAnyLength) {
    // 1,024 bytes are gathered before they are appended.
    for (const std::size_t size : {1000U, 1005U, 1006U, 1007U, 1020U, 1024U, 1025U, 5000U}) {
        const std::string name(size, 'n');
        const std::string type(size, 't');
        const std::string field = R"({"name":")" + name + R"(","type":")" + type + R"("})";
        EXPECT_EQ(buildStatement(R"({"name":")" + name + R"(","fields":[)" + field + "," + field + R"(],"pkeys":[")" +
                                 name + R"("]})"),
                  "CREATE TABLE `s`.`" + name + "` (`" + name + "` " + type + ", `" + name + "` " + type +
                      ", PRIMARY KEY(`" + name + "`))");
    }
}

TEST_F(KAICreateStatement, NamesTheKind) {
    EXPECT_EQ(buildStatement(R"({"name":"v","fields":[]})", "s", "VIEW"), "CREATE VIEW `s`.`v` ()");
    EXPECT_EQ(buildStatement(R"({"name":"v","fields":[]})", "s", "MATERIALIZED VIEW"),
              "CREATE MATERIALIZED VIEW `s`.`v` ()");
}

TEST_F(KAICreateStatement, LeavesTheQualifierOutWhenItIsEmpty) {
    EXPECT_EQ(buildStatement(R"({"name":"t","fields":[{"name":"a","type":"int"}]})", ""), "CREATE TABLE `t` (`a` int)");
}

TEST_F(KAICreateStatement, EndsAfterAnEmptyFieldListEvenWhenThereAreKeys) {
    const std::string keys = R"("pkeys":["a"],"fkeys":[{"fields":["a"],"ref_table":"o","ref_fields":["x"]}])";
    EXPECT_EQ(buildStatement(R"({"name":"t","fields":[],)" + keys + "}"), "CREATE TABLE `s`.`t` ()");
    EXPECT_EQ(buildStatement(R"({"name":"t","fields":[],"pkeys":[1],"fkeys":[1]})"), "CREATE TABLE `s`.`t` ()");
    EXPECT_EQ(m_recorder.takeCount(), 0U);
}

TEST_F(KAICreateStatement, RunsTheColumnsOfACompositePrimaryKeyTogether) {
    EXPECT_EQ(buildTable(R"("pkeys":["a"])"), kStart + ", PRIMARY KEY(`a`))");
    EXPECT_EQ(buildTable(R"("pkeys":["a","b"])"), kStart + ", PRIMARY KEY(`a``b`))");
}

TEST_F(KAICreateStatement, WritesNothingForAnEmptyPrimaryKey) {
    EXPECT_EQ(buildTable(R"("pkeys":[])"), kStart + ")");
}

TEST_F(KAICreateStatement, RunsTheColumnsOfACompositeForeignKeyTogether) {
    EXPECT_EQ(buildWithForeignKey(R"({"fields":["a","b"],"ref_schema":"p","ref_table":"o","ref_fields":["x","y"]})"),
              kStart + ", FOREIGN KEY(`a``b`) REFERENCES `p`.`o`(`x``y`))");
}

TEST_F(KAICreateStatement, QualifiesAReferenceByItsOwnSchemaOnly) {
    EXPECT_EQ(buildWithForeignKey(R"({"fields":["a"],"ref_table":"o","ref_fields":["x"]})"),
              kStart + ", FOREIGN KEY(`a`) REFERENCES `o`(`x`))");
    EXPECT_EQ(buildWithForeignKey(R"({"fields":["a"],"ref_schema":"","ref_table":"o","ref_fields":["x"]})"),
              kStart + ", FOREIGN KEY(`a`) REFERENCES ``.`o`(`x`))");
}

TEST_F(KAICreateStatement, WritesEachForeignKeyAfterThePrimaryKey) {
    EXPECT_EQ(
        buildTable(R"("fkeys":[{"fields":["a"],"ref_table":"o","ref_fields":["x"]},)"
                   R"({"fields":["b"],"ref_table":"p","ref_fields":["y"]}],"pkeys":["a"])"),
        kStart + ", PRIMARY KEY(`a`), FOREIGN KEY(`a`) REFERENCES `o`(`x`), FOREIGN KEY(`b`) REFERENCES `p`(`y`))");
}

TEST_F(KAICreateStatement, DropsAForeignKeyWithoutColumnsSilently) {
    const std::string good = R"({"fields":["b"],"ref_table":"p","ref_fields":["y"]})";
    for (const char* empty :
         {R"({"fields":["a"],"ref_table":"o","ref_fields":[]})", R"({"fields":[],"ref_table":"o","ref_fields":["x"]})",
          R"({"fields":[],"ref_table":"o","ref_fields":[1]})", R"({"fields":[1],"ref_table":"o","ref_fields":[]})"}) {
        EXPECT_EQ(buildWithForeignKey(empty), kStart + ")") << empty;
        EXPECT_EQ(buildWithForeignKey(empty + std::string(",") + good),
                  kStart + ", FOREIGN KEY(`b`) REFERENCES `p`(`y`))");
    }
    EXPECT_EQ(m_recorder.takeCount(), 0U);
}

TEST_F(KAICreateStatement, WritesNothingForAnEmptyListOfForeignKeys) {
    EXPECT_EQ(buildTable(R"("fkeys":[])"), kStart + ")");
}

TEST_F(KAICreateStatement, IgnoresUnknownMembers) {
    EXPECT_EQ(buildTable(R"("comment":"c","Pkeys":["a"],"instructions":["x"])"), kStart + ")");
}

TEST_F(KAICreateStatement, RefusesADescriptionThatIsNotAnObject) {
    for (const char* description : {"null", "1", "\"t\"", "[]", "true"}) {
        expectRefused(description);
    }
}

TEST_F(KAICreateStatement, RefusesANameThatIsMissingOrNoString) {
    for (const char* name : {"", R"("name":null,)", R"("name":1,)", R"("name":["t"],)", R"("Name":"t",)"}) {
        expectRefused("{" + std::string(name) + kTwoFields + "}");
    }
}

TEST_F(KAICreateStatement, RefusesFieldsThatAreMissingOrNoArray) {
    for (const char* fields : {R"("a":1)", R"("fields":null)", R"("fields":{})", R"("fields":"a")"}) {
        expectRefused(R"({"name":"t",)" + std::string(fields) + "}");
    }
}

TEST_F(KAICreateStatement, RefusesKeysThatArePresentButNoArray) {
    for (const char* member : {"pkeys", "fkeys"}) {
        for (const char* value : {"null", "{}", "\"a\"", "1", "false"}) {
            const std::string key = std::string("\"") + member + "\":" + value;
            expectRefused(R"({"name":"t",)" + kTwoFields + "," + key + "}");
            expectRefused(R"({"name":"t","fields":[],)" + key + "}");
        }
    }
}

TEST_F(KAICreateStatement, RefusesAFieldThatIsNoObjectWithNameAndType) {
    for (const char* field :
         {"null", "1", "\"a\"", "[]", "{}", R"({"name":"a"})", R"({"type":"int"})", R"({"name":"a","type":1})",
          R"({"name":1,"type":"int"})", R"({"name":"a","type":null})"}) {
        expectRefused(R"({"name":"t","fields":[)" + std::string(field) + "]}");
        expectRefused(R"({"name":"t","fields":[{"name":"a","type":"int"},)" + std::string(field) + "]}");
    }
}

TEST_F(KAICreateStatement, RefusesAPrimaryKeyColumnThatIsNoString) {
    for (const char* keys : {"[1]", "[null]", "[\"a\",{}]", "[[\"a\"]]"}) {
        expectRefused(R"({"name":"t",)" + kTwoFields + R"(,"pkeys":)" + keys + "}");
    }
}

TEST_F(KAICreateStatement, RefusesAMalformedForeignKey) {
    for (const char* key : {
             "null",
             "\"a\"",
             "[]",
             "{}",
             R"({"ref_table":"o","ref_fields":["x"]})",
             R"({"fields":"a","ref_table":"o","ref_fields":["x"]})",
             R"({"fields":["a"],"ref_fields":["x"]})",
             R"({"fields":["a"],"ref_table":1,"ref_fields":["x"]})",
             R"({"fields":["a"],"ref_table":"o"})",
             R"({"fields":["a"],"ref_table":"o","ref_fields":{}})",
             R"({"fields":["a"],"ref_schema":null,"ref_table":"o","ref_fields":["x"]})",
             R"({"fields":["a"],"ref_schema":1,"ref_table":"o","ref_fields":["x"]})",
             R"({"fields":[1],"ref_table":"o","ref_fields":["x"]})",
             R"({"fields":["a",null],"ref_table":"o","ref_fields":["x"]})",
             R"({"fields":["a"],"ref_table":"o","ref_fields":[{}]})",
         }) {
        expectRefused(R"({"name":"t",)" + kTwoFields + R"(,"fkeys":[)" + key + "]}");
    }
}

TEST_F(KAICreateStatement, RefusesAForeignKeyWithoutColumnsWhenItIsMalformedOtherwise) {
    expectRefused(R"({"name":"t",)" + kTwoFields + R"(,"fkeys":[{"fields":[],"ref_fields":[]}]})");
    expectRefused(R"({"name":"t",)" + kTwoFields + R"(,"fkeys":[{"fields":[],"ref_table":"o","ref_fields":null}]})");
}

TEST_F(KAICreateStatement, RefusesAllWhenASecondForeignKeyIsMalformed) {
    expectRefused(R"({"name":"t",)" + kTwoFields +
                  R"(,"fkeys":[{"fields":["a"],"ref_table":"o","ref_fields":["x"]},{}]})");
}
