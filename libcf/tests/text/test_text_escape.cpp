#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "text/text_escape.h"

namespace cf {
namespace {

using Escape = EscapeProgress (*)(char*, const char*, const char*, const char*, PlainBytes) noexcept;

struct Way {
    const char* name;
    Escape escape;
};

std::vector<Way> listWays() {
    std::vector<Way> ways{{"bytes", escapeBytes}, {"words", escapeByWords}, {"text", escapeText}};
#if defined(__x86_64__)
    ways.push_back({"SSE2", escapeBySSE2});
    if (__builtin_cpu_supports("avx2") != 0) {
        ways.push_back({"AVX2", escapeByAVX2});
    }
#endif
    return ways;
}

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
std::string escapeWhole(const Way& way, const std::string& text, PlainBytes plain) {
    const std::vector<char> source(text.begin(), text.end());
    const char* rest = source.data();
    const char* const end = rest + source.size();
    std::string written;
    for (;;) {
        std::vector<char> target(static_cast<std::size_t>(end - rest) + kEscapeRoom);
        const char* const limit = target.data() + target.size();
        const EscapeProgress progress = way.escape(target.data(), limit, rest, end, plain);
        const bool hasStopped = progress.text == rest;
        written.append(target.data(), progress.out);
        rest = progress.text;
        if (rest == end || hasStopped) {
            return written;
        }
    }
}

void expectEscaped(const Way& way, const std::string& text, PlainBytes plain) {
    std::string expected;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x80 && plain == PlainBytes::ASCII) {
            break;
        }
        expected += spell(byte);
    }
    ASSERT_EQ(escapeWhole(way, text, plain), expected) << way.name << " " << testing::PrintToString(text);
}

TEST(TextEscape, KnowsEachByteAtEachPlaceInEachWay) {
    for (const Way& way : listWays()) {
        for (const PlainBytes plain : {PlainBytes::ASCII, PlainBytes::All}) {
            for (const std::size_t size : {1U, 3U, 4U, 7U, 8U, 9U, 15U, 16U, 17U, 31U, 32U, 33U, 48U, 64U, 65U, 97U}) {
                for (std::size_t place = 0; place < size; ++place) {
                    for (int byte = 0; byte < 256; ++byte) {
                        std::string text(size, '~');
                        text[place] = static_cast<char>(byte);
                        expectEscaped(way, text, plain);
                    }
                }
            }
        }
    }
}

TEST(TextEscape, EscapesSeveralBytesOfOneText) {
    std::mt19937 random(11);
    for (const Way& way : listWays()) {
        for (int round = 0; round < 20'000; ++round) {
            const unsigned plainRun = 1 + random() % 60;
            std::string text(random() % 150, ' ');
            for (char& byte : text) {
                byte = static_cast<char>(random() % plainRun == 0 ? random() % 0x60 : 0x23 + random() % 0x39);
                byte = static_cast<char>(random() % 2000 == 0 ? 0x80 + random() % 0x80 : byte);
            }
            expectEscaped(way, text, PlainBytes::ASCII);
            expectEscaped(way, text, PlainBytes::All);
        }
    }
}

TEST(TextEscape, CopiesShortTextsThatAreAllPlain) {
    for (std::size_t size = 0; size < 40; ++size) {
        for (std::size_t place = 0; place < size; ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                std::vector<char> text(size, '~');
                text[place] = static_cast<char>(byte);
                for (const PlainBytes plain : {PlainBytes::ASCII, PlainBytes::All}) {
                    const bool isLong = plain == PlainBytes::ASCII && byte >= 0x80;
                    const bool isPlain = !isLong && spell(static_cast<unsigned char>(byte)).size() == 1;
                    std::vector<char> target(size, '#');
                    const bool isCopied = copyShortPlainText(target.data(), text.data(), size, plain);
                    ASSERT_EQ(isCopied, isPlain && size >= 4 && size < 16) << size << " " << place << " " << byte;
                    ASSERT_EQ(target, isCopied ? text : std::vector<char>(size, '#'));
                }
            }
        }
    }
    EXPECT_FALSE(copyShortPlainText(nullptr, nullptr, 0, PlainBytes::ASCII));
}

TEST(TextEscape, StopsWhereRoomGetsShort) {
    for (const Way& way : listWays()) {
        const std::string text(15, '\x01');
        for (std::size_t spare = kEscapeRoom; spare < 80; ++spare) {
            std::vector<char> target(text.size() + spare);
            const char* const limit = target.data() + target.size();
            const char* const end = text.data() + text.size();
            const EscapeProgress progress = way.escape(target.data(), limit, text.data(), end, PlainBytes::ASCII);
            ASSERT_LE(progress.out, limit) << way.name;
            const auto left = static_cast<std::size_t>(end - progress.text);
            const auto room = static_cast<std::size_t>(limit - progress.out);
            // It goes on as long as it may: one byte less would have left room enough.
            ASSERT_TRUE(left == 0 || room < left + kEscapeRoom) << way.name << " " << spare;
            ASSERT_EQ(progress.out - target.data(), 6 * (progress.text - text.data())) << way.name;
        }
    }
}

TEST(TextEscape, StopsBeforeAByteBeyondASCII) {
    for (const Way& way : listWays()) {
        for (std::size_t before = 0; before < 15; ++before) {
            const std::string text = std::string(before, 'a') + '\x80';
            std::vector<char> target(text.size() + kEscapeRoom);
            const EscapeProgress progress = way.escape(target.data(), target.data() + target.size(), text.data(),
                                                       text.data() + text.size(), PlainBytes::ASCII);
            ASSERT_EQ(progress.text, text.data() + before) << way.name;
            ASSERT_EQ(progress.out, target.data() + before) << way.name;
        }
    }
}

}  // namespace
}  // namespace cf
