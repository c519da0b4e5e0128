#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "cf/json.h"

namespace {

using namespace std::string_literals;

bool isValid(std::string_view text) {
    return COJson(text).getIsValidJson();
}

std::string repeat(std::string_view text, std::size_t count) {
    std::string repeated;
    for (std::size_t i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

std::string nestArrays(std::size_t levels, std::string_view inner) {
    return repeat("[", levels).append(inner) + repeat("]", levels);
}

std::string nestObjects(std::size_t levels, std::string_view inner) {
    return repeat("{\"a\":", levels).append(inner) + repeat("}", levels);
}

/// Arrays and objects in turn, with values beside them.
std::string nestBoth(std::size_t pairsOfLevels, std::string_view inner) {
    return repeat("[1,{\"b\":true,\"a\":", pairsOfLevels).append(inner) + repeat("},null]", pairsOfLevels);
}

TEST(COJson, ReadsEachTypeOfValueAtTheTop) {
    EXPECT_TRUE(COJson("{}").obtainRoot().isObject());
    EXPECT_TRUE(COJson("[]").obtainRoot().isArray());
    EXPECT_TRUE(COJson("\"a\"").obtainRoot().isString());
    EXPECT_TRUE(COJson("1").obtainRoot().isNumber());
    EXPECT_EQ(COJson("true").obtainType(), COJsonValue::Type::Boolean);
    EXPECT_EQ(COJson("false").obtainType(), COJsonValue::Type::Boolean);
    EXPECT_TRUE(COJson("null").obtainRoot().isNull());
}

TEST(COJson, AllowsBlanksAroundEveryToken) {
    EXPECT_EQ(COJson(" \t\r\n{ \"a\" : [ 1 , 2 ] , \"b\" : { } } \t\r\n").obtainJsonString(), R"({"a":[1,2],"b":{}})");
}

TEST(COJson, RefusesWhatIsNoJson) {
    for (const std::string_view text : {"",
                                        " ",
                                        "\n",
                                        "{",
                                        "}",
                                        "[",
                                        "]",
                                        "[1",
                                        "[1,",
                                        "[1,]",
                                        "[,1]",
                                        "[1 2]",
                                        "{\"a\"}",
                                        "{\"a\":}",
                                        "{\"a\":1,}",
                                        "{a:1}",
                                        "{'a':1}",
                                        "{1:1}",
                                        "{\"a\":1 \"b\":2}",
                                        "{\"a\" 1}",
                                        "[}",
                                        "{]",
                                        "\"",
                                        "\"a",
                                        "a\"",
                                        "'a'",
                                        "nul",
                                        "nulll",
                                        "True",
                                        "tru",
                                        "falsy",
                                        "NaN",
                                        "Infinity",
                                        "-Infinity",
                                        "undefined",
                                        "// x\n1",
                                        "/* x */1",
                                        "[1]/**/",
                                        "\v1",
                                        "\f1",
                                        "\xC2\xA0"
                                        "1"}) {
        EXPECT_FALSE(isValid(text)) << text;
    }
}

TEST(COJson, RefusesTextBehindTheValue) {
    for (const std::string_view text : {"1 2", "{} {}", "[] x", "null,", "\"a\"\"b\"", "{}]", "true false", "1\n2"}) {
        EXPECT_FALSE(isValid(text)) << text;
    }
}

TEST(COJson, RefusesTextBehindANulByte) {
    EXPECT_FALSE(isValid("[1]\0"s));
    EXPECT_FALSE(isValid("[1]\0x"s));
    EXPECT_FALSE(isValid("{}\0{}"s));
    EXPECT_FALSE(isValid("\0"s));
    EXPECT_FALSE(isValid("\0[1]"s));
    EXPECT_FALSE(isValid("\"a\0b\""s));
}

TEST(COJson, SkipsOneByteOrderMark) {
    EXPECT_EQ(COJson("\xEF\xBB\xBF{\"a\":1}").obtainMember("a").obtainInteger(), 1);
    EXPECT_TRUE(isValid("\xEF\xBB\xBF 1"));
    EXPECT_FALSE(isValid("\xEF\xBB\xBF"));
    EXPECT_FALSE(
        isValid("\xEF\xBB\xBF\xEF\xBB\xBF"
                "1"));
    EXPECT_FALSE(
        isValid(" \xEF\xBB\xBF"
                "1"));
    EXPECT_FALSE(isValid("\xEF\xBB"));
    EXPECT_FALSE(isValid("\xFF\xFE[\0]\0"s));
}

TEST(COJson, KeepsAByteOrderMarkWithinAString) {
    EXPECT_EQ(COJson("\"\xEF\xBB\xBF\"").obtainRoot().obtainString(), "\xEF\xBB\xBF");
}

TEST(COJson, ReadsTextNested512LevelsDeep) {
    for (const std::string_view inner : {"", "1", "\"s\"", "1,2", "null,[],{}"}) {
        const std::size_t levelsWithin = inner.find('[') == std::string_view::npos ? 0 : 1;
        EXPECT_TRUE(isValid(nestArrays(512 - levelsWithin, inner))) << inner;
    }
    for (const std::string_view inner : {"{}", "[]"}) {
        EXPECT_TRUE(isValid(nestObjects(511, inner))) << inner;
    }
    EXPECT_TRUE(isValid(nestObjects(512, "1")));
    EXPECT_TRUE(isValid(nestBoth(256, "1")));
    EXPECT_TRUE(isValid(nestBoth(255, "[[]]")));
    EXPECT_TRUE(isValid(nestBoth(255, "{\"a\":{}}")));
}

TEST(COJson, RefusesTextNestedDeeperThan512Levels) {
    for (const std::string_view inner : {"", "1", "\"s\"", "1,2"}) {
        EXPECT_FALSE(isValid(nestArrays(513, inner))) << inner;
    }
    for (const std::string_view inner : {"{}", "[]", "[1]", "{\"b\":1}"}) {
        EXPECT_FALSE(isValid(nestObjects(512, inner))) << inner;
        EXPECT_FALSE(isValid(nestArrays(512, inner))) << inner;
        EXPECT_FALSE(isValid(nestBoth(256, inner))) << inner;
    }
    EXPECT_FALSE(isValid(nestArrays(512, "1,2,[],3")));
    EXPECT_FALSE(isValid("[" + nestArrays(512, "") + "]"));
    EXPECT_FALSE(isValid("[[],1," + nestArrays(512, "1") + ",2]"));
}

TEST(COJson, ReadsDeepTextWithNumbersOutOfRange) {
    EXPECT_TRUE(isValid(nestArrays(512, "1e400")));
    EXPECT_TRUE(isValid(nestArrays(511, "1e400,[]")));
    EXPECT_FALSE(isValid(nestArrays(513, "1e400")));
    EXPECT_FALSE(isValid(nestArrays(512, "1e400,[]")));
}

TEST(COJson, RefusesAMillionLevels) {
    EXPECT_FALSE(isValid(nestArrays(1'000'000, "")));
    EXPECT_FALSE(isValid(repeat("[", 1'000'000)));
    EXPECT_FALSE(isValid(nestObjects(1'000'000, "1")));
}

TEST(COJson, ReadsUTF8OfAllLengths) {
    const std::string text =
        "$ \xC2\xA2 \xE2\x82\xAC \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBD \xF0\x90\x8D\x88 \xF4\x8F\xBF\xBF";
    EXPECT_EQ(COJson("\"" + text + "\"").obtainRoot().obtainString(), text);
}

TEST(COJson, ReadsEveryEscape) {
    const COJson json(R"("\"\\\/\b\f\n\r\t\u0000\u001f\u0041\u00e4\u20AC\ud83d\ude00")");
    EXPECT_EQ(json.obtainRoot().obtainString(),
              "\"\\/\b\f\n\r\t\0\x1F"
              "A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"s);
}

TEST(COJson, RefusesEscapesThatAreNone) {
    for (const std::string_view text : {R"("\a")", R"("\x41")", R"("\u")", R"("\u12")", R"("\u12g4")", R"("\U0041")",
                                        R"("\")", R"("\'")", R"(\n)", R"("\u 041")", R"("\u+041")"}) {
        EXPECT_FALSE(isValid(text)) << text;
    }
}

TEST(COJson, RefusesControlCharactersInStrings) {
    for (char character = 0; character < 0x20; ++character) {
        EXPECT_FALSE(isValid("\""s + character + "\"")) << int{character};
    }
    EXPECT_TRUE(isValid("\"\x7F\""));
}

TEST(COJson, ReadsStringsOfAnyLengthAtAnyPlace) {
    for (std::size_t size = 0; size < 200; ++size) {
        const std::string text(size, 'x');
        for (const std::string_view escape : {"", "\\n"}) {
            const COJson json("[\"" + text + std::string(escape) + "\"]");
            const std::string expected = text + (escape.empty() ? "" : "\n");
            for (const COJsonValue item : json.obtainRoot().obtainItems()) {
                EXPECT_EQ(item.obtainString(), expected);
            }
        }
    }
}

TEST(COJson, ReadsLargeStrings) {
    const std::string text = repeat("0123456789 \xC3\xA4\xE2\x82\xAC ", 600'000);
    ASSERT_GT(text.size(), 10'000'000U);
    const COJson json("{\"a\":\"" + text + "\\n\"}");
    EXPECT_EQ(json.obtainMember("a").obtainString(), text + "\n");
}

TEST(COJson, ReadsTextThatEndsWhereItsMemoryEnds) {
    for (const std::string_view text : {"[\"abc\",1]", "12345", "\"abcdefghijklmnopqrstuvwxyz\"", "true"}) {
        const std::vector<char> exact(text.begin(), text.end());
        EXPECT_TRUE(isValid({exact.data(), exact.size()})) << text;
        EXPECT_FALSE(isValid({exact.data(), 0}));
    }
}

TEST(COJson, DoesNotReadBehindTheText) {
    EXPECT_EQ(COJson(std::string_view("12345", 3)).obtainRoot().obtainInteger(), 123);
    EXPECT_FALSE(isValid(std::string_view("[1]", 2)));
    EXPECT_FALSE(isValid(std::string_view("true", 3)));
}

TEST(COJson, ReadsAStringInPlaceAsItReadsOthers) {
    for (const std::string text :
         {"[1,\"a\",12345]", "\"tail\"", "123", "[1e400]", "\xEF\xBB\xBF[true]", "[1", "", "tru"}) {
        const COJson expected{std::string_view(text)};
        for (std::size_t spare = 0; spare < 200; ++spare) {
            std::string padded = text;
            // What stood behind the text in its memory must not matter.
            padded.append(spare, '1').resize(text.size());
            const COJson json = COJson::readInPlace(padded);
            ASSERT_EQ(json.getIsValidJson(), expected.getIsValidJson()) << text << " " << spare;
            ASSERT_EQ(json.obtainJsonString(), expected.obtainJsonString()) << text << " " << spare;
            ASSERT_EQ(padded, text) << spare;
        }
    }
}

TEST(COJson, ReadsTextsOneAfterAnotherIntoItsOwnMemory) {
    const std::string deep = std::string(512, '[') + std::string(512, ']');
    const std::string texts[] = {
        R"({"a":1})", "no JSON", "[12345678901234567890123]",           "[1]",           '[' + deep + ']',
        deep,         "",        '"' + std::string(100'000, 'x') + '"', R"(["\ud800"])", "\xEF\xBB\xBF{}",
        "3",          "\"cut"};
    for (const bool isPadded : {false, true}) {
        COJson json;
        for (int round = 0; round < 3; ++round) {
            for (const std::string& original : texts) {
                const COJson expected{std::string_view(original)};
                std::string text = original;
                text.reserve(text.size() + (isPadded ? 64U : 0U));
                ASSERT_EQ(json.rereadInPlace(text), expected.getIsValidJson()) << original.substr(0, 50);
                ASSERT_EQ(json.getIsValidJson(), expected.getIsValidJson()) << original.substr(0, 50);
                ASSERT_EQ(json.obtainJsonString(), expected.obtainJsonString()) << original.substr(0, 50);
                ASSERT_EQ(text, original);
            }
        }
    }
}

TEST(COJson, RereadsWhereNothingIsLeftToReadInto) {
    COJson json;
    const COJson taken = std::move(json);
    std::string text = "[true]";
    EXPECT_TRUE(json.rereadInPlace(text));  // NOLINT(bugprone-use-after-move): documented
    EXPECT_EQ(json.obtainJsonString(), text);
    EXPECT_EQ(taken.obtainJsonString(), "{}");
}

TEST(COJson, DoesNotKeepTheText) {
    for (const std::size_t spare : {0U, 100U}) {
        std::string text = R"({"key":"value"})";
        text.reserve(text.size() + spare);
        const COJson json = COJson::readInPlace(text);
        text.assign(text.size(), '#');
        EXPECT_EQ(json.obtainMember("key").obtainString(), "value");
    }
}

/// Address space that is never touched, so that no memory stands behind it.
class Reservation {
public:
    explicit Reservation(std::size_t size)
        : m_size(size), m_place(mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
    ~Reservation() {
        if (isThere()) {
            munmap(m_place, m_size);
        }
    }
    Reservation(const Reservation&) = delete;
    Reservation& operator=(const Reservation&) = delete;

    [[nodiscard]] bool isThere() const { return m_place != MAP_FAILED; }
    [[nodiscard]] std::string_view obtainText() const { return {static_cast<const char*>(m_place), m_size}; }

private:
    std::size_t m_size;
    void* m_place;
};

TEST(COJson, RefusesTextOfMoreThan4GB) {
    const Reservation text((std::size_t{4} << 30) + 4096);
    ASSERT_TRUE(text.isThere());
    EXPECT_FALSE(isValid(text.obtainText()));
}

TEST(COJson, FindsTheFirstOfTwoMembersWithOneKey) {
    const COJson json(R"({"a":1,"b":2,"a":3})");
    EXPECT_EQ(json.obtainMember("a").obtainInteger(), 1);
    EXPECT_EQ(json.obtainJsonKeys(), (std::vector<std::string>{"a", "b", "a"}));
    EXPECT_EQ(json.obtainJsonString(), R"({"a":1,"b":2,"a":3})");
}

TEST(COJson, KeepsTheOrderOfMembers) {
    const std::string text = R"({"zeta":1,"alpha":{"y":[],"x":{}},"":null,"mu":false})";
    EXPECT_EQ(COJson(text).obtainJsonString(), text);
}

TEST(COJson, TellsThatARefusedTextHoldsNothing) {
    const COJson json("{\"a\":1");
    EXPECT_FALSE(json.getIsValidJson());
    EXPECT_FALSE(json.obtainRoot().getIsValidJson());
    EXPECT_FALSE(json.obtainMember("a").getIsValidJson());
    EXPECT_EQ(json.obtainType(), COJsonValue::Type::Undefined);
    EXPECT_TRUE(json.obtainJsonKeys().empty());
    EXPECT_EQ(json.obtainRoot().obtainJsonString(), "");
    EXPECT_EQ(json.obtainJsonString(), "null");
}

TEST(COJson, LeavesAnInvalidDocumentBehindWhenMoved) {
    COJson source(R"({"a":"text"})");
    COJson target(std::move(source));
    EXPECT_FALSE(source.getIsValidJson());  // NOLINT(bugprone-use-after-move): what a move leaves is told
    EXPECT_FALSE(source.obtainMember("a").getIsValidJson());
    EXPECT_FALSE(source.addKeyValue("b").getIsValidJson());
    EXPECT_EQ(target.obtainMember("a").obtainString(), "text");

    COJson other;
    other = std::move(target);
    EXPECT_FALSE(target.getIsValidJson());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(other.obtainJsonString(), R"({"a":"text"})");
}

TEST(COJson, IsReadByManyThreadsAtOnce) {
    const COJson json(R"({"a":[1,2,3,{"b":"text"}],"c":1.5})");
    std::vector<std::string> texts(4);
    std::vector<std::thread> threads;
    for (std::string& text : texts) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                text = json.obtainJsonString();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& text : texts) {
        EXPECT_EQ(text, R"({"a":[1,2,3,{"b":"text"}],"c":1.5})");
    }
}

TEST(ICOJsonValue, WritesAnyValueThroughTheInterface) {
    const COJson json("[1]");
    const ICOJsonValue& value = json;
    EXPECT_EQ(value.obtainJsonString(), "[1]");

    class Greeting : public ICOJsonValue {
    public:
        void writeJson(COJsonWriter& writer) const override {
            writer.beginObject();
            writer.writeMember("text", "hello");
            writer.endObject();
        }
    };
    EXPECT_EQ(Greeting().obtainJsonString(), R"({"text":"hello"})");
}

}  // namespace
