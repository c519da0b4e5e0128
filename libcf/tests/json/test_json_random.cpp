#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#include "cf/json.h"
#include "string_reference.h"

namespace {

using Oracle = nlohmann::ordered_json;

/// Makes JSON texts, the same ones in each run. Keys differ within an object, since the oracle keeps the last of two.
class TextMaker {
public:
    explicit TextMaker(unsigned seed) : m_random(seed) {}

    std::string make() {
        std::string text = makeBlanks();
        appendValue(text, 0);
        return text + makeBlanks();
    }

    unsigned pick(unsigned count) { return static_cast<unsigned>(m_random() % count); }

private:
    template <std::size_t Count>
    std::string_view pickOne(const std::string_view (&choices)[Count]) {
        return choices[pick(Count)];
    }

    std::string makeBlanks() { return std::string(pickOne({"", "", "", "", " ", "\n", "\t", "\r\n  "})); }

    void appendValue(std::string& text, unsigned level) {
        switch (pick(level < 7 ? 8 : 5)) {
            case 0:
                text += pickOne({"true", "false", "null"});
                break;
            case 1:
            case 2:
                appendNumber(text);
                break;
            case 3:
            case 4:
                appendString(text, "");
                break;
            case 5:
            case 6:
                appendObject(text, level);
                break;
            default:
                appendArray(text, level);
                break;
        }
    }

    void appendDigits(std::string& text, unsigned most) {
        for (unsigned count = 1 + pick(most); count > 0; --count) {
            text += static_cast<char>('0' + pick(10));
        }
    }

    void appendNumber(std::string& text) {
        text += pickOne({"", "-"});
        if (pick(4) == 0) {
            text += '0';
        } else {
            text += static_cast<char>('1' + pick(9));
            appendDigits(text, pick(3) == 0 ? 24 : 6);
        }
        if (pick(2) == 0) {
            text += '.';
            appendDigits(text, 20);
        }
        if (pick(3) == 0) {
            text += pickOne({"e", "E", "e+", "E-", "e-"});
            appendDigits(text, 2);
        }
    }

    void appendString(std::string& text, std::string_view ending) {
        text += '"';
        for (unsigned count = pick(10); count > 0; --count) {
            text += pickOne({"a", "some words ", "\\n", "\\\"", "\\\\", "\\/", "\\u00e4", "\\uD83D\\uDE00", "\\u0000",
                             "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\x7F", "[1,2]", "{}",
                             "a text that is longer than any block of a vector register, twice over"});
        }
        text.append(ending).append("\"");
    }

    void appendArray(std::string& text, unsigned level) {
        text += '[' + makeBlanks();
        for (unsigned count = pick(6); count > 0; --count) {
            appendValue(text, level + 1);
            text += makeBlanks() + (count > 1 ? "," : "") + makeBlanks();
        }
        text += ']';
    }

    void appendObject(std::string& text, unsigned level) {
        text += '{' + makeBlanks();
        for (unsigned count = pick(6); count > 0; --count) {
            appendString(text, std::to_string(count));
            text += makeBlanks() + ":" + makeBlanks();
            appendValue(text, level + 1);
            text += makeBlanks() + (count > 1 ? "," : "") + makeBlanks();
        }
        text += '}';
    }

