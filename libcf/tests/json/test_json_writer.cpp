#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

#include "cf/json.h"

namespace {

using namespace std::string_literals;

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

std::string repeat(std::string_view text, std::size_t count) {
    std::string repeated;
    for (std::size_t i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

std::string writeString(std::string_view text) {
    std::string target;
    COJsonWriter writer(target);
    writer.writeString(text);
    writer.finish();
    return target;
}

template <typename Write>
std::string write(Write write) {
    std::string target;
    COJsonWriter writer(target);
    write(writer);
    writer.finish();
    return target;
}

TEST(COJsonWriter, SeparatesMembersAndItems) {
    EXPECT_EQ(write([](COJsonWriter& writer) {
                  writer.beginObject();
                  writer.writeMember("a", "b");
                  writer.writeKey("list");
                  writer.beginArray();
                  writer.writeInteger(1);
                  writer.writeDouble(0.5);
                  writer.beginArray();
                  writer.endArray();
                  writer.beginObject();
                  writer.endObject();
                  writer.writeBoolean(true);
                  writer.writeBoolean(false);
                  writer.writeNull();
                  writer.endArray();
                  writer.writeKey("c");
                  writer.writeString("d");
                  writer.endObject();
              }),
              R"({"a":"b","list":[1,0.5,[],{},true,false,null],"c":"d"})");
}

TEST(COJsonWriter, WritesAStringBetweenFixedPieces) {
    EXPECT_EQ(write([](COJsonWriter& writer) {
                  writer.beginArray();
                  writer.writeFramed(R"({"role":"user","content":)", "a\n\xFF", "}");
                  writer.writeFramed("", "", "");
                  writer.writeNull();
                  writer.writeFramed("[", "b", ",[]]");
                  writer.endArray();
              }),
              R"([{"role":"user","content":"a\n)" + std::string(kReplacement) + R"("},"",null,["b",[]]])");
}

TEST(COJsonWriter, AppendsBehindWhatTheTargetHolds) {
    std::string target = "data: ";
    COJsonWriter writer(target);
    writer.beginArray();
    writer.writeInteger(1);
    writer.endArray();
    writer.finish();
    EXPECT_EQ(target, "data: [1]");
}

TEST(COJsonWriter, FinishesWhenItIsDestroyed) {
    std::string target;
    {
        COJsonWriter writer(target);
        writer.writeString("text");
    }
    EXPECT_EQ(target, "\"text\"");
}

TEST(COJsonWriter, LeavesTheTargetAsItIsWhenNothingIsWritten) {
    std::string target = "before";
    { const COJsonWriter writer(target); }
    EXPECT_EQ(target, "before");
    {
        COJsonWriter writer(target);
        writer.reserve(10'000);
    }
    EXPECT_EQ(target, "before");
}

TEST(COJsonWriter, WritesIntoTheRoomThatWasReserved) {
    const std::string text(100'000, 'x');
    std::string target;
    COJsonWriter writer(target);
    writer.reserve(text.size() + 2);
    writer.writeString(text);
    writer.finish();
    EXPECT_EQ(target, "\"" + text + "\"");
    EXPECT_LT(target.capacity(), text.size() + 200);
}

TEST(COJsonWriter, WritesNumbers) {
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeInteger(std::numeric_limits<std::int64_t>::min()); }),
              "-9223372036854775808");
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeInteger(std::numeric_limits<std::int64_t>::max()); }),
              "9223372036854775807");
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeDouble(0.2); }), "0.2");
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeDouble(1.0); }), "1");
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeDouble(0.0); }), "0");
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeDouble(-0.0); }), "-0.0");
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeDouble(-2.2250738585072014e-308); }),
              "-2.2250738585072014e-308");
}

TEST(COJsonWriter, WritesNumbersInTheCLocaleInAnyLocale) {
    const std::string former = std::setlocale(LC_ALL, nullptr);
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE", "fr_FR"}) {
        if (std::setlocale(LC_ALL, name) != nullptr) {
            break;
        }
    }
    EXPECT_EQ(write([](COJsonWriter& writer) { writer.writeDouble(1234.5); }), "1234.5");
    EXPECT_EQ(COJson("[1234.5]").obtainJsonString(), "[1234.5]");
    std::setlocale(LC_ALL, former.c_str());
}

