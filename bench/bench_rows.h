#ifndef BENCH_ROWS_H
#define BENCH_ROWS_H

#include <optional>
#include <string>
#include <vector>

#include "case_runner.h"

/// A line of the table.
struct BenchRow {
    std::string key;   ///< its name in the file of budgets
    std::string what;  ///< for people
    std::string floor{};
    std::string ours{};
    double value = 0;    ///< what is judged: less is better
    std::string unit{};  ///< behind the value
    std::optional<double> target{};
    std::optional<double> moonshot{};
    std::string floorTime{};
    std::string ourTime{};
    /// The value depends on when the peer's bytes come, so the target, which all rows of this kind have, is the budget.
    bool isTimed = false;
};

/// Measures everything.
/// @param isQuick  leaves out what takes minutes
std::vector<BenchRow> measureRows(CaseRunner& runner, bool isQuick);

#endif
