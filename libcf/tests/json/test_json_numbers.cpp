#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "cf/json.h"

namespace {

constexpr double kMost = std::numeric_limits<double>::max();
constexpr std::int64_t kMostInteger = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeastInteger = std::numeric_limits<std::int64_t>::min();

bool isValid(std::string_view text) {
    return COJson(text).getIsValidJson();
}

double readDouble(const std::string& text) {
    const COJson json{std::string_view(text)};
    EXPECT_TRUE(json.obtainRoot().isNumber()) << text;
    return json.obtainRoot().obtainDouble();
}

std::int64_t readInteger(const std::string& text) {
    const COJson json{std::string_view(text)};
    EXPECT_TRUE(json.obtainRoot().isNumber()) << text;
    return json.obtainRoot().obtainInteger();
}

std::string rewrite(const std::string& text) {
    return COJson(std::string_view(text)).obtainJsonString();
}

TEST(COJsonNumber, ReadsIntegersAndFractions) {
    EXPECT_EQ(readInteger("0"), 0);
    EXPECT_EQ(readInteger("-1"), -1);
    EXPECT_EQ(readInteger("1700000000"), 1700000000);
    EXPECT_EQ(readDouble("42"), 42.0);
    EXPECT_EQ(readDouble("0.2"), 0.2);
    EXPECT_EQ(readDouble("-1.5e3"), -1500.0);
    EXPECT_EQ(readDouble("1E+2"), 100.0);
    EXPECT_EQ(readDouble("1e-2"), 0.01);
    EXPECT_TRUE(std::signbit(readDouble("-0.0")));
}

TEST(COJsonNumber, ReadsDoublesExactly) {
    for (const char* text : {"0.1", "0.30000000000000004", "9007199254740993", "2.2250738585072011e-308",
                             "2.2250738585072014e-308", "4.9406564584124654e-324", "1.7976931348623157e308",
                             "7.2057594037927933e16", "123456789012345678901234567890.5", "0.000001234567890123456789",
                             "3.14159265358979323846264338327950288419716939937510582097494459", "8.5e-250"}) {
        EXPECT_EQ(readDouble(text), std::strtod(text, nullptr)) << text;
    }
}

TEST(COJsonNumber, RefusesWhatTheGrammarDoesNotAllow) {
    for (const std::string_view text :
         {"01",   "-01",  "00",    "+1",    "1.",    ".5",    "-.5", "-",  "--1", "1e",   "1e+", "1E-", "e1",
          "1.e1", "0x10", "1_000", "1e5.5", "1.2.3", "1e+-5", "1f",  "1d", "- 1", "1 e5", "0-1", "1-",  "1+1"}) {
        EXPECT_FALSE(isValid(text)) << text;
        EXPECT_FALSE(isValid("[1e999," + std::string(text) + "]")) << text;
        EXPECT_FALSE(isValid("[" + std::string(text) + ",123456789012345678901234567890]")) << text;
    }
}

TEST(COJsonNumber, RefusesADecimalComma) {
    EXPECT_FALSE(isValid("1,5"));
    EXPECT_EQ(COJson("[1,5]").obtainRoot().obtainSize(), 2U);
}

TEST(COJsonNumber, RefusesIllFormedNumbersOutOfRange) {
    for (const std::string_view text :
         {"0123456789012345678901234567890", "123456789012345678901234567890.", "-0123456789012345678901",
          "1234567890123456789012345e", "+123456789012345678901234567890", "123456789012345678901234567890x", "1e400x",
          "1e400.5", "1e4 00", "1.e400", "12345678901234567890-", "01e400", "-00e400", "00.5e-400"}) {
        EXPECT_FALSE(isValid(text)) << text;
    }
}

TEST(COJsonNumber, ReadsIntegersBeyond64BitsAsDoubles) {
    EXPECT_EQ(readDouble("9223372036854775808"), 0x1p63);
    EXPECT_EQ(readDouble("18446744073709551615"), 0x1p64);
    EXPECT_EQ(readDouble("18446744073709551616"), 0x1p64);
    EXPECT_EQ(readDouble("-9223372036854775809"), -0x1p63);
    EXPECT_EQ(readDouble("123456789012345678901234567890"), 123456789012345678901234567890.0);
    EXPECT_EQ(readDouble("-123456789012345678901234567890"), -123456789012345678901234567890.0);
}

TEST(COJsonNumber, ReadsNumbersBeyondTheRangeOfADoubleAsTheNearestFiniteOne) {
    EXPECT_EQ(readDouble("1e400"), kMost);
    EXPECT_EQ(readDouble("-1e400"), -kMost);
    EXPECT_EQ(readDouble("1.7976931348623159e308"), kMost);
    EXPECT_EQ(readDouble("1e99999999999999999999"), kMost);
    EXPECT_EQ(readDouble("0.0001e400"), kMost);
    EXPECT_EQ(readDouble("1" + std::string(400, '0')), kMost);
    EXPECT_EQ(readDouble("-1" + std::string(400, '0')), -kMost);
    EXPECT_EQ(readDouble("1" + std::string(400, '0') + ".5"), kMost);
}

TEST(COJsonNumber, ReadsNumbersTooSmallForADoubleAsZero) {
    EXPECT_EQ(readDouble("1e-400"), 0.0);
    EXPECT_EQ(readDouble("-1e-400"), 0.0);
    EXPECT_EQ(readDouble("1000e-400"), 0.0);
    EXPECT_EQ(readDouble("1e-99999999999999999999"), 0.0);
    EXPECT_EQ(readDouble("0." + std::string(400, '0') + "1"), 0.0);
}

TEST(COJsonNumber, ReadsNumbersWhoseExponentOnlyLooksOutOfRange) {
    EXPECT_EQ(readDouble("0e999"), 0.0);
    EXPECT_EQ(readDouble("-0e999"), 0.0);
    EXPECT_EQ(readDouble("0.0e99999999999999999999"), 0.0);
    EXPECT_EQ(readDouble("1" + std::string(400, '0') + "e-400"), 1.0);
    EXPECT_EQ(readDouble("0." + std::string(400, '0') + "1e401"), 1.0);
}

TEST(COJsonNumber, ReadsNumbersOutOfRangeAtAnyPlaceAndBetweenOthers) {
    const COJson json(R"({"a":[1e400,1,"1e400 \" 1e400"],"1e400":-1e400 , "c":18446744073709551616})");
    EXPECT_EQ(json.obtainJsonString(),
              R"({"a":[1.7976931348623157e+308,1,"1e400 \" 1e400"],"1e400":-1.7976931348623157e+308,)"
              R"("c":18446744073709551616})");
}

