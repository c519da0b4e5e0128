#include "conversation/sql_extractor.h"

#include <gtest/gtest.h>

namespace {

using Blocks = std::vector<std::string>;

Blocks extract(std::string_view answer) {
    return host::extractSql(answer, {"sqlite", "sqlite3"});
}

TEST(SqlExtractor, TakesBlocksMarkedWithTheDialect) {
    const std::string answer = "```postgresql\nSELECT 1;\n```\n```mysql\nSELECT 2;\n```\n```PGSQL\nSELECT 3;\n```";
    EXPECT_EQ(host::extractSql(answer, {"postgresql", "pgsql"}), (Blocks{"SELECT 1;\n", "SELECT 3;\n"}));
    EXPECT_EQ(host::extractSql(answer, {"mysql"}), Blocks{"SELECT 2;\n"});
    EXPECT_EQ(extract(answer), Blocks{});
}

TEST(SqlExtractor, TakesTheMarkedBlock) {
    EXPECT_EQ(extract("Count them:\n```sql\nSELECT 1;\n```\nDone."), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, TakesSeveralBlocksInOrder) {
    EXPECT_EQ(extract("```sql\nSELECT 1;\n```\nor\n~~~~SQLite\nSELECT 2;\n~~~\n~~~~\n"),
              (Blocks{"SELECT 1;\n", "SELECT 2;\n~~~\n"}));
}

TEST(SqlExtractor, PrefersMarkedBlocksToOthers) {
    EXPECT_EQ(extract("```\nplain\n```\n```python\nprint()\n```\n```sql\nSELECT 1;\n```"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, TakesUnmarkedBlocksWhereNoneIsMarked) {
    EXPECT_EQ(extract("```\nSELECT 1;\n```"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, LeavesBlocksOfOtherLanguages) {
    EXPECT_EQ(extract("```python\nimport sqlite3\n```"), Blocks{});
    EXPECT_EQ(extract("```sqlalchemy\nselect()\n```"), Blocks{});
}

TEST(SqlExtractor, ReadsABlockInAListItem) {
    EXPECT_EQ(extract("1. Do this\n   ```sql\n   SELECT 1,\n     2;\n   ```\n"), Blocks{"SELECT 1,\n  2;\n"});
}

TEST(SqlExtractor, ReadsABlockWhoseEndIsMissing) {
    EXPECT_EQ(extract("```sql\nSELECT 1;"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, ReadsCarriageReturns) {
    EXPECT_EQ(extract("```sql\r\nSELECT 1;\r\n```\r\n"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, ReadsAMarkWithAttributes) {
    EXPECT_EQ(extract("```sql title=\"x\"\nSELECT 1;\n```"), Blocks{"SELECT 1;\n"});
    EXPECT_EQ(extract("``` sql\nSELECT 1;\n```"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, LeavesEmptyBlocks) {
    EXPECT_EQ(extract("```sql\n \n```"), Blocks{});
}

TEST(SqlExtractor, DoesNotTakeInlineCodeForABlock) {
    EXPECT_EQ(extract("```SELECT 1```\ntext"), Blocks{});
    EXPECT_EQ(extract("Use `SELECT 1`."), Blocks{});
}

TEST(SqlExtractor, TakesABareQuery) {
    EXPECT_EQ(extract(" select 1;\n"), Blocks{"select 1;"});
    EXPECT_EQ(extract("WITH a AS (VALUES (1)) SELECT * FROM a;"), Blocks{"WITH a AS (VALUES (1)) SELECT * FROM a;"});
}

TEST(SqlExtractor, DoesNotTakeProseForAQuery) {
    EXPECT_EQ(extract("With pleasure: there are 300 customers."), Blocks{});
    EXPECT_EQ(extract("DROP TABLE customers;"), Blocks{});
    EXPECT_EQ(extract(""), Blocks{});
}

}  // namespace
