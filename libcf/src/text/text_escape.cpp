#include "text/text_escape.h"

#include <array>
#include <bit>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace cf {

namespace {

/// What a byte is written as.
struct Escape {
    char text[kEscapeRoom - 1];
    std::uint8_t size;
};

constexpr Escape makeShortEscape(char letter) noexcept {
    return {{'\\', letter}, 2};
}

/// The escapes of all bytes up to the backslash; those of bytes that are plain are empty.
constexpr auto makeEscapes() noexcept {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<Escape, '\\' + 1> escapes{};
    for (unsigned byte = 0; byte < 0x20; ++byte) {
        escapes[byte] = {{'\\', 'u', '0', '0', kDigits[byte >> 4], kDigits[byte & 0xF]}, 6};
    }
    escapes['\b'] = makeShortEscape('b');
    escapes['\f'] = makeShortEscape('f');
    escapes['\n'] = makeShortEscape('n');
    escapes['\r'] = makeShortEscape('r');
    escapes['\t'] = makeShortEscape('t');
    escapes['"'] = makeShortEscape('"');
    escapes['\\'] = makeShortEscape('\\');
    return escapes;
}

constexpr auto kEscapes = makeEscapes();

/// Writes the escape of the byte at progress.text, which is not plain.
/// @return whether to go on: not where the byte has none, and not where room is short behind it
bool appendEscape(EscapeProgress& progress, const char* limit, const char* end) noexcept {
    const auto byte = static_cast<unsigned char>(*progress.text);
    if (byte >= 0x80) {
        return false;
    }
    const Escape& escape = kEscapes[byte];
    std::memcpy(progress.out, &escape, sizeof escape);
    progress.out += escape.size;
    ++progress.text;
    return limit - progress.out >= end - progress.text + static_cast<std::ptrdiff_t>(kEscapeRoom);
}

/// The writing by blocks. `Block` copies one and gives a number in which each of its special bytes has set bits, in
/// order; `escapeRest` writes what is less than a block, or left behind an escape and less than that.
template <typename Block, typename EscapeRest>
[[gnu::always_inline]] inline EscapeProgress escapeBlocks(EscapeProgress progress, const char* limit, const char* end,
                                                          PlainBytes plain, EscapeRest escapeRest) noexcept {
    constexpr auto kSize = static_cast<std::ptrdiff_t>(Block::kSize);
    auto [out, text] = progress;
    if (end - text < kSize) {
        return escapeRest(out, limit, text, end, plain);
    }
    const char* const lastBlock = end - kSize;
    for (;;) {
        const char* const plainSince = text;
        typename Block::Marks special = 0;
        while (text <= lastBlock && (special = Block::copy(out, text, plain)) == 0) {
            out += kSize;
            text += kSize;
        }
        if (special == 0) {
            const std::ptrdiff_t missing = text - lastBlock;
            if (missing == kSize) {
                return {out, text};
            }
            if (text - plainSince < missing) {
                return escapeRest(out, limit, text, end, plain);
            }
            // The last block ends with the text, and copies some plain bytes again.
            out -= missing;
            text = lastBlock;
            special = Block::copy(out, text, plain);
            if (special == 0) {
                return {out + kSize, end};
            }
        }
        const auto copied = static_cast<std::size_t>(std::countr_zero(special)) / Block::kBitsAByte;
        progress = {out + copied, text + copied};
        if (!appendEscape(progress, limit, end)) {
            return progress;
        }
        out = progress.out;
        text = progress.text;
    }
}

struct WordBlock {
    using Marks = TextWord;
    static constexpr std::size_t kSize = sizeof(TextWord);
    static constexpr std::size_t kBitsAByte = 8;

    static Marks copy(char* out, const char* text, PlainBytes plain) noexcept {
        TextWord word = 0;
        std::memcpy(&word, text, kSize);
        std::memcpy(out, &word, kSize);
        if constexpr (std::endian::native == std::endian::big) {
            word = __builtin_bswap64(word);
        }
        return markSpecialBytes(word, plain);
    }
};

#if defined(__x86_64__)

struct SSE2Block {
    using Marks = std::uint32_t;
    static constexpr std::size_t kSize = sizeof(__m128i);
    static constexpr std::size_t kBitsAByte = 1;

