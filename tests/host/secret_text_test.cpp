#include "terminal/secret_text.h"

#include <gtest/gtest.h>

namespace {

using host::findUnfinishedSecret;
using host::replaceSecret;

constexpr const char* kSecret = "sk-a/b\"c%d";

TEST(SecretText, ReplacesEveryFormOfASecret) {
    EXPECT_EQ(replaceSecret("<sk-a/b\"c%d>", kSecret), "<***>");
    EXPECT_EQ(replaceSecret("<sk-a%2Fb%22c%25d>", kSecret), "<***>");
    EXPECT_EQ(replaceSecret("<sk%2da%2fb%22c%25d>", kSecret), "<***>");
    EXPECT_EQ(replaceSecret(R"(<sk-a\/b\"c%d>)", kSecret), "<***>");
    EXPECT_EQ(replaceSecret(R"(<\u0073k-a\u002Fb\u0022c%d>)", kSecret), "<***>");
    EXPECT_EQ(replaceSecret("%73%6B%2D%61%2F%62%22%63%25%64", kSecret), "***");
}

TEST(SecretText, ReplacesEachOccurrence) {
    EXPECT_EQ(replaceSecret("keykey skey key", "key"), "****** s*** ***");
    EXPECT_EQ(replaceSecret("aaab", "aab"), "a***");
}

TEST(SecretText, LeavesOtherTextAlone) {
    EXPECT_EQ(replaceSecret("100% \\ sk-a/b", kSecret), "100% \\ sk-a/b");
    EXPECT_EQ(replaceSecret("text", ""), "text");
}

TEST(SecretText, FindsWhereASecretMayBegin) {
    EXPECT_EQ(findUnfinishedSecret("the key sk-a/", kSecret), 8U);
    EXPECT_EQ(findUnfinishedSecret("the key sk-a%2", kSecret), 8U);
    EXPECT_EQ(findUnfinishedSecret("the key sk-a\\u00", kSecret), 8U);
    EXPECT_EQ(findUnfinishedSecret("the key sk-x", kSecret), 12U);
    EXPECT_EQ(findUnfinishedSecret("the key sk-a/b\"c%d", kSecret), 18U);
    EXPECT_EQ(findUnfinishedSecret("text", ""), 4U);
}

}  // namespace
