// Measures everything and prints one table.
//
//   kai_bench_table [--quick] [--write PAGE] [--set-budgets FILE] [--check FILE]

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_report.h"
#include "bench_rows.h"

namespace {

struct Options {
    bool isQuick = false;
    std::string page;
    std::string newBudgets;
    std::string budgets;
};

Options readOptions(const std::vector<std::string>& words) {
    Options options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--quick") {
            options.isQuick = true;
        } else if (words[i] == "--write") {
            options.page = words.at(++i);
        } else if (words[i] == "--set-budgets") {
            options.newBudgets = words.at(++i);
        } else if (words[i] == "--check") {
            options.budgets = words.at(++i);
        } else {
            throw std::runtime_error("unknown argument: " + words[i]);
        }
    }
    return options;
}

int runTable(const Options& options) {
    CaseRunner runner;
    const std::vector<BenchRow> rows = measureRows(runner, options.isQuick);
    const std::string table = formatTable(rows);
    std::printf("%s", table.c_str());
    if (!options.page.empty()) {
        writeTableToPage(options.page, table);
    }
    if (!options.newBudgets.empty()) {
        writeBudgets(options.newBudgets, rows);
    }
    return options.budgets.empty() || checkBudgets(options.budgets, rows) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runTable(readOptions({argv + 1, argv + argc}));
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "kai_bench_table: %s\n", exception.what());
        return 2;
    }
}
