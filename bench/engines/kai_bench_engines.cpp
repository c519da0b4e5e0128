// Measures what `kai` takes to read structures and to pass on rows, as shares of the engine's own time for the same
// catalogue queries: kai_bench_engines KAI_PROGRAM. Prints two tables in Markdown. With more arguments it is its own
// child that passes on the rows of one query.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "child_process.h"
#include "engine/database.h"
#include "engine/worker_process.h"
#include "engine_subject.h"
#include "terminal/result_writer.h"

namespace {

constexpr int kRuns = 7;
constexpr std::array<std::size_t, 3> kTableCounts{173, 1000, 10000};
constexpr std::size_t kRowCount = 100'000;

/// The median of some runs, in milliseconds.
double measure(const std::function<void()>& action) {
    std::vector<double> times;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        action();
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::nth_element(times.begin(), times.begin() + kRuns / 2, times.end());
    return times[kRuns / 2];
}

void runPrompt(const std::string& program, const std::string& source) {
    ChildProcess process({.arguments = {program, "prompt", "--db", source}});
    process.closeInput();
    if (process.wait() != 0) {
        throw std::runtime_error("kai prompt failed: " + process.obtainErrors());
    }
}

void measureStructures(EngineSubject& subject, const std::string& program) {
    for (const std::size_t count : kTableCounts) {
        subject.makeTables(count);
        host::Database database(subject.obtainSource());
        const double own = measure([&] { subject.askCatalogue(); });
        const double structure = measure([&] { (void)database.readStructure(host::StructureDetail::Keys, {}); });
        const double prompt = measure([&] { runPrompt(program, subject.obtainSource()); });
        std::printf("| %s | %zu | %.1f ms | %.1f ms (%.2f) | %.1f ms (%.2f) |\n", subject.obtainName().c_str(), count,
                    own, structure, structure / own, prompt, prompt / own);
        std::fflush(stdout);
    }
}

/// What passing on the rows of a query in a format took.
struct RowsOut {
    double milliseconds = 0;
    std::size_t bytes = 0;
    double peakMegabytes = 0;  ///< of the largest of the processes
};

/// Writes the rows of a query in a format, counts the bytes and prints them with the milliseconds.
int writeRows(const std::string& program, const std::string& source, const std::string& format,
              const std::string& query) {
    host::WorkerProcess::setProgram(program);
    host::ResultStyle style;
    style.format = host::findResultFormat(format).value();
    style.isForTerminal = false;
    host::QueryLimits limits;
    limits.maxRows = 0;
    limits.maxBytes = host::isForPrograms(style.format) ? 0 : limits.maxBytes;
    std::size_t bytes = 0;
    const auto writer = host::makeResultWriter(style, [&](std::string_view text) { bytes += text.size(); });
    host::Database database(source);
    const auto start = std::chrono::steady_clock::now();
    database.run(query, limits, *writer, {});
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    std::printf("%.3f %zu\n", time.count(), bytes);
    return 0;
}

/// Does so in a process of its own, whose memory can be measured.
RowsOut measureRowsOut(const std::string& program, EngineSubject& subject, const std::string& format) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const std::string source = subject.obtainSource();
    const std::string query = subject.makeRowQuery(kRowCount);
    const pid_t process = fork();
    if (process == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl("/proc/self/exe", "kai_bench_engines", program.c_str(), source.c_str(), format.c_str(), query.c_str(),
              nullptr);
        _exit(127);
    }
    close(ends[1]);
    std::array<char, 256> text{};
    const ssize_t size = read(ends[0], text.data(), text.size() - 1);
    close(ends[0]);
    rusage usage{};
    int status = -1;
    wait4(process, &status, 0, &usage);
    RowsOut out;
    if (status != 0 || size <= 0 || std::sscanf(text.data(), "%lf %zu", &out.milliseconds, &out.bytes) != 2) {
        throw std::runtime_error("writing rows failed");
    }
    constexpr double kKilobytesAMegabyte = 1024;
    out.peakMegabytes = static_cast<double>(usage.ru_maxrss) / kKilobytesAMegabyte;
    return out;
}

void measureRows(EngineSubject& subject, const std::string& program) {
    subject.makeTables(kTableCounts.front());
    for (const char* format : {"table", "csv", "json", "markdown", "vertical"}) {
        std::vector<RowsOut> runs;
        for (int i = 0; i < kRuns; ++i) {
            runs.push_back(measureRowsOut(program, subject, format));
        }
        std::nth_element(
            runs.begin(), runs.begin() + kRuns / 2, runs.end(),
            [](const RowsOut& one, const RowsOut& other) { return one.milliseconds < other.milliseconds; });
        const RowsOut& median = runs[kRuns / 2];
        std::printf("| %s | %s | %.0f ms | %.1f MB | %.0f MB |\n", subject.obtainName().c_str(), format,
                    median.milliseconds, static_cast<double>(median.bytes) / 1e6, median.peakMegabytes);
        std::fflush(stdout);
    }
}

void measureAll(const std::string& program) {
    host::WorkerProcess::setProgram(program);
    std::vector<std::unique_ptr<EngineSubject>> subjects;
    std::printf("| engine | tables | catalogue queries alone | structure (share) | `kai prompt` (share) |\n");
    std::printf("|---|---|---|---|---|\n");
    for (const auto& makeSubject : listEngineSubjects()) {
        subjects.push_back(makeSubject());
        measureStructures(*subjects.back(), program);
    }
    std::printf("\n| engine | format | time | written | peak memory |\n|---|---|---|---|---|\n");
    for (const auto& subject : subjects) {
        measureRows(*subject, program);
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    constexpr int kArgumentsToWriteRows = 5;
    if (argumentCount != 2 && argumentCount != kArgumentsToWriteRows) {
        std::fprintf(stderr, "usage: kai_bench_engines KAI_PROGRAM [SOURCE FORMAT QUERY]\n");
        return 2;
    }
    try {
        if (argumentCount == kArgumentsToWriteRows) {
            return writeRows(arguments[1], arguments[2], arguments[3], arguments[4]);
        }
        measureAll(arguments[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kai_bench_engines: %s\n", error.what());
        return 1;
    }
}
