#ifndef BENCH_CASE_RUNNER_H
#define BENCH_CASE_RUNNER_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "temporary_folder.h"

/// What kai_bench is asked to measure.
struct BenchCase {
    std::string name;
    std::vector<std::string> arguments{};
    std::size_t repeats = 1;
    bool hasVectorCopies = false;  ///< the C library copies with vector registers, never with `rep movsb`

    auto operator<=>(const BenchCase&) const = default;
};

/// What one entry of the measured region costs.
struct BenchCost {
    double instructions = 0;
    double seconds = 0;
};

/// Runs kai_bench, each case once, however often it is asked for.
class CaseRunner {
public:
    /// The instructions under callgrind, and the time without it. Throws std::runtime_error when a run fails.
    BenchCost obtainCost(const BenchCase& benchCase);
    /// The system calls in one entry of the measured region, on the thread that enters it, as strace reports them.
    double obtainSystemCalls(const BenchCase& benchCase);
    /// What the case prints in the program that counts allocations.
    std::map<std::string, double> obtainMemory(const BenchCase& benchCase);
    /// The size of a file with its symbols for debugging and linking taken away. Bytes.
    double obtainStrippedSize(const std::string& file) const;

private:
    BenchCost measureCost(const BenchCase& benchCase) const;
    double countSystemCalls(const BenchCase& benchCase) const;

    TemporaryFolder m_folder;
    std::map<BenchCase, BenchCost> m_costs;
    std::map<BenchCase, double> m_systemCalls;
    std::map<BenchCase, std::map<std::string, double>> m_memory;
};

#endif
