#include "bench_report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "number_format.h"
#include "temporary_folder.h"

namespace {

constexpr const char* kTableStart = "<!-- the table is written by scripts/bench --write -->\n";
constexpr const char* kTableEnd = "<!-- end of the table -->\n";
constexpr double kSpare = 1.05;

using Line = std::vector<std::string>;

std::string judge(const BenchRow& row) {
    if (row.moonshot && row.value <= *row.moonshot) {
        return "moonshot";
    }
    if (row.target) {
        return row.value <= *row.target ? "target" : "**missed**";
    }
    return row.moonshot ? "above" : "";
}

std::string formatGoal(const std::optional<double>& goal, const std::string& unit) {
    return goal ? "≤ " + formatValue(*goal) + unit : "";
}

Line formatRow(const BenchRow& row) {
    return {row.what,
            row.floor,
            row.ours,
            formatValue(row.value) + row.unit,
            formatGoal(row.target, row.unit),
            formatGoal(row.moonshot, row.unit),
            judge(row),
            row.floorTime,
            row.ourTime};
}

/// The places that a UTF-8 text takes: bytes that go on with a character take none.
std::size_t measureWidth(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](unsigned char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string formatLine(const Line& cells, const std::vector<std::size_t>& widths) {
    std::string text = "|";
    for (std::size_t i = 0; i < cells.size(); ++i) {
        text += ' ' + cells[i] + std::string(widths[i] - measureWidth(cells[i]), ' ') + " |";
    }
    return text + '\n';
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::binary);
    if (!(stream << text).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace

std::string formatTable(const std::vector<BenchRow>& rows) {
    std::vector<Line> lines{
        {"what", "floor", "ours", "value", "target", "moonshot", "reached", "floor's time", "our time"}};
    std::transform(rows.begin(), rows.end(), std::back_inserter(lines), formatRow);
    std::vector<std::size_t> widths(lines.front().size(), 3);
    for (const Line& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], measureWidth(line[i]));
        }
    }
    Line rule;
    std::transform(widths.begin(), widths.end(), std::back_inserter(rule),
                   [](std::size_t width) { return std::string(width, '-'); });
    lines.insert(std::next(lines.begin()), rule);
    std::string table;
    for (const Line& line : lines) {
        table += formatLine(line, widths);
    }
    return table;
}

void writeTableToPage(const std::string& page, const std::string& table) {
    const std::string text = readFile(page);
    const std::size_t start = text.find(kTableStart);
    const std::size_t end = text.find(kTableEnd);
    if (start == std::string::npos || end == std::string::npos || end < start) {
        throw std::runtime_error(page + " has no place for the table");
    }
    writeFile(page, text.substr(0, start) + kTableStart + '\n' + table + '\n' + text.substr(end));
}

void writeBudgets(const std::string& file, const std::vector<BenchRow>& rows) {
    std::string text =
        "# What scripts/bench --check compares with: each value may be 5 % above. Set by --set-budgets.\n";
    for (const BenchRow& row : rows) {
        text += row.key + ' ' + std::to_string(row.isTimed ? row.target.value() : row.value) + '\n';
    }
    writeFile(file, text);
}

bool checkBudgets(const std::string& file, const std::vector<BenchRow>& rows) {
    std::map<std::string, double> budgets;
    std::istringstream stream(readFile(file));
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::string key;
        if (double value = 0; words >> key >> value) {
            budgets[key] = value;
        }
    }
    bool isWithin = true;
    for (const BenchRow& row : rows) {
        const auto budget = budgets.find(row.key);
        if (budget == budgets.end()) {
            std::printf("%s: has no budget in %s\n", row.key.c_str(), file.c_str());
            isWithin = false;
        } else if (row.value > budget->second * kSpare) {
            std::printf("%s: %s is more than 5 %% above its budget of %s\n", row.key.c_str(),
                        formatValue(row.value).c_str(), formatValue(budget->second).c_str());
            isWithin = false;
        }
    }
    return isWithin;
}
