#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <string>
#include <vector>

#include "bench_rows.h"

/// The rows as a Markdown table, its columns aligned so that it reads well as it is.
[[nodiscard]] std::string formatTable(const std::vector<BenchRow>& rows);

/// Replaces what stands between the two marks of a page by the table. Throws std::runtime_error when there are none.
void writeTableToPage(const std::string& page, const std::string& table);

// Budgets: the value of each row when they were set, "key value" a line.

void writeBudgets(const std::string& file, const std::vector<BenchRow>& rows);

/// Prints each row that is more than 5 % above its budget, or has none.
/// @return whether there was none
[[nodiscard]] bool checkBudgets(const std::string& file, const std::vector<BenchRow>& rows);

#endif
