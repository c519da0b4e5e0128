#include "fuzz_tables.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "cf/json.h"
#include "fuzz_require.h"
#include "terminal/result_writer.h"
#include "terminal/secret_text.h"
#include "terminal/table_printer.h"
#include "terminal/text_safety.h"
#include "terminal/utf8.h"

namespace {

using host::Cell;
using host::ResultFormat;
using host::ResultStyle;
using host::ResultTable;
using Strings = std::vector<std::string>;

/// Takes the bytes of an input off one after the other; behind its end there are zeroes and empty texts.
class InputReader {
public:
    explicit InputReader(std::string_view input) : m_rest(input) {}

    [[nodiscard]] bool hasMore() const { return !m_rest.empty(); }
    std::size_t takeByte() {
        const std::string_view taken = takeBytes(1);
        return taken.empty() ? 0 : static_cast<unsigned char>(taken.front());
    }
    std::string_view takeText() {
        constexpr char kEnd = '\x1e';
        const std::string_view text = takeBytes(std::min(m_rest.find(kEnd), m_rest.size()));
        takeBytes(1);
        return text;
    }

private:
    std::string_view takeBytes(std::size_t count) {
        const std::string_view taken = m_rest.substr(0, count);
        m_rest.remove_prefix(taken.size());
        return taken;
    }

    std::string_view m_rest;
};

bool isNumber(std::string_view text) {
    return text == "NaN" || text == "-Infinity" ||
           (!text.empty() && text.find_first_not_of("0123456789+-.eE") == std::string_view::npos);
}

Cell takeCell(InputReader& reader, const host::QueryLimits& limits) {
    const std::size_t kind = reader.takeByte() % 5;
    const std::string_view value = reader.takeText();
    if (kind == 0) {
        return {};
    }
    if (kind == 1 && isNumber(value)) {
        return host::makeCell(Cell::Kind::Number, value, {.maxCellBytes = 0});
    }
    if (kind == 2) {
        return host::makeCell(Cell::Kind::Boolean, value.empty() ? "false" : "true", {.maxCellBytes = 0});
    }
    return host::makeCell(kind == 3 ? Cell::Kind::Blob : Cell::Kind::Text, value, limits);
}

ResultTable takeTable(InputReader& reader) {
    constexpr std::size_t kMostColumns = 6;
    ResultTable table;
    const host::QueryLimits limits{.maxCellBytes = reader.takeByte()};
    table.cut = static_cast<host::ResultCut>(reader.takeByte() % 3);
    for (std::size_t count = reader.takeByte() % kMostColumns; count > 0; --count) {
        table.columns.emplace_back(reader.takeText());
    }
    while (!table.columns.empty() && reader.hasMore()) {
        std::vector<Cell> row;
        for (std::size_t i = 0; i < table.columns.size(); ++i) {
            row.push_back(takeCell(reader, limits));
        }
        table.rows.push_back(std::move(row));
    }
    return table;
}

std::string write(const ResultTable& table, const ResultStyle& style) {
    std::string text;
    const auto writer = host::makeResultWriter(style, [&](std::string_view part) { text += part; });
    writer->beginResult(table.columns);
    for (const std::vector<Cell>& row : table.rows) {
        writer->addRow(row);
    }
    writer->endResult(table.cut);
    require(text.find(kFuzzedSecret) == std::string::npos, "no secret is printed");
    return text;
}

Strings splitLines(std::string_view text) {
    Strings lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        require(end != std::string_view::npos, "every line is ended");
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return lines;
}

/// The character that begins at a column of a line; a blank where none does.
char32_t findCharacterAt(const std::string& line, std::size_t wantedColumn) {
    std::size_t column = 0;
    for (std::size_t position = 0; position < line.size();) {
        const std::size_t start = position;
        const char32_t character = host::decodeCharacter(line, position);
        const std::size_t width = host::measureColumns(std::string_view(line).substr(start, position - start));
        if (column == wantedColumn && width != 0) {
            return character;
        }
        column += width;
    }
    return ' ';
}

void checkIsVisible(const Strings& lines) {
    for (const std::string& line : lines) {
        require(host::makeVisible(line, host::LineBreaks::Show) == line, "nothing can act on the terminal");
    }
}

void checkTable(const ResultTable& table, const ResultStyle& style) {
    std::ostringstream output;
    host::printTable(output, table, style.maxCellColumns);
    const Strings lines = splitLines(output.str());
    checkIsVisible(lines);
    if (table.columns.empty()) {
        return;
    }
    require(lines.size() == table.rows.size() + 3, "a row is a line, between the heading, the rule and the count");
    const std::string& rule = lines[1];
    require(host::measureTable(table, style.maxCellColumns) == rule.size(), "a table is as wide as its rule");
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        require(host::measureColumns(lines[i]) <= rule.size(), "no line is wider than the rule");
        for (std::size_t place = rule.find('+'); i != 1 && place != std::string::npos;
             place = rule.find('+', place + 1)) {
            require(findCharacterAt(lines[i], place) == '|', "columns stand below each other");
        }
    }
}

