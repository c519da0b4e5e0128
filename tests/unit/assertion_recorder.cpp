#include "assertion_recorder.h"

#include <mutex>
#include <utility>

#include "cf/assertion.h"

namespace {

std::mutex s_mutex;
std::vector<AssertionReport> s_reports;

void recordReport(const char* condition, const char* sourceFile, int line) {
    const std::lock_guard lock(s_mutex);
    s_reports.push_back({condition, sourceFile, line});
}

}  // namespace

AssertionRecorder::AssertionRecorder() {
    takeReports();
    cfSetAssertionHandler(recordReport);
}

AssertionRecorder::~AssertionRecorder() {
    cfSetAssertionHandler(nullptr);
}

std::vector<AssertionReport> AssertionRecorder::takeReports() {
    const std::lock_guard lock(s_mutex);
    return std::exchange(s_reports, {});
}

std::vector<std::string> AssertionRecorder::takeTexts() {
    std::vector<std::string> texts;
    for (const AssertionReport& report : takeReports()) {
        texts.push_back(report.condition + " @ " + report.sourceFile);
    }
    return texts;
}
