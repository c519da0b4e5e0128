#include "engine/script_splitter.h"

#include <gmock/gmock.h>

namespace {

using host::ScriptSyntax;
using host::splitScript;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ScriptSplitter, SplitsAtSemicolons) {
    EXPECT_THAT(splitScript("SELECT 1; SELECT 2;", {}), ElementsAre("SELECT 1", " SELECT 2"));
    EXPECT_THAT(splitScript("SELECT 1", {}), ElementsAre("SELECT 1"));
}

TEST(ScriptSplitter, LeavesOutWhatIsNoStatement) {
    EXPECT_THAT(splitScript(" ;; -- nothing;\n /* nothing; */ ;", {}), IsEmpty());
    EXPECT_THAT(splitScript("", {}), IsEmpty());
}

TEST(ScriptSplitter, KeepsSemicolonsInTextsNamesAndComments) {
    EXPECT_THAT(splitScript("a ';''; ' \"; \"\"; \" -- ;\n /* ; */ b", {}).size(), 1U);
}

TEST(ScriptSplitter, EndsAnUnfinishedTextOrCommentWithTheScript) {
    EXPECT_THAT(splitScript("a 'b; c", {}), ElementsAre("a 'b; c"));
    EXPECT_THAT(splitScript("a /* b; c", {}), ElementsAre("a /* b; c"));
    EXPECT_THAT(splitScript("a 'b\\", {.hasBackslashEscapes = true}), ElementsAre("a 'b\\"));
    EXPECT_THAT(splitScript("a $x$ b; c", {.hasDollarQuotes = true}), ElementsAre("a $x$ b; c"));
}

TEST(ScriptSplitter, KnowsBackslashEscapesWhereTheDialectHasThem) {
    EXPECT_EQ(splitScript("a '\\'; b'; c", {}).size(), 2U);
    EXPECT_EQ(splitScript("a '\\'; b'; c", {.hasBackslashEscapes = true}).size(), 2U);
    EXPECT_THAT(splitScript("a '\\'; b'", {.hasBackslashEscapes = true}), ElementsAre("a '\\'; b'"));
    EXPECT_THAT(splitScript("a E'\\'; b'", {.hasEscapeTexts = true}), ElementsAre("a E'\\'; b'"));
    EXPECT_EQ(splitScript("a '\\'; b", {.hasEscapeTexts = true}).size(), 2U);
    EXPECT_EQ(splitScript("a typE'\\'; b", {.hasEscapeTexts = true}).size(), 2U);
}

TEST(ScriptSplitter, FindsTheFirstWordOutsideOfComments) {
    EXPECT_EQ(host::readFirstWord("/* SELECT */ -- WITH\n DELETE FROM t", {}), "DELETE");
    EXPECT_EQ(host::readFirstWord("(# SELECT\n VALUES", {.hasHashComments = true}), "VALUES");
    EXPECT_EQ(host::readFirstWord("/*! SET x = 1 */", {}), "SET");
    EXPECT_EQ(host::readFirstWord(" /* nothing", {}), "");
}

TEST(ScriptSplitter, KnowsDollarQuotes) {
    constexpr ScriptSyntax kDollars{.hasDollarQuotes = true};
    EXPECT_EQ(splitScript("a $$;$$; b", kDollars).size(), 2U);
    EXPECT_EQ(splitScript("a $x$; $$; $y$ ;$x$ b", kDollars).size(), 1U);
    EXPECT_EQ(splitScript("a$x$; b$x$", kDollars).size(), 2U);
    EXPECT_EQ(splitScript("$1; $2", kDollars).size(), 2U);
}

TEST(ScriptSplitter, KnowsNestedAndHashComments) {
    EXPECT_EQ(splitScript("a /* /* */ ; */ b", {.hasNestedComments = true}).size(), 1U);
    EXPECT_EQ(splitScript("a /* /* */ ; b", {}).size(), 2U);
    EXPECT_EQ(splitScript("a # ;\n b", {.hasHashComments = true}).size(), 1U);
    EXPECT_EQ(splitScript("a # ;\n b", {}).size(), 2U);
}

TEST(ScriptSplitter, TakesCommentsThatAreCodeForStatements) {
    EXPECT_THAT(splitScript("/*! DROP TABLE t */; /*M! x */", {}), ElementsAre("/*! DROP TABLE t */", " /*M! x */"));
}

TEST(ContainsWord, FindsWholeWordsWhateverTheirCase) {
    EXPECT_TRUE(host::containsWord("SELECT Set_Config('a')", "set_config"));
    EXPECT_TRUE(host::containsWord("pg_catalog.\"set_config\"", "set_config"));
    EXPECT_TRUE(host::containsWord("set_config", "set_config"));
    EXPECT_FALSE(host::containsWord("my_set_config", "set_config"));
    EXPECT_FALSE(host::containsWord("set_config2", "set_config"));
    EXPECT_FALSE(host::containsWord("", "set_config"));
    EXPECT_TRUE(host::containsWord("dblink_exec(1)", "dblink*"));
    EXPECT_FALSE(host::containsWord("mydblink", "dblink*"));
}

}  // namespace
