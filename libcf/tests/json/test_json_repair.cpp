#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "cf/json.h"
#include "string_reference.h"

namespace {

using Oracle = nlohmann::ordered_json;
using namespace std::string_literals;

constexpr const char* kReplacement = "\xEF\xBF\xBD";

/// Replaces each "?" by U+FFFD.
std::string replaceMarks(std::string_view text) {
    std::string replaced;
    for (const char character : text) {
        replaced += character == '?' ? std::string(kReplacement) : std::string(1, character);
    }
    return replaced;
}

struct Example {
    std::string_view content;   ///< between the quotes
    std::string_view expected;  ///< "?" stands for U+FFFD
};

constexpr Example kLoneSurrogates[] = {
    {R"(\ud800)", "?"},
    {R"(\udbff)", "?"},
    {R"(\udc00)", "?"},
    {R"(\uDFFF)", "?"},
    {R"(a\ud83dx)", "a?x"},
    {R"(\ud83d\n)", "?\n"},
    {R"(\ud83d\\)", "?\\"},
    {R"(\ud83d\"b)", "?\"b"},
    {R"(\ud83d\ud83d)", "??"},
    {R"(\ude00\ud83d)", "??"},
    {R"(\ud83d\ud83d\ude00)", "?\xF0\x9F\x98\x80"},
    {R"(\ud83d\ude00\ude00)", "\xF0\x9F\x98\x80?"},
    {R"(\ud800\u0041)", "?A"},
    {R"(\udbff\ue000)", "?\xEE\x80\x80"},
    {"\\ud83d\xC3\xA4", "?\xC3\xA4"},
};

constexpr Example kIllFormedBytes[] = {
    {"\x80", "?"},
    {"a\xFFz", "a?z"},
    {"\xC0\xAF", "??"},
    {"\xE0\x80\x80", "???"},
    {"\xED\xA0\x80", "???"},
    {"\xF4\x90\x80\x80", "????"},
    {"\xE2\x82", "?"},
    {"\xE2\x82 \xE2\x82\xAC", "? \xE2\x82\xAC"},
    {"\xF0\x9F\x98\\n", "?\n"},
    {"\xC3\xC3\xA4", "?\xC3\xA4"},
    {"\xFF\\ud800", "??"},
};

void expectRead(const Example& example) {
    const std::string text = "\"" + std::string(example.content) + "\"";
    const COJson json{std::string_view(text)};
    ASSERT_TRUE(json.getIsValidJson()) << text;
    EXPECT_EQ(json.obtainRoot().obtainString(), replaceMarks(example.expected)) << text;
}

TEST(COJsonRepair, ReadsALoneSurrogateEscapeAsReplacementCharacter) {
    for (const Example& example : kLoneSurrogates) {
        expectRead(example);
    }
}

TEST(COJsonRepair, ReadsEachIllFormedSequenceOfAStringAsReplacementCharacter) {
    for (const Example& example : kIllFormedBytes) {
        expectRead(example);
    }
}

TEST(COJsonRepair, ReadsKeysLikeOtherStrings) {
    const COJson json("{\"a\\ud800\":{\"\xFF\":1},\"b\":2}");
    EXPECT_EQ(json.obtainMember("a"s + kReplacement).obtainMember(kReplacement).obtainInteger(), 1);
    EXPECT_EQ(json.obtainMember("b").obtainInteger(), 2);
    EXPECT_EQ(json.obtainJsonString(), replaceMarks(R"({"a?":{"?":1},"b":2})"));
}

TEST(COJsonRepair, RefusesIllFormedBytesOutsideStrings) {
    for (const std::string_view text :
         {"\xFF", "[1,\x80]", "\"a\"\xFF", "\xEF\xBB\"a\"", "{\"a\":1}\xC3\xA4", "[\"\xFF\",\xFF]", "[\"\\ud800\"]\x80",
          "{\"a\"\xFF:1}", "1\xC2\xA0", "\xE2\x80\xA8 1"}) {
        EXPECT_FALSE(COJson(text).getIsValidJson()) << text;
    }
}

TEST(COJsonRepair, RefusesWhatElseIsWrong) {
    for (const std::string_view text : {"\"\\ud800", "\"\xFF", "\"\xFF\\\"", R"("\ud800\u12g4")", R"("\ud8")",
                                        "\"\xFF\n\"", "\"\\\xFF\"", "\"\xFF\\", "[\"\xFF\",]", "[\"\\udc00\" 1]",
                                        "[01,\"\xFF\"]", "[\"\\ud800\",1.]", R"("\ud800\u-041")", R"("\x\ud800")"}) {
        EXPECT_FALSE(COJson(text).getIsValidJson()) << text;
    }
}

TEST(COJsonRepair, ReadsNumbersOutOfRangeBesideThem) {
    for (const std::string_view text :
         {"[1e999,\"\xFF\",123456789012345678901234567890]", "[1e999,\"\\ud800\",123456789012345678901234567890]"}) {
        const COJson json(text);
        EXPECT_EQ(json.obtainJsonString(), replaceMarks(R"([1.7976931348623157e+308,"?",1.2345678901234568e+29])"));
    }
}

TEST(COJsonRepair, ReadsIntegersAsItDoesWithoutThem) {
    const COJson json("[-9223372036854775808,-9223372036854775808.0,-1,\"\\ud800\"]");
    std::vector<std::int64_t> integers;
    for (const COJsonValue item : json.obtainRoot().obtainItems()) {
        integers.push_back(item.obtainInteger());
    }
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(integers, (std::vector<std::int64_t>{kLeast, kLeast, -1, 0}));
}

TEST(COJsonRepair, KeepsTheLimitOfDepth) {
    const auto nest = [](std::size_t levels) {
        return std::string(levels, '[') + "\"\xFF\\udc00\"" + std::string(levels, ']');
    };
    EXPECT_TRUE(COJson(nest(512)).getIsValidJson());
    EXPECT_FALSE(COJson(nest(513)).getIsValidJson());
}

TEST(COJsonRepair, ReadsInPlaceAndLeavesTheTextAsItIs) {
    const std::string original = "{\"a\":\"\xFF\\ud800\"}";
    std::string text = original;
    text.reserve(text.size() + 100);
    const COJson json = COJson::readInPlace(text);
    EXPECT_EQ(json.obtainMember("a").obtainString(), replaceMarks("??"));
    EXPECT_EQ(text, original);
    text.assign(text.size(), 'x');
    EXPECT_EQ(json.obtainMember("a").obtainString(), replaceMarks("??"));
}

TEST(COJsonRepair, ReadsALongTextWithOneAtItsEnd) {
    const std::string plain(1'000'000, 'x');
    const std::string text = "[\"" + plain + "\xC3\"]";
    const COJson json{std::string_view(text)};
    ASSERT_EQ(json.obtainRoot().obtainSize(), 1U);
    EXPECT_EQ((*json.obtainRoot().obtainItems().begin()).obtainString(), plain + kReplacement);
}

/// Texts of strings and little else, made of what is valid and what is not.
class DamagedTextMaker {
public:
    std::string make() {
        std::string text = "[";
        for (unsigned count = 1 + pick(4); count > 0; --count) {
            text += '"' + makeContent() + (pick(40) == 0 ? "" : "\"") + (count > 1 ? "," : "");
        }
        return text + (pick(30) == 0 ? "\xE2\x82\xAC" : "") + "]";
    }

private:
    unsigned pick(unsigned count) { return static_cast<unsigned>(m_random() % count); }

