#include "case_runner.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "child_process.h"

namespace {

using Values = std::map<std::string, double>;

Values readValues(const std::string& text) {
    std::istringstream stream(text);
    Values values;
    std::string name;
    double value = 0;
    while (stream >> name >> value) {
        values[name] = value;
    }
    return values;
}

std::vector<std::string> buildCommand(const std::string& program, const BenchCase& benchCase) {
    std::vector<std::string> command{obtainSiblingPath(program), benchCase.name, std::to_string(benchCase.repeats)};
    command.insert(command.end(), benchCase.arguments.begin(), benchCase.arguments.end());
    return command;
}

/// Runs a program to its end. Throws std::runtime_error when it does not exit with 0.
std::string runCommand(const std::vector<std::string>& command) {
    ChildProcess process(
        {.arguments = command, .errors = ChildProcessSetup::Errors::Inherited, .patience = std::chrono::hours(1)});
    process.closeInput();
    if (process.wait() != 0) {
        throw std::runtime_error(command.front() + " failed");
    }
    return process.obtainOutput();
}

Values runCase(const std::string& program, const BenchCase& benchCase) {
    return readValues(runCommand(buildCommand(program, benchCase)));
}

double readTotalInstructions(const std::string& file) {
    std::ifstream stream(file);
    for (std::string word; stream >> word;) {
        if (word == "totals:") {
            double total = 0;
            stream >> total;
            return total;
        }
    }
    throw std::runtime_error("callgrind left no totals");
}

}  // namespace

BenchCost CaseRunner::obtainCost(const BenchCase& benchCase) {
    const auto found = m_costs.find(benchCase);
    return found != m_costs.end() ? found->second : m_costs[benchCase] = measureCost(benchCase);
}

Values CaseRunner::obtainMemory(const BenchCase& benchCase) {
    const auto found = m_memory.find(benchCase);
    return found != m_memory.end() ? found->second : m_memory[benchCase] = runCase("kai_bench_memory", benchCase);
}

BenchCost CaseRunner::measureCost(const BenchCase& benchCase) const {
    const std::string counts = m_folder.name("callgrind.out");
    std::vector<std::string> command{"valgrind",           "--quiet",
                                     "--tool=callgrind",   "--collect-atstart=no",
                                     "--instr-atstart=no", "--callgrind-out-file=" + counts};
    const std::vector<std::string> bare = buildCommand("kai_bench", benchCase);
    command.insert(command.end(), bare.begin(), bare.end());
    std::fprintf(stderr, "measuring:");
    for (auto word = std::next(bare.begin()); word != bare.end(); ++word) {
        std::fprintf(stderr, " %s", word->c_str());
    }
    std::fprintf(stderr, "\n");
    runCommand(command);
    return {.instructions = readTotalInstructions(counts) / static_cast<double>(benchCase.repeats),
            .seconds = runCase("kai_bench", benchCase)["seconds"]};
}

double CaseRunner::obtainStrippedSize(const std::string& file) const {
    const std::string stripped = m_folder.name("stripped");
    runCommand({"strip", "-o", stripped, file});
    return static_cast<double>(std::filesystem::file_size(stripped));
}
