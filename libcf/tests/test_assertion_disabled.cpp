#define CF_NO_ASSERTIONS

#include <gtest/gtest.h>

#include "cf/assertion.h"

namespace {

TEST(Assertion, IsNotEvaluatedWhereItIsCompiledOut) {
    testing::internal::CaptureStderr();
    int evaluations = 0;
    CF_ASSERT(++evaluations == 0);
    EXPECT_EQ(evaluations, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