TEST(COJsonWriter, WritesANumberThatIsNotFiniteAsNull) {
    for (const double number : {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(write([&](COJsonWriter& writer) {
                      writer.beginArray();
                      writer.writeDouble(number);
                      writer.writeDouble(1.5);
                      writer.endArray();
                  }),
                  "[null,1.5]");
    }
}

TEST(COJsonWriter, EscapesWhatJsonAsksFor) {
    EXPECT_EQ(writeString("\"\\\b\f\n\r\t/"), R"("\"\\\b\f\n\r\t/")");
    EXPECT_EQ(writeString("\0\x01\x0B\x0E\x1F\x7F"s), "\"\\u0000\\u0001\\u000b\\u000e\\u001f\x7F\"");
    EXPECT_EQ(writeString(""), "\"\"");
}

TEST(COJsonWriter, EscapesKeysToo) {
    EXPECT_EQ(write([](COJsonWriter& writer) {
                  writer.beginObject();
                  writer.writeMember("a\n\xFF", "b");
                  writer.writeKey("\"c\"");
                  writer.writeNull();
                  writer.endObject();
              }),
              "{\"a\\n\xEF\xBF\xBD\":\"b\",\"\\\"c\\\"\":null}");
}

TEST(COJsonWriter, EscapesEachByteAtEachPlaceOfATextOfAnyLength) {
    for (std::size_t size = 1; size <= 150; ++size) {
        for (std::size_t place = 0; place < size; ++place) {
            for (const auto& [byte, escape] :
                 {std::pair{'"', "\\\""}, {'\\', "\\\\"}, {'\n', "\\n"}, {'\x1F', "\\u001f"}}) {
                std::string text(size, 'x');
                text[place] = byte;
                const std::string expected =
                    "\"" + std::string(place, 'x') + escape + std::string(size - place - 1, 'x') + "\"";
                ASSERT_EQ(writeString(text), expected) << size << " " << place;
            }
        }
    }
}

TEST(COJsonWriter, PassesUTF8OnAtEachPlaceOfATextOfAnyLength) {
    for (const std::string_view sequence :
         {"\xC2\x80", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\x7F"}) {
        for (std::size_t before = 0; before < 70; ++before) {
            for (const std::size_t after : {0U, 1U, 15U, 16U, 40U, 64U}) {
                const std::string text =
                    std::string(before, 'x').append(sequence) + std::string(after, 'y').append(sequence);
                ASSERT_EQ(writeString(text), "\"" + text + "\"") << before << " " << after;
            }
        }
    }
}

struct IllFormedText {
    std::string_view text;
    std::size_t replacements;
};

// One U+FFFD for each maximal subpart: the longest start of a sequence that could still have become one, or a byte.
constexpr IllFormedText kIllFormedTexts[] = {
    {"\x80", 1},
    {"\xBF", 1},
    {"\xC0\x80", 2},
    {"\xC1\xBF", 2},
    {"\xC2", 1},
    {"\xDF", 1},
    {"\xE0\x80\x80", 3},
    {"\xE0\x9F\xBF", 3},
    {"\xE0\xA0", 1},
    {"\xE2\x82", 1},
    {"\xE2", 1},
    {"\xED\xA0\x80", 3},
    {"\xED\xBF\xBF", 3},
    {"\xED\x9F", 1},
    {"\xF0\x80\x80", 3},
    {"\xF0\x80\x80\x80", 4},
    {"\xF0\x8F\xBF\xBF", 4},
    {"\xF0\x90", 1},
    {"\xF0\x9F\x98", 1},
    {"\xF4\x90\x80\x80", 4},
    {"\xF4\x8F\xBF", 1},
    {"\xF5\x80\x80\x80", 4},
    {"\xF8\x88\x80\x80\x80", 5},
    {"\xFE", 1},
    {"\xFF\xFF", 2},
    {"\xE2\x82\xE2\x82", 2},
    {"\xF0\x9F\x98\xE2\x82\xC2\x80\x80", 4},
};

TEST(COJsonWriter, ReplacesEachMaximalIllFormedPartOfUTF8) {
    for (const IllFormedText& example : kIllFormedTexts) {
        std::string expected;
        for (std::size_t i = 0; i < example.replacements; ++i) {
            expected += kReplacement;
        }
        if (example.text == "\xF0\x9F\x98\xE2\x82\xC2\x80\x80") {
            expected = repeat(kReplacement, 2) + "\xC2\x80" + std::string(kReplacement);
        }
        EXPECT_EQ(writeString(example.text), "\"" + expected + "\"") << testing::PrintToString(example.text);
        for (std::size_t before = 0; before < 40; ++before) {
            const std::string text = std::string(before, 'a').append(example.text) + "b";
            ASSERT_EQ(writeString(text), "\"" + std::string(before, 'a') + expected + "b\"") << before;
        }
    }
}

TEST(COJsonWriter, EscapesAndReplacesSideBySide) {
    EXPECT_EQ(writeString("\xE2\x82\n\xE2\x82\xAC\"\xFF\\"), "\"\xEF\xBF\xBD\\n\xE2\x82\xAC\\\"\xEF\xBF\xBD\\\\\"");
    EXPECT_EQ(writeString("\xC3\xA4\n\xC3\xA4\"" + std::string(100, '\t') + "\xC3\xA4"),
              "\"\xC3\xA4\\n\xC3\xA4\\\"" + repeat("\\t", 100) + "\xC3\xA4\"");
}

TEST(COJsonWriter, WritesLargeTexts) {
    const std::string plain = repeat("0123456789abcdef", 700'000);
    EXPECT_EQ(writeString(plain), "\"" + plain + "\"");
    EXPECT_EQ(writeString(std::string(10'000'000, '\x01')), "\"" + repeat("\\u0001", 10'000'000) + "\"");
    EXPECT_EQ(writeString(std::string(5'000'000, '\xFF')), "\"" + repeat(kReplacement, 5'000'000) + "\"");
    const std::string mixed = repeat("\xE2\x82\xAC\n", 2'000'000);
    EXPECT_EQ(writeString(mixed), "\"" + repeat("\xE2\x82\xAC\\n", 2'000'000) + "\"");
}

TEST(COJsonWriter, GrowsBehindAKeyWhoseEscapesTookTheRoom) {
    for (std::size_t escapes = 0; escapes < 80; ++escapes) {
        const std::string key(escapes, '\x01');
        const std::string text(300, 'x');
        std::string target;
        COJsonWriter writer(target);
        writer.beginObject();
        writer.writeMember(key, text);
        writer.writeKey(key);
        writer.writeDouble(-1.2345678901234568e-300);
        writer.endObject();
        writer.finish();
        const std::string writtenKey = "\"" + repeat("\\u0001", escapes) + "\":";
        ASSERT_EQ(target, "{" + writtenKey + "\"" + text + "\"," + writtenKey + "-1.2345678901234568e-300}");
    }
}

TEST(COJsonWriter, GrowsAnywhereInADocument) {
    for (std::size_t room = 0; room < 200; ++room) {
        std::string target(room, '#');
        target.shrink_to_fit();
        COJsonWriter writer(target);
        std::string expected = std::string(room, '#') + "[";
        writer.beginArray();
        for (int i = 0; i < 30; ++i) {
            writer.writeString("\x01\"\xFF");
            writer.writeFramed("[1,", "\x02", ",[22,333,4444]]");
            writer.writeInteger(-1234567890123456789);
            writer.writeNull();
            expected += R"("\u0001\")" + std::string(kReplacement) +
                        R"(",[1,"\u0002",[22,333,4444]],-1234567890123456789,null,)";
        }
        writer.endArray();
        writer.finish();
        expected.back() = ']';
        ASSERT_EQ(target, expected) << room;
    }
}

TEST(COJsonWriter, LeavesAValidTargetWhenThereIsNotEnoughRoom) {
    std::string target = "before";
    {
        COJsonWriter writer(target);
        writer.beginArray();
        writer.writeString("written");
        EXPECT_THROW(writer.reserve(std::numeric_limits<std::size_t>::max()), std::length_error);
        EXPECT_THROW(writer.reserve(target.max_size()), std::length_error);
        writer.writeString("after");
        writer.endArray();
    }
    EXPECT_EQ(target, R"(before["written","after"])");
}

/// What an independent library makes of the same text.
std::string writeByOracle(const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

TEST(COJsonWriter, WritesRandomTextsLikeAnotherLibrary) {
    std::mt19937 random(20240229);
    const std::string_view pieces[] = {"a",
                                       "plain text of some length ",
                                       "\"",
                                       "\\",
                                       "\n",
                                       "\x01",
                                       "\x7F",
                                       "\xC3\xA4",
                                       "\xE2\x82\xAC",
                                       "\xF0\x9F\x98\x80",
                                       "\xE2\x82",
                                       "\xFF",
                                       "\xED\xA0\x80",
                                       "\xF0\x9F",
                                       "\x80",
                                       "0123456789abcdef0123456789abcdef"};
    for (int round = 0; round < 20'000; ++round) {
        // Some texts are ASCII, some well-formed, some anything.
        const std::size_t pieceCount = round % 3 == 0 ? 7 : (round % 3 == 1 ? 10 : std::size(pieces));
        std::string text;
        for (std::size_t count = random() % 12; count > 0; --count) {
            text += pieces[random() % pieceCount];
        }
        ASSERT_EQ(writeString(text), writeByOracle(text)) << testing::PrintToString(text);
    }
}

TEST(COJsonWriter, WritesRandomBytesLikeAnotherLibrary) {
    std::mt19937 random(7);
    for (int round = 0; round < 20'000; ++round) {
        std::string text(random() % 80, '\0');
        for (char& byte : text) {
            byte = static_cast<char>(round % 2 == 0 ? random() % 256 : 0x20 + random() % 0x60);
        }
        ASSERT_EQ(writeString(text), writeByOracle(text)) << testing::PrintToString(text);
    }
}

}  // namespace

TEST(COJsonWriter, DoesNotMoveATargetWithTheCapacityThatAFramedTextMayNeed) {
    constexpr std::string_view kBefore = R"({"role":"user","content":)";
    for (const std::string_view part : {"\x1f", "\"", "\xff", "x", "\xc3\xbc", "\xff\x1f\\"}) {
        for (std::size_t repeats = 0; repeats < 300; ++repeats) {
            std::string text;
            for (std::size_t i = 0; i < repeats; ++i) {
                text += part;
            }
            std::string target = "[";
            target.reserve(target.size() + COJsonWriter::countMostFramed(kBefore, text, "}"));
            const char* const address = target.data();
            COJsonWriter(target).writeFramed(kBefore, text, "}");
            ASSERT_EQ(target.data(), address) << repeats << " times " << part;
        }
    }
}