// The engine reads a number that is too small. It is read anew only where another number of the text is too large.
TEST(COJsonNumber, ReadsNumbersTooSmallForADoubleBesideThoseTooLarge) {
    const std::string zeros(400, '0');
    for (const std::string& text :
         {std::string("1e-400"), std::string("1000E-400"), std::string("1e-99999999999999999999"),
          std::string("1e-9223372036854775807"), std::string("0.5e-400"), "0." + zeros + "1", "0." + zeros + "1e+1",
          "0." + zeros + "1e00", "1" + zeros + "e-800", "1" + zeros + ".5e-0800"}) {
        EXPECT_EQ(rewrite("[1e400," + text + "]"), "[1.7976931348623157e+308,0]") << text;
        EXPECT_EQ(rewrite("[1e400,-" + text + "]"), "[1.7976931348623157e+308,-0.0]") << text;
    }
}

TEST(COJsonNumber, ReadsNumbersTooLargeForADoubleHoweverTheyAreWritten) {
    const std::string zeros(400, '0');
    for (const std::string& text :
         {std::string("1e+400"), std::string("1E400"), std::string("1e0400"), std::string("1e9223372036854775807"),
          std::string("1e+99999999999999999999"), std::string("0.5e9223372036854775807"), std::string("100e308"),
          "0." + zeros + "1e800", "0." + zeros + "1E+800", "0.1" + zeros + "1e320", "1" + zeros + "e-90",
          "1" + zeros + ".5e-0", "12" + zeros + "E+9"}) {
        EXPECT_EQ(readDouble(text), kMost) << text;
        EXPECT_EQ(readDouble("-" + text), -kMost) << text;
    }
}

