#ifndef TESTS_ASSERTION_RECORDER_H
#define TESTS_ASSERTION_RECORDER_H

#include <cstddef>
#include <string>
#include <vector>

/// One report of a failed internal check.
struct AssertionReport {
    std::string condition;
    std::string sourceFile;
    int line = 0;
};

/// Records the reports of failed checks, of all threads' checks, as long as it lives. One at a time.
class AssertionRecorder {
public:
    AssertionRecorder();
    ~AssertionRecorder();
    AssertionRecorder(const AssertionRecorder&) = delete;
    AssertionRecorder& operator=(const AssertionRecorder&) = delete;

    /// The reports since the last call.
    std::vector<AssertionReport> takeReports();

    /// "CONDITION @ FILE" for each report since the last call: what a test compares, lines move.
    std::vector<std::string> takeTexts();

    /// The number of reports since the last call.
    std::size_t takeCount() { return takeReports().size(); }
};

#endif