    template <std::size_t Count>
    std::string pickOne(const std::string_view (&choices)[Count]) {
        return std::string(choices[pick(Count)]);
    }

    std::string makeContent() {
        std::string content;
        for (unsigned count = pick(7); count > 0; --count) {
            switch (pick(6)) {
                case 0:
                    content += pickOne({"a", "plain words that fill a register or two", "\\n", "\\\\", "\\\"", "\\/"});
                    break;
                case 1:
                    content += pickOne({"\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\\u00e4", "\\ud83d\\ude00"});
                    break;
                case 2:
                    content += pickOne({"\\ud83d", "\\ude00", "\\uD800", "\\uDFFF", "\\udbff", "\\uDC00"});
                    break;
                case 3:
                    content += pickOne({"\xE0", "\xED", "\xF0", "\xF4", "\xC2", "\xE1", "\xF1", "\xFF", "\xC0"});
                    break;
                case 4:
                    content += static_cast<char>(0x80 + pick(0x80));
                    break;
                default:
                    content += pick(25) == 0 ? pickOne({"\\", "\\u12", "\\x", "\\ud8g0", "\n", "\\u"}) : "";
                    break;
            }
        }
        return content;
    }

    std::mt19937 m_random{8472};
};

TEST(COJsonRepair, ReadsRandomStringsLikeTheReference) {
    DamagedTextMaker maker;
    int accepted = 0;
    int refused = 0;
    for (int round = 0; round < 30'000; ++round) {
        const std::string text = maker.make();
        const Oracle oracle = Oracle::parse(rewriteStringsByReference(text), nullptr, false);
        const COJson json{std::string_view(text)};
        ASSERT_EQ(json.getIsValidJson(), !oracle.is_discarded()) << text;
        if (json.getIsValidJson()) {
            ASSERT_EQ(Oracle::parse(json.obtainJsonString()), oracle) << text;
        }
        ++(json.getIsValidJson() ? accepted : refused);
    }
    EXPECT_GT(accepted, 10'000);
    EXPECT_GT(refused, 1'000);
}

}  // namespace
