// Measures what `kai` takes to read structures and to pass on rows, as shares of the engine's own time for the same
// catalogue queries: kai_bench_engines KAI_PROGRAM. Prints two tables in Markdown.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "child_process.h"
#include "engine/database.h"
#include "engine/worker_process.h"
#include "engine_subject.h"

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

/// Counts rows and keeps none.
class RowCounter : public host::RowReceiver {
public:
    void beginResult(const std::vector<std::string>& /*columns*/) override {}
    void addRow(std::vector<host::Cell> /*row*/) override { ++m_count; }
    void endResult(host::ResultCut /*cut*/) override {}
    [[nodiscard]] std::size_t obtainCount() const noexcept { return m_count; }

private:
    std::size_t m_count = 0;
};

void measureRows(EngineSubject& subject) {
    host::Database database(subject.obtainSource());
    host::QueryLimits limits;
    limits.maxRows = 0;
    limits.maxBytes = 0;
    std::size_t rows = 0;
    const double time = measure([&] {
        RowCounter counter;
        database.run(subject.makeRowQuery(kRowCount), limits, counter, {});
        rows = counter.obtainCount();
    });
    std::printf("| %s | %zu | %.0f ms | %.0f |\n", subject.obtainName().c_str(), rows, time,
                static_cast<double>(rows) / time);
    std::fflush(stdout);
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
    std::printf("\n| engine | rows | time | rows a millisecond |\n|---|---|---|---|\n");
    for (const auto& subject : subjects) {
        measureRows(*subject);
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::fprintf(stderr, "usage: kai_bench_engines KAI_PROGRAM\n");
        return 2;
    }
    try {
        measureAll(arguments[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kai_bench_engines: %s\n", error.what());
        return 1;
    }
}
