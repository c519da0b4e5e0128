#include "terminal/table_printer.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "terminal/text_safety.h"

namespace host {
namespace {

constexpr std::size_t kShownBlobBytes = 8;

std::string describeBlob(const Cell& cell) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text = "x'";
    for (std::size_t i = 0; i < std::min(cell.bytes.size(), kShownBlobBytes); ++i) {
        const auto byte = static_cast<unsigned char>(cell.bytes[i]);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    text += cell.size > kShownBlobBytes ? "\u2026'" : "'";
    return text + " (" + std::to_string(cell.size) + (cell.size == 1 ? " byte)" : " bytes)");
}

/// A text. One that spells NULL, with or without quotes, is put into quotes.
std::string describeText(const Cell& cell, std::size_t maxColumns) {
    std::string text = makeVisible(cell.bytes, LineBreaks::Show);
    const std::size_t first = text.find_first_not_of('\'');
    if (first != std::string::npos &&
        std::string_view(text).substr(first, text.find_last_not_of('\'') - first + 1) == "NULL") {
        text = "'" + text + "'";
    }
    if (cell.size > cell.bytes.size()) {
        text += "\u2026";
    }
    return abbreviateToColumns(text, maxColumns);
}

std::size_t obtainMaxColumns(std::size_t maxCellColumns) {
    return maxCellColumns == 0 ? std::numeric_limits<std::size_t>::max() : maxCellColumns;
}

/// One column of the table, ready to print.
struct PrintedColumn {
    std::vector<std::string> texts;  ///< the heading first
    std::vector<std::size_t> widths;
    std::size_t width = 0;
    bool isNumeric = false;

    void add(std::string text) {
        widths.push_back(measureColumns(text));
        width = std::max(width, widths.back());
        texts.push_back(std::move(text));
    }
};

PrintedColumn makeColumn(const ResultTable& table, std::size_t index, std::size_t maxCellColumns) {
    PrintedColumn column;
    column.add(
        abbreviateToColumns(makeVisible(table.columns[index], LineBreaks::Show), obtainMaxColumns(maxCellColumns)));
    bool hasNumber = false;
    bool hasOther = false;
    for (const std::vector<Cell>& row : table.rows) {
        const Cell& cell = row[index];
        hasNumber = hasNumber || cell.kind == Cell::Kind::Number;
        hasOther = hasOther || cell.kind == Cell::Kind::Text || cell.kind == Cell::Kind::Blob;
        column.add(describeCell(cell, maxCellColumns));
    }
    column.isNumeric = hasNumber && !hasOther;
    return column;
}

void printLine(std::ostream& output, const std::vector<PrintedColumn>& columns, std::size_t line) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const PrintedColumn& column = columns[i];
        const std::string padding(column.width - column.widths[line], ' ');
        const bool isLast = i + 1 == columns.size();
        output << (i == 0 ? "" : " | ");
        if (column.isNumeric) {
            output << padding << column.texts[line];
        } else {
            output << column.texts[line] << (isLast ? std::string() : padding);
        }
    }
    output << '\n';
}

void printRule(std::ostream& output, const std::vector<PrintedColumn>& columns) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
        output << (i == 0 ? "" : "-+-") << std::string(columns[i].width, '-');
    }
    output << '\n';
}

void printCount(std::ostream& output, const ResultTable& table) {
    const std::string count = std::to_string(table.rows.size()) + (table.rows.size() == 1 ? " row" : " rows");
    switch (table.cut) {
        case ResultCut::None:
            output << "(" << count << ")\n";
            break;
        case ResultCut::Rows:
            output << "(the first " << count << "; there are more: raise --max-rows to see them)\n";
            break;
        case ResultCut::Bytes:
            output << "(the first " << count << "; the others are more than is kept at a time: ask for less)\n";
    }
}

std::vector<PrintedColumn> makeColumns(const ResultTable& table, std::size_t maxCellColumns) {
    std::vector<PrintedColumn> columns;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        columns.push_back(makeColumn(table, i, maxCellColumns));
    }
    return columns;
}

}  // namespace

std::string describeCell(const Cell& cell, std::size_t maxCellColumns) {
    switch (cell.kind) {
        case Cell::Kind::Null:
            return "NULL";
        case Cell::Kind::Blob:
            return describeBlob(cell);
        case Cell::Kind::Number:
        case Cell::Kind::Boolean:
            return cell.bytes;
        default:
            return describeText(cell, obtainMaxColumns(maxCellColumns));
    }
}

void printTable(std::ostream& output, const ResultTable& table, std::size_t maxCellColumns) {
    if (table.columns.empty()) {
        output << "(no result)\n";
        return;
    }
    const std::vector<PrintedColumn> columns = makeColumns(table, maxCellColumns);
    printLine(output, columns, 0);
    printRule(output, columns);
    for (std::size_t line = 1; line <= table.rows.size(); ++line) {
        printLine(output, columns, line);
    }
    printCount(output, table);
}

void printVertically(std::ostream& output, const ResultTable& table, std::size_t maxCellColumns) {
    if (table.columns.empty()) {
        output << "(no result)\n";
        return;
    }
    PrintedColumn names;
    for (const std::string& name : table.columns) {
        names.add(abbreviateToColumns(makeVisible(name, LineBreaks::Show), obtainMaxColumns(maxCellColumns)));
    }
    for (std::size_t row = 0; row < table.rows.size(); ++row) {
        output << "-- row " << row + 1 << " --\n";
        for (std::size_t i = 0; i < names.texts.size(); ++i) {
            output << names.texts[i] << std::string(names.width - names.widths[i], ' ') << " | "
                   << describeCell(table.rows[row][i], maxCellColumns) << '\n';
        }
    }
    printCount(output, table);
}

std::size_t measureTable(const ResultTable& table, std::size_t maxCellColumns) {
    constexpr std::size_t kSeparatorColumns = 3;
    const std::vector<PrintedColumn> columns = makeColumns(table, maxCellColumns);
    std::size_t width = columns.empty() ? 0 : (columns.size() - 1) * kSeparatorColumns;
    for (const PrintedColumn& column : columns) {
        width += column.width;
    }
    return width;
}

}  // namespace host
