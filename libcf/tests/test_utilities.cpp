#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "cf/utilities.h"

namespace {

TEST(CODefer, RunsItsFunctionAtTheEndOfTheScope) {
    int runs = 0;
    {
        const CODefer defer([&] { ++runs; });
        EXPECT_EQ(runs, 0);
    }
    EXPECT_EQ(runs, 1);
}

TEST(CODefer, RunsItsFunctionWhenTheScopeIsLeftByAnException) {
    int runs = 0;
    const auto leaveByException = [&] {
        const CODefer defer([&] { ++runs; });
        throw std::runtime_error("left");
    };
    EXPECT_THROW(leaveByException(), std::runtime_error);
    EXPECT_EQ(runs, 1);
}

TEST(CODefer, RunsTheLastMadeFirst) {
    std::string order;
    {
        const CODefer first([&] { order += "first"; });
        const CODefer second([&] { order += "second,"; });
    }
    EXPECT_EQ(order, "second,first");
}

TEST(CODefer, DoesNothingWithAnEmptyFunction) {
    EXPECT_NO_THROW({ const CODefer defer(nullptr); });
}

std::string concat(const std::vector<std::string>& parts) {
    return cfConcatURL(parts);
}

TEST(CfConcatURL, PutsOneSlashBetweenTwoParts) {
    EXPECT_EQ(concat({"https://api.example.com", "v1", "models"}), "https://api.example.com/v1/models");
}

TEST(CfConcatURL, DoesNotDoubleASlashThatAPartHas) {
    EXPECT_EQ(concat({"https://host/", "models"}), "https://host/models");
    EXPECT_EQ(concat({"https://host", "/models"}), "https://host/models");
    EXPECT_EQ(concat({"https://host/", "/models"}), "https://host/models");
}

TEST(CfConcatURL, LeavesSlashesWithinAPartAlone) {
    EXPECT_EQ(concat({"a//b", "c"}), "a//b/c");
    EXPECT_EQ(concat({"a//", "b"}), "a//b");
    EXPECT_EQ(concat({"a", "//b"}), "a//b");
    EXPECT_EQ(concat({"/a", "b/"}), "/a/b/");
}

TEST(CfConcatURL, TakesFewPartsAsTheyAre) {
    EXPECT_EQ(concat({}), "");
    EXPECT_EQ(concat({"https://host"}), "https://host");
    EXPECT_EQ(concat({"/"}), "/");
    EXPECT_EQ(concat({""}), "");
}

TEST(CfConcatURL, SeparatesEmptyPartsLikeOthers) {
    EXPECT_EQ(concat({"a", ""}), "a/");
    EXPECT_EQ(concat({"", "a"}), "/a");
    EXPECT_EQ(concat({"a", "", "b"}), "a/b");
}

TEST(CfConcatURL, EncodesNothing) {
    EXPECT_EQ(concat({"https://host", "a b", "models/x:y?z=%20&\xC3\xA4"}),
              "https://host/a b/models/x:y?z=%20&\xC3\xA4");
}

TEST(CfTrimAsString, RemovesBlanksAtBothEnds) {
    EXPECT_EQ(cfTrimAsString("  api.example.com \t"), "api.example.com");
    EXPECT_EQ(cfTrimAsString(" \t\r\n\v\ftext \t\r\n\v\f"), "text");
    EXPECT_EQ(cfTrimAsString("\v\f a \f\v"), "a");
}

TEST(CfTrimAsString, KeepsBlanksWithinTheText) {
    EXPECT_EQ(cfTrimAsString(" a \t b "), "a \t b");
}

TEST(CfTrimAsString, GivesNothingForBlanksOnly) {
    EXPECT_EQ(cfTrimAsString(""), "");
    EXPECT_EQ(cfTrimAsString(" \t\r\n\v\f"), "");
}

TEST(CfTrimAsString, KeepsWhatIsNoBlank) {
    const std::string nul("\0a\0", 3);
    EXPECT_EQ(cfTrimAsString(nul), nul);
    EXPECT_EQ(cfTrimAsString("\xC2\xA0x\xC2\xA0"), "\xC2\xA0x\xC2\xA0");
    EXPECT_EQ(cfTrimAsString("\x1Fx\x7F"), "\x1Fx\x7F");
}

}  // namespace
