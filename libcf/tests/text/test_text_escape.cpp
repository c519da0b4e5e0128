#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "text/text_escape.h"

namespace cf {
namespace {

/// What a byte is written as, the slow way.
std::string spell(unsigned char byte) {
    constexpr std::string_view kWithLetter = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    const auto place = kWithLetter.find(static_cast<char>(byte));
    if (place != std::string_view::npos) {
        return {'\\', kLetters[place]};
    }
    if (byte < 0x20) {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", byte);
        return escape;
    }
    return {static_cast<char>(byte)};
}

/// Writes a text that ends where its memory ends, into just as much memory as is asked for, so that the sanitizers see
/// any step aside. Where it stops short of room it gets more.
std::string escapeWhole(const std::string& text, PlainBytes plain) {
    const std::vector<char> source(text.begin(), text.end());
    const char* rest = source.data();
    const char* const end = rest + source.size();
    std::string written;
    for (;;) {
        std::vector<char> target(static_cast<std::size_t>(end - rest) + kEscapeRoom);
        const char* const limit = target.data() + target.size();
        const EscapeProgress progress = escapeText(target.data(), limit, rest, end, plain);
        const bool hasStopped = progress.text == rest;
        written.append(target.data(), progress.out);
        rest = progress.text;
        if (rest == end || hasStopped) {
            return written;
        }
    }
}

void expectEscaped(const std::string& text, PlainBytes plain) {
    std::string expected;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x80 && plain == PlainBytes::ASCII) {
            break;
        }
        expected += spell(byte);
    }
    ASSERT_EQ(escapeWhole(text, plain), expected) << testing::PrintToString(text);
}

TEST(TextEscape, KnowsEachByteAtEachPlace) {
    for (const PlainBytes plain : {PlainBytes::ASCII, PlainBytes::All}) {
        for (const std::size_t size : {1U, 3U, 4U, 7U, 8U, 9U, 15U, 16U, 17U, 31U, 32U, 33U, 48U, 64U, 65U, 97U}) {
            for (std::size_t place = 0; place < size; ++place) {
                for (int byte = 0; byte < 256; ++byte) {
                    std::string text(size, '~');
                    text[place] = static_cast<char>(byte);
                    expectEscaped(text, plain);
                }
            }
        }
    }
}

TEST(TextEscape, EscapesSeveralBytesOfOneText) {
    std::mt19937 random(11);
    for (int round = 0; round < 20'000; ++round) {
        const unsigned plainRun = 1 + random() % 60;
        std::string text(random() % 150, ' ');
        for (char& byte : text) {
            byte = static_cast<char>(random() % plainRun == 0 ? random() % 0x60 : 0x23 + random() % 0x39);
            byte = static_cast<char>(random() % 2000 == 0 ? 0x80 + random() % 0x80 : byte);
        }
        expectEscaped(text, PlainBytes::ASCII);
        expectEscaped(text, PlainBytes::All);
    }
}

TEST(TextEscape, StopsWhereRoomGetsShort) {
    const std::string text(40, '\x01');
    for (std::size_t spare = kEscapeRoom; spare < 240; ++spare) {
        std::vector<char> target(text.size() + spare);
        const char* const limit = target.data() + target.size();
        const char* const end = text.data() + text.size();
        const EscapeProgress progress = escapeText(target.data(), limit, text.data(), end, PlainBytes::ASCII);
        ASSERT_LE(progress.out, limit);
        const auto left = static_cast<std::size_t>(end - progress.text);
        const auto room = static_cast<std::size_t>(limit - progress.out);
        // It goes on as long as it may: one byte less would have left room enough.
        ASSERT_TRUE(left == 0 || room < left + kEscapeRoom) << spare;
        ASSERT_EQ(progress.out - target.data(), 6 * (progress.text - text.data()));
    }
}

TEST(TextEscape, StopsBeforeAByteBeyondASCII) {
    for (std::size_t before = 0; before < 15; ++before) {
        const std::string text = std::string(before, 'a') + '\x80';
        std::vector<char> target(text.size() + kEscapeRoom);
        const EscapeProgress progress = escapeText(target.data(), target.data() + target.size(), text.data(),
                                                   text.data() + text.size(), PlainBytes::ASCII);
        ASSERT_EQ(progress.text, text.data() + before);
        ASSERT_EQ(progress.out, target.data() + before);
    }
}

}  // namespace
}  // namespace cf
