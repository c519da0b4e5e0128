#include "case_runner.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "child_process.h"
#include "meter.h"

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

/// @param tool  the program, with its arguments, that runs the measured one
std::vector<std::string> buildCommand(const std::string& program, const BenchCase& benchCase,
                                      const std::vector<std::string>& tool = {}) {
    std::vector<std::string> command;
    if (benchCase.hasVectorCopies) {
        // The size from which on the C library copies with `rep movsb`.
        command = {"env", "GLIBC_TUNABLES=glibc.cpu.x86_rep_movsb_threshold=0x7fffffff"};
    }
    command.insert(command.end(), tool.begin(), tool.end());
    command.insert(command.end(), {obtainSiblingPath(program), benchCase.name, std::to_string(benchCase.repeats)});
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

/// The calls in strace's output, one a line, between the meter's marks.
double countBetweenMarks(const std::string& file) {
    std::ifstream stream(file);
    bool isBetween = false;
    bool wasEntered = false;
    double count = 0;
    for (std::string line; std::getline(stream, line);) {
        if (line.find(kBeginMark) != std::string::npos) {
            isBetween = wasEntered = true;
        } else if (line.find(kEndMark) != std::string::npos) {
            isBetween = false;
        } else if (isBetween && line.find('(') != std::string::npos) {
            ++count;
        }
    }
    if (!wasEntered) {
        throw std::runtime_error("strace saw no measured region");
    }
    return count;
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
    std::fprintf(stderr, "measuring: %s", benchCase.name.c_str());
    for (const std::string& argument : benchCase.arguments) {
        std::fprintf(stderr, " %s", argument.c_str());
    }
    std::fprintf(stderr, "%s\n", benchCase.hasVectorCopies ? ", by vector copies" : "");
    runCommand(buildCommand("kai_bench", benchCase,
                            {"valgrind", "--quiet", "--tool=callgrind", "--collect-atstart=no", "--instr-atstart=no",
                             "--callgrind-out-file=" + counts}));
    return {.instructions = readTotalInstructions(counts) / static_cast<double>(benchCase.repeats),
            .seconds = runCase("kai_bench", benchCase)["seconds"]};
}

double CaseRunner::obtainSystemCalls(const BenchCase& benchCase) {
    const auto found = m_systemCalls.find(benchCase);
    return found != m_systemCalls.end() ? found->second : m_systemCalls[benchCase] = countSystemCalls(benchCase);
}

double CaseRunner::countSystemCalls(const BenchCase& benchCase) const {
    const std::string calls = m_folder.name("strace.out");
    runCommand(buildCommand("kai_bench", benchCase, {"strace", "-o", calls}));
    return countBetweenMarks(calls) / static_cast<double>(benchCase.repeats);
}

double CaseRunner::obtainStrippedSize(const std::string& file) const {
    const std::string stripped = m_folder.name("stripped");
    runCommand({"strip", "-o", stripped, file});
    return static_cast<double>(std::filesystem::file_size(stripped));
}