/// The width of the widest name of a column.
std::size_t measureNames(const ResultTable& table, const ResultStyle& style) {
    std::size_t width = 0;
    for (const std::string& column : table.columns) {
        const std::string name = host::makeVisible(column, host::LineBreaks::Show);
        const std::size_t most = style.maxCellColumns == 0 ? name.size() : style.maxCellColumns;
        width = std::max(width, host::measureColumns(host::abbreviateToColumns(name, most)));
    }
    return width;
}

void checkVertically(const ResultTable& table, const ResultStyle& style) {
    std::ostringstream output;
    host::printVertically(output, table, style.maxCellColumns);
    const Strings lines = splitLines(output.str());
    checkIsVisible(lines);
    if (table.columns.empty()) {
        return;
    }
    require(lines.size() == table.rows.size() * (table.columns.size() + 1) + 1, "a value is a line");
    const std::size_t width = measureNames(table, style);
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        require(i % (table.columns.size() + 1) == 0 || findCharacterAt(lines[i], width + 1) == '|',
                "values stand below each other");
    }
}

void checkChoiceOfTable(const ResultTable& table, const ResultStyle& style) {
    std::ostringstream expected;
    const bool isTooWide = style.maxTableColumns != 0 && table.columns.size() > 1 &&
                           host::measureTable(table, style.maxCellColumns) > style.maxTableColumns;
    (isTooWide ? host::printVertically : host::printTable)(expected, table, style.maxCellColumns);
    require(write(table, style) == expected.str(), "a table that is too wide is printed vertically");
}

/// The bars of a Markdown line that part its cells: those without a backslash.
std::size_t countBars(std::string_view line) {
    std::size_t bars = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\') {
            ++i;
        } else if (line[i] == '|') {
            ++bars;
        }
    }
    return bars;
}

void checkMarkdown(const ResultTable& table, ResultStyle style) {
    style.format = ResultFormat::Markdown;
    const Strings lines = splitLines(write(table, style));
    checkIsVisible(lines);
    if (table.columns.empty()) {
        return;
    }
    require(lines.size() == table.rows.size() + 2, "a row is a line below the heading and the rule");
    for (const std::string& line : lines) {
        require(countBars(line) == table.columns.size() + 1, "every line has the same columns");
    }
}

/// A value as CSV and JSON hold it.
std::string describeWhole(const Cell& cell, const ResultStyle& style) {
    if (cell.kind != Cell::Kind::Blob) {
        return style.isForTerminal ? host::makeVisible(cell.bytes, host::LineBreaks::Show)
                                   : host::replaceSecret(cell.bytes, kFuzzedSecret);
    }
    std::string text = "x'";
    for (const char character : cell.bytes) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        text += kDigits[static_cast<unsigned char>(character) >> 4];
        text += kDigits[static_cast<unsigned char>(character) & 0xF];
    }
    return text + "'";
}

Cell makeTextCell(const std::string& text) {
    return {Cell::Kind::Text, text, text.size()};
}

