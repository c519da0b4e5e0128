#include "conversation/sql_extractor.h"

#include <gtest/gtest.h>

namespace {

using Blocks = std::vector<std::string>;

TEST(SqlExtractor, TakesTheMarkedBlock) {
    EXPECT_EQ(host::extractSql("Count them:\n```sql\nSELECT 1;\n```\nDone."), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, TakesSeveralBlocksInOrder) {
    EXPECT_EQ(host::extractSql("```sql\nSELECT 1;\n```\nor\n~~~~SQLite\nSELECT 2;\n~~~\n~~~~\n"),
              (Blocks{"SELECT 1;\n", "SELECT 2;\n~~~\n"}));
}

TEST(SqlExtractor, PrefersMarkedBlocksToOthers) {
    EXPECT_EQ(host::extractSql("```\nplain\n```\n```python\nprint()\n```\n```sql\nSELECT 1;\n```"),
              Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, TakesUnmarkedBlocksWhereNoneIsMarked) {
    EXPECT_EQ(host::extractSql("```\nSELECT 1;\n```"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, LeavesBlocksOfOtherLanguages) {
    EXPECT_EQ(host::extractSql("```python\nimport sqlite3\n```"), Blocks{});
    EXPECT_EQ(host::extractSql("```sqlalchemy\nselect()\n```"), Blocks{});
}

TEST(SqlExtractor, ReadsABlockInAListItem) {
    EXPECT_EQ(host::extractSql("1. Do this\n   ```sql\n   SELECT 1,\n     2;\n   ```\n"), Blocks{"SELECT 1,\n  2;\n"});
}

TEST(SqlExtractor, ReadsABlockWhoseEndIsMissing) {
    EXPECT_EQ(host::extractSql("```sql\nSELECT 1;"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, ReadsCarriageReturns) {
    EXPECT_EQ(host::extractSql("```sql\r\nSELECT 1;\r\n```\r\n"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, ReadsAMarkWithAttributes) {
    EXPECT_EQ(host::extractSql("```sql title=\"x\"\nSELECT 1;\n```"), Blocks{"SELECT 1;\n"});
    EXPECT_EQ(host::extractSql("``` sql\nSELECT 1;\n```"), Blocks{"SELECT 1;\n"});
}

TEST(SqlExtractor, LeavesEmptyBlocks) {
    EXPECT_EQ(host::extractSql("```sql\n \n```"), Blocks{});
}

TEST(SqlExtractor, DoesNotTakeInlineCodeForABlock) {
    EXPECT_EQ(host::extractSql("```SELECT 1```\ntext"), Blocks{});
    EXPECT_EQ(host::extractSql("Use `SELECT 1`."), Blocks{});
}

TEST(SqlExtractor, TakesABareQuery) {
    EXPECT_EQ(host::extractSql(" select 1;\n"), Blocks{"select 1;"});
    EXPECT_EQ(host::extractSql("WITH a AS (VALUES (1)) SELECT * FROM a;"),
              Blocks{"WITH a AS (VALUES (1)) SELECT * FROM a;"});
}

TEST(SqlExtractor, DoesNotTakeProseForAQuery) {
    EXPECT_EQ(host::extractSql("With pleasure: there are 300 customers."), Blocks{});
    EXPECT_EQ(host::extractSql("DROP TABLE customers;"), Blocks{});
    EXPECT_EQ(host::extractSql(""), Blocks{});
}

}  // namespace
