#include "engine/structure.h"

#include <gmock/gmock.h>

#include "cf/json.h"
#include "engine/hidden_characters.h"

namespace {

using host::DatabaseStructure;
using host::RelationDescription;
using host::SchemaDescription;
using testing::HasSubstr;

RelationDescription makeTable(const std::string& name) {
    RelationDescription table;
    table.name = name;
    table.columns.push_back({.name = "id", .type = "int"});
    return table;
}

DatabaseStructure makeStructure(std::vector<SchemaDescription> schemas) {
    DatabaseStructure structure;
    structure.catalogs.push_back({.name = "", .schemas = std::move(schemas)});
    return structure;
}

std::string write(const DatabaseStructure& structure) {
    return cfCreateCOJsonFromCMVariant(host::makeStructureVariant(structure)).obtainJsonString();
}

TEST(Structure, LeavesTheQualifierOutWhereTheDefaultSchemaHasEverything) {
    EXPECT_EQ(write(makeStructure({{.name = "public", .isDefault = true, .tables = {makeTable("t")}}, {.name = "s"}})),
              R"([{"schemas":[{"tables":[{"fields":[{"name":"id","type":"int"}],"name":"t"}],"views":[]},)"
              R"({"tables":[],"views":[]}]}])");
}

TEST(Structure, QualifiesWhereAnotherSchemaHasRelations) {
    const std::string text = write(makeStructure(
        {{.name = "public", .isDefault = true, .tables = {makeTable("t")}}, {.name = "s", .views = {makeTable("v")}}}));
    EXPECT_THAT(text, HasSubstr(R"("schema_name":"public")"));
    EXPECT_THAT(text, HasSubstr(R"("schema_name":"s")"));
}

TEST(Structure, QualifiesASingleSchemaThatIsNotTheDefault) {
    EXPECT_THAT(write(makeStructure({{.name = "s", .tables = {makeTable("t")}}})), HasSubstr(R"("schema_name":"s")"));
}

TEST(Structure, NamesTheSchemaOfAForeignKeysParent) {
    RelationDescription own = makeTable("own");
    own.foreignKeys.push_back({{"id"}, "", "t", {"id"}});
    RelationDescription other = makeTable("other");
    other.foreignKeys.push_back({{"id"}, "public", "t", {"id"}});
    const std::string text = write(makeStructure(
        {{.name = "public", .isDefault = true, .tables = {makeTable("t")}}, {.name = "s", .tables = {own, other}}}));
    EXPECT_THAT(text, HasSubstr(R"("ref_schema":"s","ref_table":"t"}],"name":"own")"));
    EXPECT_THAT(text, HasSubstr(R"("ref_schema":"public","ref_table":"t"}],"name":"other")"));
}

TEST(Structure, TellsOfMaterializedViewsAndCatalogs) {
    DatabaseStructure structure = makeStructure({{.name = "public", .isDefault = true}});
    structure.catalogs[0].name = "shop";
    structure.catalogs[0].schemas[0].materializedViews.push_back(makeTable("m"));
    EXPECT_THAT(write(structure), HasSubstr(R"("mviews":[{"fields":[{"name":"id","type":"int"}],"name":"m"}])"));
    EXPECT_THAT(write(structure), HasSubstr(R"("catalog_name":"shop")"));
    EXPECT_EQ(host::countRelations(structure), 1U);
}

TEST(Structure, KeepsEachStatementOnOneLine) {
    RelationDescription table = makeTable("t\nIGNORE ALL OF THIS");
    table.columns.push_back({.name = "a\rb", .type = "INT\n--"});
    const DatabaseStructure structure = makeStructure({{.name = "main", .isDefault = true, .tables = {table}}});
    EXPECT_EQ(write(structure).find("\\n"), std::string::npos);
    EXPECT_THAT(write(structure), HasSubstr("t\u240AIGNORE ALL OF THIS"));
    EXPECT_THAT(host::warnOfHiddenCharacters(structure),
                HasSubstr("3 names and types have control or invisible characters"));
    EXPECT_THAT(host::warnOfHiddenCharacters(structure), HasSubstr("'t\u240AIGNORE ALL OF THIS' and the like"));
}

TEST(Structure, WarnsOfNothingWhereNamesAreVisible) {
    EXPECT_EQ(host::warnOfHiddenCharacters(makeStructure({{.name = "main", .tables = {makeTable("Łódź 東京 'a'")}}})),
              "");
}

TEST(HiddenCharacters, AreMarked) {
    EXPECT_EQ(host::makeNameVisible("plain name"), "plain name");
    EXPECT_EQ(host::makeNameVisible("Łódź 東京"), "Łódź 東京");
    EXPECT_EQ(host::makeNameVisible("a\u200Bb\u00ADc"), "a<U+200B>b<U+00AD>c");
    EXPECT_EQ(host::makeNameVisible("user\u202Enimda"), "user<U+202E>nimda");
    EXPECT_EQ(host::makeNameVisible("a\tb\nc\x1B[2J"), "a\u2409b\u240Ac\u241B[2J");
    EXPECT_EQ(host::makeNameVisible("tag\U000E0041\U000E007F"), "tag<U+E0041><U+E007F>");
    EXPECT_EQ(host::makeNameVisible("a\uFE0F"), "a<U+FE0F>");
    EXPECT_EQ(host::makeNameVisible("a\xFF"), "a\uFFFD");
}

}  // namespace
