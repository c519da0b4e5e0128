#include "terminal/table_printer.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using host::Cell;
using host::ResultTable;

Cell makeText(std::string text) {
    const std::size_t size = text.size();
    return {Cell::Kind::Text, std::move(text), size};
}

Cell makeNumber(std::string text) {
    return {Cell::Kind::Number, std::move(text), 0};
}

std::string print(const ResultTable& table, std::size_t maxCell = 80) {
    std::ostringstream output;
    host::printTable(output, table, maxCell);
    return output.str();
}

TEST(TablePrinter, AlignsTextLeftAndNumbersRight) {
    EXPECT_EQ(print({{"id", "name", "total"},
                     {{makeNumber("1"), makeText("Anna"), makeNumber("12.5")},
                      {makeNumber("10"), makeText("Bo"), makeNumber("7")}}}),
              "id | name | total\n"
              "---+------+------\n"
              " 1 | Anna |  12.5\n"
              "10 | Bo   |     7\n"
              "(2 rows)\n");
}

TEST(TablePrinter, MeasuresATableWhoseFirstColumnIsEmpty) {
    const ResultTable table{{"", "a"}, {{makeText(""), makeText("x")}}};
    EXPECT_EQ(host::measureTable(table, 80), std::string("-+-x").size());
    EXPECT_EQ(print(table), " | a\n-+--\n | x\n(1 row)\n");
}

TEST(TablePrinter, LeavesNoBlanksAtLineEnds) {
    EXPECT_EQ(print({{"a", "text"}, {{makeNumber("1"), makeText("x")}}}), "a | text\n--+-----\n1 | x\n(1 row)\n");
}

TEST(TablePrinter, AlignsWideAndCombiningCharacters) {
    EXPECT_EQ(print({{"city", "n"}, {{makeText("東京"), makeNumber("1")}, {makeText("Łódź"), makeNumber("2")}}}),
              "city | n\n-----+--\n東京 | 1\nŁódź | 2\n(2 rows)\n");
}

TEST(TablePrinter, ShowsNullAndKeepsTheColumnNumeric) {
    EXPECT_EQ(print({{"n"}, {{makeNumber("12345")}, {Cell{}}}}), "    n\n-----\n12345\n NULL\n(2 rows)\n");
}

TEST(TablePrinter, AbbreviatesBlobs) {
    EXPECT_EQ(print({{"b"},
                     {{Cell{Cell::Kind::Blob, std::string("\x00\xff", 2), 2}},
                      {Cell{Cell::Kind::Blob, std::string(9, 'A'), 4000}},
                      {Cell{Cell::Kind::Blob, "", 0}}}}),
              "b\n"
              "---------------------------------\n"
              "x'00FF' (2 bytes)\n"
              "x'4141414141414141\u2026' (4000 bytes)\n"
              "x'' (0 bytes)\n"
              "(3 rows)\n");
}

TEST(TablePrinter, MakesEscapeSequencesVisible) {
    EXPECT_EQ(print({{"a\x1b[0m"}, {{makeText("\x1b]0;title\x07\nnext")}}}),
              "a\u241b[0m\n---------------\n\u241b]0;title\u2407\u240anext\n(1 row)\n");
}

TEST(TablePrinter, AbbreviatesLongCells) {
    EXPECT_EQ(print({{"t"}, {{makeText(std::string(100, 'x'))}}}, 5), "t\n-----\nxxxx\u2026\n(1 row)\n");
}

TEST(TablePrinter, ShowsWholeCellsWhenAsked) {
    EXPECT_EQ(print({{"t"}, {{makeText(std::string(100, 'x'))}}}, 0),
              "t\n" + std::string(100, '-') + "\n" + std::string(100, 'x') + "\n(1 row)\n");
}

TEST(TablePrinter, MarksAValueThatWasNotKeptWhole) {
    EXPECT_EQ(print({{"t"}, {{Cell{Cell::Kind::Text, "abc", 1000}}}}, 0), "t\n----\nabc\u2026\n(1 row)\n");
}

TEST(TablePrinter, SaysThatThereAreMoreRows) {
    EXPECT_EQ(print({{"n"}, {{makeNumber("1")}}, host::ResultCut::Rows}),
              "n\n-\n1\n(the first 1 row; there are more: raise --max-rows to see them)\n");
}

TEST(TablePrinter, PrintsHeadingsWithoutRows) {
    EXPECT_EQ(print({{"a", "b"}, {}}), "a | b\n--+--\n(0 rows)\n");
}

TEST(TablePrinter, SaysWhenAStatementGivesNoColumns) {
    EXPECT_EQ(print({}), "(no result)\n");
}

}  // namespace