TEST(COJsonNumber, ReadsNumbersOutOfRangeBesideEscapes) {
    const COJson json(R"(["\\",1e400,"\\\"",1e400,"a\\\\",12345678901234567890123])");
    EXPECT_EQ(json.obtainRoot().obtainSize(), 6U);
    EXPECT_FALSE(isValid(R"([1e400,"\])"));
    EXPECT_FALSE(isValid(R"([1e400,"a)"));
    EXPECT_FALSE(isValid(R"([1e400,"a\)"));
}

TEST(COJsonNumber, CutsTheFractionOff) {
    EXPECT_EQ(readInteger("1.9"), 1);
    EXPECT_EQ(readInteger("-1.9"), -1);
    EXPECT_EQ(readInteger("0.5"), 0);
    EXPECT_EQ(readInteger("1e3"), 1000);
    EXPECT_EQ(readInteger("-2.5e0"), -2);
    EXPECT_EQ(readInteger("2251799813685249.5"), 2251799813685249);
}

TEST(COJsonNumber, ReadsIntegersAtTheEdgesOf64Bits) {
    EXPECT_EQ(readInteger("9223372036854775807"), kMostInteger);
    EXPECT_EQ(readInteger("-9223372036854775808"), kLeastInteger);
    EXPECT_EQ(readInteger("-9223372036854775808.0"), kLeastInteger);
    EXPECT_EQ(readInteger("-9.223372036854775808e18"), kLeastInteger);
    EXPECT_EQ(readInteger("9223372036854774784.0"), 9223372036854774784);
    EXPECT_EQ(readInteger("9007199254740993"), 9007199254740993);
}

TEST(COJsonNumber, ReadsIntegersOutside64BitsAsZero) {
    for (const char* text : {"9223372036854775808", "18446744073709551615", "18446744073709551616",
                             "-9223372036854775809", "-9223372036854776832", "1e19", "-1e19", "9223372036854775808.0",
                             "1e400", "-1e400", "123456789012345678901234567890"}) {
        EXPECT_EQ(readInteger(text), 0) << text;
    }
}

TEST(COJsonNumber, IsZeroForOtherTypes) {
    for (const std::string_view text : {"\"5\"", "true", "null", "[5]", "{\"a\":5}"}) {
        const COJson json(text);
        EXPECT_EQ(json.obtainRoot().obtainDouble(), 0.0) << text;
        EXPECT_EQ(json.obtainRoot().obtainInteger(), 0) << text;
    }
}

TEST(COJsonNumber, WritesIntegersAsTheyWereRead) {
    for (const char* text : {"0", "-1", "9223372036854775807", "-9223372036854775808", "9223372036854775808",
                             "18446744073709551615", "9007199254740993"}) {
        EXPECT_EQ(rewrite(text), text);
    }
}

TEST(COJsonNumber, WritesDoublesInTheShortestForm) {
    EXPECT_EQ(rewrite("0.20"), "0.2");
    EXPECT_EQ(rewrite("1.0"), "1");
    EXPECT_EQ(rewrite("1e2"), "100");
    EXPECT_EQ(rewrite("-0.0"), "-0.0");
    EXPECT_EQ(rewrite("1e300"), "1e+300");
    EXPECT_EQ(rewrite("3.141592653589793115997963"), "3.141592653589793");
}

}  // namespace
