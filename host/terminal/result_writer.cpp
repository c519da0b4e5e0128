#include "terminal/result_writer.h"

#include <algorithm>
#include <array>
#include <limits>
#include <sstream>
#include <utility>
#include <vector>

#include "cf/json.h"
#include "terminal/secret_text.h"
#include "terminal/table_printer.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

using Printer = std::function<void(std::string_view)>;

struct FormatName {
    std::string_view name;
    ResultFormat format;
};

constexpr std::array<FormatName, 5> kFormats{{{"table", ResultFormat::Table},
                                              {"csv", ResultFormat::Csv},
                                              {"json", ResultFormat::Json},
                                              {"markdown", ResultFormat::Markdown},
                                              {"vertical", ResultFormat::Vertical}}};

std::string writeBlob(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text = "x'";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text + "'";
}

/// A complete value as text.
std::string writeValue(const Cell& cell, bool isForTerminal) {
    if (cell.kind == Cell::Kind::Blob) {
        return writeBlob(cell.bytes);
    }
    return isForTerminal ? makeVisible(cell.bytes, LineBreaks::Show) : replaceSecret(cell.bytes, obtainHiddenSecret());
}

std::string writeText(std::string_view text, bool isForTerminal) {
    return writeValue({Cell::Kind::Text, std::string(text), text.size()}, isForTerminal);
}

class CsvWriter : public RowReceiver {
public:
    CsvWriter(bool isForTerminal, Printer print) : m_isForTerminal(isForTerminal), m_print(std::move(print)) {}

    void beginResult(const std::vector<std::string>& columns) override {
        std::vector<Cell> heading;
        heading.reserve(columns.size());
        for (const std::string& column : columns) {
            heading.push_back({Cell::Kind::Text, column, column.size()});
        }
        addRow(std::move(heading));
    }

    void addRow(std::vector<Cell> row) override {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += i == 0 ? "" : ",";
            if (row[i].kind != Cell::Kind::Null) {
                line += quote(writeValue(row[i], m_isForTerminal));
            }
        }
        m_print(line + "\n");
    }

    void endResult(ResultCut /*cut*/) override {}

private:
    static std::string quote(const std::string& value) {
        if (!value.empty() && value.find_first_of(",\"\r\n") == std::string::npos) {
            return value;
        }
        std::string quoted = "\"";
        for (const char character : value) {
            quoted += character;
            quoted += character == '"' ? "\"" : "";
        }
        return quoted + "\"";
    }

    bool m_isForTerminal;
    Printer m_print;
};

class JsonResultWriter : public RowReceiver {
public:
    JsonResultWriter(bool isForTerminal, Printer print) : m_isForTerminal(isForTerminal), m_print(std::move(print)) {}

    void beginResult(const std::vector<std::string>& columns) override {
        std::string text = "{\"columns\":[";
        for (std::size_t i = 0; i < columns.size(); ++i) {
            text += i == 0 ? "" : ",";
            appendString(text, writeText(columns[i], m_isForTerminal));
        }
        m_print(text + "],\"rows\":[");
        m_hasRow = false;
    }

    void addRow(std::vector<Cell> row) override {
        std::string text = std::exchange(m_hasRow, true) ? ",[" : "[";
        for (std::size_t i = 0; i < row.size(); ++i) {
            text += i == 0 ? "" : ",";
            appendValue(text, row[i]);
        }
        m_print(text + "]");
    }

    void endResult(ResultCut cut) override {
        m_print(cut == ResultCut::None ? "],\"truncated\":false}\n" : "],\"truncated\":true}\n");
    }

private:
    static void appendString(std::string& text, std::string_view value) {
        COJsonWriter writer(text);
        writer.writeString(value);
        writer.finish();
    }

    /// Whether an engine's number is valid in JSON: "Infinity" and "007" are not.
    static bool isJsonNumber(const std::string& text) {
        return COJson(std::string_view(text)).obtainType() == COJsonValue::Type::Number;
    }

    void appendValue(std::string& text, const Cell& cell) const {
        const bool isAsItIs =
            cell.kind == Cell::Kind::Boolean || (cell.kind == Cell::Kind::Number && isJsonNumber(cell.bytes));
        if (cell.kind == Cell::Kind::Null) {
            text += "null";
        } else if (isAsItIs) {
            text += cell.bytes;
        } else {
            appendString(text, writeValue(cell, m_isForTerminal));
        }
    }

    bool m_isForTerminal;
    bool m_hasRow = false;
    Printer m_print;
};

class MarkdownWriter : public RowReceiver {
public:
    MarkdownWriter(std::size_t maxCellColumns, Printer print)
        : m_maxCellColumns(maxCellColumns), m_print(std::move(print)) {}

    void beginResult(const std::vector<std::string>& columns) override {
        std::string heading = "|";
        std::string rule = "|";
        for (const std::string& column : columns) {
            heading += " " + escape(makeVisible(column, LineBreaks::Show)) + " |";
            rule += "---|";
        }
        m_print(columns.empty() ? "(no result)\n" : heading + "\n" + rule + "\n");
    }

    void addRow(std::vector<Cell> row) override {
        std::string line = "|";
        for (const Cell& cell : row) {
            line +=
                " " + (cell.kind == Cell::Kind::Null ? "*NULL*" : escape(describeCell(cell, m_maxCellColumns))) + " |";
        }
        m_print(line + "\n");
    }

    void endResult(ResultCut /*cut*/) override {}

private:
    static std::string escape(const std::string& text) {
        std::string escaped;
        for (const char character : text) {
            escaped += character == '|' || character == '\\' || character == '*' ? "\\" : "";
            escaped += character;
        }
        return escaped;
    }

    std::size_t m_maxCellColumns;
    Printer m_print;
};

/// Prints tables; those that are too wide, or all, row by row.
class TableWriter : public ResultCollector {
public:
    TableWriter(const ResultStyle& style, const Printer& print)
        : ResultCollector([style, print](const ResultTable& table) {
              std::ostringstream text;
              // A single column is equally wide in both forms.
              const bool isTooWide = style.maxTableColumns != 0 && table.columns.size() > 1 &&
                                     measureTable(table, style.maxCellColumns) > style.maxTableColumns;
              if (style.format == ResultFormat::Vertical || isTooWide) {
                  printVertically(text, table, style.maxCellColumns);
              } else {
                  printTable(text, table, style.maxCellColumns);
              }
              print(text.str());
          }) {}
};

}  // namespace

std::optional<ResultFormat> findResultFormat(std::string_view name) {
    const auto* found =
        std::find_if(kFormats.begin(), kFormats.end(), [&](const FormatName& row) { return row.name == name; });
    return found != kFormats.end() ? std::optional<ResultFormat>(found->format) : std::nullopt;
}

std::string listResultFormats() {
    std::string names;
    for (const FormatName& row : kFormats) {
        names += (names.empty() ? "" : ", ") + std::string(row.name);
    }
    return names;
}

bool isForPrograms(ResultFormat format) noexcept {
    return format == ResultFormat::Csv || format == ResultFormat::Json;
}

std::unique_ptr<RowReceiver> makeResultWriter(const ResultStyle& style, Printer print) {
    switch (style.format) {
        case ResultFormat::Csv:
            return std::make_unique<CsvWriter>(style.isForTerminal, std::move(print));
        case ResultFormat::Json:
            return std::make_unique<JsonResultWriter>(style.isForTerminal, std::move(print));
        case ResultFormat::Markdown:
            return std::make_unique<MarkdownWriter>(style.maxCellColumns, std::move(print));
        default:
            return std::make_unique<TableWriter>(style, print);
    }
}

}  // namespace host