    static Marks copy(char* out, const char* text, PlainBytes plain) noexcept {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), block);
        return findSpecialBytes(block, plain);
    }
};

struct AVX2Block {
    using Marks = std::uint32_t;
    static constexpr std::size_t kSize = sizeof(__m256i);
    static constexpr std::size_t kBitsAByte = 1;

    /// As SSE2Block with findSpecialBytes().
    __attribute__((target("avx2"))) static Marks copy(char* out, const char* text, PlainBytes plain) noexcept {
        const bool isASCII = plain == PlainBytes::ASCII;
        const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), block);
        const __m256i flipped = _mm256_set1_epi8(static_cast<char>(isASCII ? 0x02 : 0x82));
        const __m256i lowest = _mm256_set1_epi8(static_cast<char>(isASCII ? 0x21 : 0x21 ^ 0x80));
        const __m256i isLow = _mm256_cmpgt_epi8(lowest, _mm256_xor_si256(block, flipped));
        const __m256i isBackslash = _mm256_cmpeq_epi8(block, _mm256_set1_epi8('\\'));
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_or_si256(isLow, isBackslash)));
    }
};

bool checkAVX2() noexcept {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}

// Not a static inside the function that asks for it: that would be guarded at every call. What is written before this
// is set goes by SSE2.
const bool hasAVX2 = checkAVX2();

#endif

}  // namespace

EscapeProgress escapeBytes(char* out, const char* limit, const char* text, const char* end, PlainBytes plain) noexcept {
    EscapeProgress progress{out, text};
    while (progress.text != end) {
        const auto byte = static_cast<unsigned char>(*progress.text);
        const bool isPlain = byte >= 0x20 && byte != '"' && byte != '\\' && (byte < 0x80 || plain == PlainBytes::All);
        if (isPlain) {
            *progress.out++ = *progress.text++;
        } else if (!appendEscape(progress, limit, end)) {
            break;
        }
    }
    return progress;
}

namespace {

/// For what is too short for blocks.
EscapeProgress escapeShort(char* out, const char* limit, const char* text, const char* end, PlainBytes plain) noexcept {
    const auto size = static_cast<std::size_t>(end - text);
    const bool isCopied = copyShortPlainText(out, text, size, plain);
    return isCopied ? EscapeProgress{out + size, end} : escapeBytes(out, limit, text, end, plain);
}

}  // namespace

EscapeProgress escapeByWords(char* out, const char* limit, const char* text, const char* end,
                             PlainBytes plain) noexcept {
    return escapeBlocks<WordBlock>({out, text}, limit, end, plain, escapeBytes);
}

#if defined(__x86_64__)

EscapeProgress escapeBySSE2(char* out, const char* limit, const char* text, const char* end,
                            PlainBytes plain) noexcept {
    return escapeBlocks<SSE2Block>({out, text}, limit, end, plain, escapeShort);
}

__attribute__((target("avx2"))) EscapeProgress escapeByAVX2(char* out, const char* limit, const char* text,
                                                            const char* end, PlainBytes plain) noexcept {
    return escapeBlocks<AVX2Block>({out, text}, limit, end, plain, escapeBySSE2);
}

EscapeProgress escapeText(char* out, const char* limit, const char* text, const char* end, PlainBytes plain) noexcept {
    return hasAVX2 ? escapeByAVX2(out, limit, text, end, plain) : escapeBySSE2(out, limit, text, end, plain);
}

#else

EscapeProgress escapeText(char* out, const char* limit, const char* text, const char* end, PlainBytes plain) noexcept {
    return end - text < static_cast<std::ptrdiff_t>(sizeof(TextWord)) ? escapeShort(out, limit, text, end, plain)
                                                                      : escapeByWords(out, limit, text, end, plain);
}

#endif

}  // namespace cf