/// A record of a CSV file as RFC 4180 has them, with line feeds. NULL is a field without quotes and without a
/// character.
std::vector<Cell> takeCsvRecord(std::string_view& rest) {
    std::vector<Cell> record;
    while (true) {
        std::string field;
        const bool isQuoted = rest.starts_with('"');
        if (isQuoted) {
            for (rest.remove_prefix(1); !rest.empty() && (rest.front() != '"' || rest.starts_with("\"\""));
                 rest.remove_prefix(1)) {
                rest.remove_prefix(rest.front() == '"' ? 1 : 0);
                field += rest.front();
            }
            require(!rest.empty(), "a quoted field ends");
            rest.remove_prefix(1);
        } else {
            field = rest.substr(0, rest.find_first_of(",\n"));
            rest.remove_prefix(field.size());
        }
        record.push_back(field.empty() && !isQuoted ? Cell{} : makeTextCell(field));
        require(!rest.empty() && (rest.front() == ',' || rest.front() == '\n'), "a field ends with a comma or a line");
        const bool isLast = rest.front() == '\n';
        rest.remove_prefix(1);
        if (isLast) {
            return record;
        }
    }
}

bool isSameInCsv(const Cell& read, const Cell& given, const ResultStyle& style) {
    return read.kind == Cell::Kind::Null || given.kind == Cell::Kind::Null ? read.kind == given.kind
                                                                           : read.bytes == describeWhole(given, style);
}

void checkCsv(const ResultTable& table, ResultStyle style) {
    if (table.columns.empty()) {
        return;
    }
    style.format = ResultFormat::Csv;
    std::vector<std::vector<Cell>> given{{}};
    std::transform(table.columns.begin(), table.columns.end(), std::back_inserter(given.front()), makeTextCell);
    given.insert(given.end(), table.rows.begin(), table.rows.end());
    const std::string text = write(table, style);
    std::string_view rest = text;
    for (const std::vector<Cell>& row : given) {
        const std::vector<Cell> record = takeCsvRecord(rest);
        require(std::equal(row.begin(), row.end(), record.begin(), record.end(),
                           [&](const Cell& cell, const Cell& read) { return isSameInCsv(read, cell, style); }),
                "CSV can be read back");
    }
    require(rest.empty(), "CSV holds nothing else");
}

/// The text with U+FFFD for what is no UTF-8.
std::string replaceIllFormed(const std::string& text) {
    std::string replaced;
    for (std::size_t position = 0; position < text.size();) {
        host::appendCharacter(replaced, host::decodeCharacter(text, position));
    }
    return replaced;
}

bool isSameInJson(const COJsonValue& read, const Cell& given, const ResultStyle& style) {
    switch (given.kind) {
        case Cell::Kind::Null:
            return read.obtainType() == COJsonValue::Type::Null;
        case Cell::Kind::Boolean:
            return read.obtainJsonString() == given.bytes;
        case Cell::Kind::Number:
            if (read.isNumber()) {
                return true;
            }
            [[fallthrough]];
        default:
            return read.isString() && read.obtainString() == replaceIllFormed(describeWhole(given, style));
    }
}

void checkJson(const ResultTable& table, ResultStyle style) {
    style.format = ResultFormat::Json;
    const std::string text = write(table, style);
    const COJson json{std::string_view(text)};
    require(json.getIsValidJson() && splitLines(text).size() == 1, "a result is one line of JSON");
    std::size_t column = 0;
    for (const COJsonValue name : json.obtainMember("columns").obtainItems()) {
        require(isSameInJson(name, makeTextCell(table.columns.at(column++)), style), "JSON has the columns' names");
    }
    std::size_t row = 0;
    for (const COJsonValue values : json.obtainMember("rows").obtainItems()) {
        std::size_t place = 0;
        for (const COJsonValue value : values.obtainItems()) {
            require(isSameInJson(value, table.rows.at(row).at(place++), style), "JSON has the values");
        }
        require(place == table.columns.size(), "JSON has all values of a row");
        ++row;
    }
    require(column == table.columns.size() && row == table.rows.size(), "JSON has all rows");
}

}  // namespace

void printTableInput(std::string_view input) {
    const QuietAssertions quiet;
    host::setHiddenSecret(kFuzzedSecret);
    InputReader reader(input);
    ResultStyle style;
    style.isForTerminal = reader.takeByte() % 2 != 0;
    style.maxCellColumns = reader.takeByte();
    style.maxTableColumns = reader.takeByte();
    const ResultTable table = takeTable(reader);
    checkTable(table, style);
    checkVertically(table, style);
    checkChoiceOfTable(table, style);
    checkMarkdown(table, style);
    checkCsv(table, style);
    checkJson(table, style);
}
