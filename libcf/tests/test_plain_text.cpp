#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "../src/plain_text.h"

namespace {

using Copy = std::size_t (*)(char*, const char*, std::size_t, PlainBytes) noexcept;

struct Way {
    const char* name;
    Copy copy;
    std::size_t leastSize;
};

std::vector<Way> listWays() {
    std::vector<Way> ways{{"bytes", copyPlainBytes, 0},
                          {"words", copyPlainWords, 8},
                          {"blocks", copyPlainBlocks, 16},
                          {"text", copyPlainText, 0}};
#if defined(__x86_64__)
    ways.push_back({"SSE2", copyPlainBySSE2, 16});
    if (__builtin_cpu_supports("avx2") != 0) {
        ways.push_back({"AVX2", copyPlainByAVX2, 64});
    }
#endif
    return ways;
}

bool isPlain(unsigned char byte, PlainBytes plain) {
    const bool isSpecial = byte < 0x20 || byte == 0x22 || byte == 0x5C;
    return !isSpecial && (byte < 0x80 || plain == PlainBytes::All);
}

/// Copies a text that ends where its memory ends, into as much memory, so that the sanitizers see any step aside.
void expectCopy(const Way& way, const std::string& text, PlainBytes plain) {
    std::size_t expected = 0;
    while (expected < text.size() && isPlain(static_cast<unsigned char>(text[expected]), plain)) {
        ++expected;
    }
    const std::vector<char> source(text.begin(), text.end());
    std::vector<char> target(text.size());
    const std::size_t copied = way.copy(target.data(), source.data(), source.size(), plain);
    ASSERT_EQ(copied, expected) << way.name << " " << testing::PrintToString(text);
    ASSERT_EQ(std::string_view(target.data(), copied), std::string_view(text).substr(0, copied)) << way.name;
}

TEST(PlainText, KnowsEachByteAtEachPlaceInEachWay) {
    for (const Way& way : listWays()) {
        for (const PlainBytes plain : {PlainBytes::ASCII, PlainBytes::All}) {
            for (const std::size_t size :
                 {1U, 3U, 4U, 7U, 8U, 9U, 15U, 16U, 17U, 31U, 33U, 63U, 64U, 65U, 100U, 128U}) {
                for (std::size_t place = 0; size >= way.leastSize && place < size; ++place) {
                    for (int byte = 0; byte < 256; ++byte) {
                        std::string text(size, '~');
                        text[place] = static_cast<char>(byte);
                        expectCopy(way, text, plain);
                    }
                }
            }
        }
    }
}

TEST(PlainText, StopsAtTheFirstOfSeveralBytes) {
    std::mt19937 random(11);
    for (const Way& way : listWays()) {
        for (int round = 0; round < 20'000; ++round) {
            std::string text(way.leastSize + random() % 150, ' ');
            for (char& byte : text) {
                byte = static_cast<char>(random() % 40 == 0 ? random() % 256 : 0x23 + random() % 0x39);
            }
            expectCopy(way, text, PlainBytes::ASCII);
            expectCopy(way, text, PlainBytes::All);
        }
    }
}

}  // namespace
