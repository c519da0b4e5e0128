#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "cf/assertion.h"

namespace {

struct Report {
    std::string condition;
    std::string sourceFile;
    int line;
};

thread_local std::vector<Report> reports;

void record(const char* condition, const char* sourceFile, int line) {
    reports.push_back({condition, sourceFile, line});
}

/// Records what is reported on this thread, and restores the default handler.
class Recording {
public:
    Recording() {
        reports.clear();
        cfSetAssertionHandler(record);
    }
    ~Recording() { cfSetAssertionHandler(nullptr); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
};

TEST(Assertion, ReportsTheConditionAndItsPlace) {
    const Recording recording;
    const int two = 2;
    CF_ASSERT(two == 3);
    const int line = __LINE__ - 1;
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].condition, "two == 3");
    EXPECT_EQ(reports[0].line, line);
}

TEST(Assertion, NamesTheSourceFileFromTheRepositorysRoot) {
    const Recording recording;
    CF_ASSERT(false);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].sourceFile, "libcf/tests/test_assertion.cpp");
}

TEST(Assertion, ReportsNothingWhenTheConditionHolds) {
    const Recording recording;
    CF_ASSERT(1 + 1 == 2);
    EXPECT_TRUE(reports.empty());
}

TEST(Assertion, EvaluatesTheConditionOnce) {
    const Recording recording;
    int evaluations = 0;
    CF_ASSERT(++evaluations == 0);
    EXPECT_EQ(evaluations, 1);
}

TEST(Assertion, IsAnExpressionThatGoesOn) {
    const Recording recording;
    const bool isOdd = true;
    if (isOdd)
        CF_ASSERT(!isOdd);
    else
        ADD_FAILURE();
    EXPECT_EQ(reports.size(), 1U);
}

TEST(Assertion, PassesOnAPlaceThatIsGivenAsData) {
    const Recording recording;
    cfReportAssertion("false", "src/kai_session_google.cpp", 45);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].condition, "false");
    EXPECT_EQ(reports[0].sourceFile, "src/kai_session_google.cpp");
    EXPECT_EQ(reports[0].line, 45);
}

TEST(Assertion, RunsTheHandlerOnTheThreadThatFailed) {
    const Recording recording;
    std::size_t reportsThere = 0;
    std::thread([&] {
        CF_ASSERT(false);
        reportsThere = reports.size();
    }).join();
    EXPECT_EQ(reportsThere, 1U);
    EXPECT_TRUE(reports.empty());
}

TEST(Assertion, WritesOneLineToStandardErrorWithoutAHandler) {
    cfSetAssertionHandler(record);
    cfSetAssertionHandler(nullptr);
    reports.clear();
    testing::internal::CaptureStderr();
    cfReportAssertion("answer == 42", "src/some_file.cpp", 7);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "src/some_file.cpp:7: assertion failed: answer == 42\n");
    EXPECT_TRUE(reports.empty());
}

}  // namespace