    std::mt19937 m_random;
};

void expectSame(const COJsonValue& value, const Oracle& oracle);

void expectSameNumber(const COJsonValue& value, const Oracle& oracle) {
    ASSERT_TRUE(value.isNumber());
    EXPECT_EQ(value.obtainDouble(), oracle.get<double>());
    if (oracle.is_number_unsigned()) {
        const auto number = oracle.get<std::uint64_t>();
        EXPECT_EQ(value.obtainInteger(), number <= INT64_MAX ? static_cast<std::int64_t>(number) : 0);
    } else if (oracle.is_number_integer()) {
        EXPECT_EQ(value.obtainInteger(), oracle.get<std::int64_t>());
    } else {
        const double number = std::trunc(oracle.get<double>());
        const bool isInside = number >= -0x1p63 && number < 0x1p63;
        EXPECT_EQ(value.obtainInteger(), isInside ? static_cast<std::int64_t>(number) : 0);
    }
}

void expectSameArray(const COJsonValue& value, const Oracle& oracle) {
    ASSERT_TRUE(value.isArray());
    ASSERT_EQ(value.obtainSize(), oracle.size());
    auto expected = oracle.begin();
    for (const COJsonValue item : value.obtainItems()) {
        expectSame(item, *expected++);
    }
    EXPECT_EQ(expected, oracle.end());
}

void expectSameObject(const COJsonValue& value, const Oracle& oracle) {
    ASSERT_TRUE(value.isObject());
    ASSERT_EQ(value.obtainSize(), oracle.size());
    auto expected = oracle.begin();
    for (const COJsonMember member : value.obtainMembers()) {
        EXPECT_EQ(member.key, expected.key());
        expectSame(member.value, expected.value());
        expectSame(value.obtainMember(expected.key()), expected.value());
        ++expected;
    }
    EXPECT_EQ(expected, oracle.end());
}

void expectSame(const COJsonValue& value, const Oracle& oracle) {
    if (oracle.is_number()) {
        expectSameNumber(value, oracle);
    } else if (oracle.is_array()) {
        expectSameArray(value, oracle);
    } else if (oracle.is_object()) {
        expectSameObject(value, oracle);
    } else if (oracle.is_string()) {
        ASSERT_TRUE(value.isString());
        EXPECT_EQ(value.obtainString(), oracle.get_ref<const std::string&>());
    } else if (oracle.is_boolean()) {
        EXPECT_EQ(value.obtainType(), COJsonValue::Type::Boolean);
        EXPECT_EQ(value.obtainBoolean(), oracle.get<bool>());
    } else {
        EXPECT_TRUE(value.isNull());
    }
}

/// The same document with every number as a double.
Oracle roundNumbers(Oracle value) {
    if (value.is_number()) {
        return value.get<double>();
    }
    if (value.is_structured()) {
        for (Oracle& child : value) {
            child = roundNumbers(std::move(child));
        }
    }
    return value;
}

/// The same document as a built tree.
void copyTo(COJsonValue target, const COJsonValue& source) {
    switch (source.obtainType()) {
        case COJsonValue::Type::Object:
            target.setObject();
            for (const COJsonMember member : source.obtainMembers()) {
                copyTo(target.addKeyValue(member.key), member.value);
            }
            break;
        case COJsonValue::Type::Array:
            target.setArray();
            for (const COJsonValue item : source.obtainItems()) {
                copyTo(target.addItem(), item);
            }
            break;
        case COJsonValue::Type::String:
            target.setString(source.obtainString());
            break;
        case COJsonValue::Type::Number:
            target.setDouble(source.obtainDouble());
            break;
        case COJsonValue::Type::Boolean:
            target.setBoolean(source.obtainBoolean());
            break;
        default:
            target.setNull();
            break;
    }
}

TEST(COJsonRandom, ReadsAndWritesLikeAnotherLibrary) {
    TextMaker maker(20240301);
    for (int round = 0; round < 5'000; ++round) {
        const std::string text = maker.make();
        const Oracle oracle = Oracle::parse(text);
        const COJson json{std::string_view(text)};
        ASSERT_TRUE(json.getIsValidJson()) << text;
        expectSame(json.obtainRoot(), oracle);
        const std::string written = json.obtainJsonString();
        EXPECT_EQ(Oracle::parse(written), oracle) << text;
        EXPECT_EQ(COJson(std::string_view(written)).obtainJsonString(), written);
        ASSERT_FALSE(HasFailure()) << text;
    }
}

TEST(COJsonRandom, BuildsWhatAnotherLibraryReads) {
    TextMaker maker(99);
    for (int round = 0; round < 2'000; ++round) {
        const std::string text = maker.make();
        const COJson read{std::string_view(text)};
        COJson built;
        copyTo(built.obtainRoot(), read.obtainRoot());
        ASSERT_EQ(roundNumbers(Oracle::parse(built.obtainJsonString())), roundNumbers(Oracle::parse(text))) << text;
    }
}

enum class Verdict { Valid, Invalid, Unknown };

Verdict judgeByOracle(const std::string& text) {
    try {
        return Oracle::parse(rewriteStringsByReference(text)).is_discarded() ? Verdict::Invalid : Verdict::Valid;
    } catch (const Oracle::out_of_range&) {
        return Verdict::Unknown;  // a number beyond a double's range: the rest was not read
    } catch (const Oracle::parse_error&) {
        return Verdict::Invalid;
    }
}

TEST(COJsonRandom, RefusesDamagedTextsLikeAnotherLibrary) {
    TextMaker maker(4711);
    int refused = 0;
    int accepted = 0;
    for (int round = 0; round < 40'000; ++round) {
        std::string text = maker.make();
        for (unsigned changes = 1 + maker.pick(2); changes > 0; --changes) {
            const std::size_t place = maker.pick(static_cast<unsigned>(text.size()));
            constexpr std::string_view kBytes = "{}[]\",:\\ 0129.-+eEtfnu/\n\x01\x80\xC3\xFF";
            switch (maker.pick(3)) {
                case 0:
                    text[place] = kBytes[maker.pick(static_cast<unsigned>(kBytes.size()))];
                    break;
                case 1:
                    text.erase(place, 1);
                    break;
                default:
                    text.insert(place, 1, kBytes[maker.pick(static_cast<unsigned>(kBytes.size()))]);
                    break;
            }
            if (text.empty()) {
                break;
            }
        }
        const Verdict verdict = judgeByOracle(text);
        const bool isValid = COJson(std::string_view(text)).getIsValidJson();
        if (verdict != Verdict::Unknown) {
            ASSERT_EQ(isValid, verdict == Verdict::Valid) << text;
            ++(isValid ? accepted : refused);
        }
    }
    EXPECT_GT(refused, 5'000);
    EXPECT_GT(accepted, 5'000);
}

}  // namespace
