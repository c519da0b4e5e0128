#include "terminal/result_writer.h"

#include <gtest/gtest.h>

#include "cf/json.h"
#include "terminal/secret_text.h"

namespace {

using host::Cell;
using host::ResultCut;
using host::ResultFormat;
using host::ResultStyle;

using Row = std::vector<Cell>;

Cell makeCell(Cell::Kind kind, const std::string& bytes) {
    return {kind, bytes, bytes.size()};
}

Cell text(const std::string& bytes) {
    return makeCell(Cell::Kind::Text, bytes);
}

Cell number(const std::string& bytes) {
    return makeCell(Cell::Kind::Number, bytes);
}

std::string write(const ResultStyle& style, const std::vector<std::string>& columns, const std::vector<Row>& rows,
                  ResultCut cut = ResultCut::None) {
    std::string output;
    const auto writer = host::makeResultWriter(style, [&](std::string_view part) { output += part; });
    writer->beginResult(columns);
    for (const Row& row : rows) {
        writer->addRow(row);
    }
    writer->endResult(cut);
    return output;
}

std::string write(ResultFormat format, const std::vector<std::string>& columns, const std::vector<Row>& rows,
                  ResultCut cut = ResultCut::None) {
    return write({.format = format, .isForTerminal = false}, columns, rows, cut);
}

TEST(ResultFormat, IsFoundByItsName) {
    EXPECT_EQ(host::findResultFormat("markdown"), ResultFormat::Markdown);
    EXPECT_EQ(host::findResultFormat("xml"), std::nullopt);
    EXPECT_EQ(host::listResultFormats(), "table, csv, json, markdown, vertical");
}

TEST(ResultWriter, TellsNullFromTextInEachFormat) {
    const std::vector<Row> rows{{Cell{}, text("NULL"), text(""), text("'NULL'")}};
    const std::vector<std::string> columns{"a", "b", "c", "d"};
    EXPECT_EQ(write(ResultFormat::Csv, columns, rows), "a,b,c,d\n,NULL,\"\",'NULL'\n");
    EXPECT_EQ(
        write(ResultFormat::Json, columns, rows),
        "{\"columns\":[\"a\",\"b\",\"c\",\"d\"],\"rows\":[[null,\"NULL\",\"\",\"'NULL'\"]],\"truncated\":false}\n");
    EXPECT_EQ(write(ResultFormat::Markdown, columns, rows),
              "| a | b | c | d |\n|---|---|---|---|\n| *NULL* | 'NULL' |  | ''NULL'' |\n");
    EXPECT_EQ(write(ResultFormat::Vertical, columns, rows),
              "-- row 1 --\na | NULL\nb | 'NULL'\nc | \nd | ''NULL''\n(1 row)\n");
    EXPECT_EQ(write(ResultFormat::Table, columns, rows),
              "a    | b      | c | d\n-----+--------+---+---------\nNULL | 'NULL' |   | ''NULL''\n(1 row)\n");
}

TEST(ResultWriter, QuotesCsvWhereItMust) {
    EXPECT_EQ(write(ResultFormat::Csv, {"a,b"}, {{text("say \"hi\"\n,")}, {text(" plain ")}, {number("1.50")}}),
              "\"a,b\"\n\"say \"\"hi\"\"\n,\"\n plain \n1.50\n");
}

TEST(ResultWriter, WritesValidJsonOfWhatEnginesGive) {
    const std::string json = write(ResultFormat::Json, {"a"},
                                   {{number("12345678901234567890")},
                                    {number("Infinity")},
                                    {number("007")},
                                    {number("1.50")},
                                    {makeCell(Cell::Kind::Boolean, "true")},
                                    {makeCell(Cell::Kind::Blob, std::string("\x1b\x00", 2))},
                                    {text("\x1b\xff\n")}},
                                   ResultCut::Rows);
    EXPECT_EQ(json,
              "{\"columns\":[\"a\"],\"rows\":[[12345678901234567890],[\"Infinity\"],[\"007\"],[1.50],[true],"
              "[\"x'1B00'\"],[\"\\u001b\xef\xbf\xbd\\n\"]],\"truncated\":true}\n");
    EXPECT_TRUE(COJson(std::string_view(json)).getIsValidJson());
}

TEST(ResultWriter, KeepsCsvExactExceptOnATerminal) {
    const std::vector<Row> rows{{text("a\x1b[31m\u200b")}};
    EXPECT_EQ(write(ResultFormat::Csv, {"c"}, rows), "c\na\x1b[31m\u200b\n");
    EXPECT_EQ(write({.format = ResultFormat::Csv, .isForTerminal = true}, {"c"}, rows), "c\na\u241b[31m<U+200B>\n");
}

TEST(ResultWriter, TakesTheSecretOutOfEveryFormat) {
    host::setHiddenSecret("sk-0123456789");
    for (const ResultFormat format :
         {ResultFormat::Table, ResultFormat::Csv, ResultFormat::Json, ResultFormat::Markdown, ResultFormat::Vertical}) {
        const std::string output = write(format, {"sk-0123456789"}, {{text("is sk-0123456789")}});
        EXPECT_EQ(output.find("sk-0"), std::string::npos) << output;
        const bool areAsterisksMarks = format == ResultFormat::Markdown;
        EXPECT_NE(output.find(areAsterisksMarks ? "is \\*\\*\\*" : "is ***"), std::string::npos) << output;
    }
    host::setHiddenSecret("");
}

TEST(ResultWriter, EscapesMarkdown) {
    EXPECT_EQ(write(ResultFormat::Markdown, {"a|b"}, {{text("x|y*\nz")}}), "| a\\|b |\n|---|\n| x\\|y\\*\u240az |\n");
}

TEST(ResultWriter, TurnsATableThatIsTooWideVertical) {
    const std::vector<Row> rows{{text("0123456789"), text("0123456789")}};
    ResultStyle style;
    style.maxTableColumns = 23;
    EXPECT_EQ(write(style, {"a", "b"}, rows).substr(0, 4), "a   ");
    style.maxTableColumns = 22;
    EXPECT_EQ(write(style, {"a", "b"}, rows), "-- row 1 --\na | 0123456789\nb | 0123456789\n(1 row)\n");
    style.maxTableColumns = 5;
    EXPECT_EQ(write(style, {"a"}, {{text("0123456789")}}), "a\n----------\n0123456789\n(1 row)\n");
}

}  // namespace
