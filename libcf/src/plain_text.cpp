#include "plain_text.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

bool isPlain(unsigned char byte, PlainBytes plain) noexcept {
    return byte >= 0x20 && byte != '"' && byte != '\\' && (byte < 0x80 || plain == PlainBytes::All);
}

std::size_t copyBytes(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    std::size_t done = 0;
    while (done < size && isPlain(static_cast<unsigned char>(text[done]), plain)) {
        out[done] = text[done];
        ++done;
    }
    return done;
}

/// Eight bytes that are tested at once.
using Word = std::uint64_t;

constexpr Word repeatByte(unsigned char byte) noexcept {
    return 0x0101010101010101U * byte;
}

bool hasOnlyPlainBytes(Word word, PlainBytes plain) noexcept {
    constexpr Word topBits = repeatByte(0x80);
    // With the top bits cleared no sum carries into the next byte, and each sets its byte's top bit if that is plain.
    const Word low = word & ~topBits;
    const Word isNoControl = low + repeatByte(0x60);
    const Word isNoQuote = (low ^ repeatByte('"')) + repeatByte(0x7F);
    const Word isNoBackslash = (low ^ repeatByte('\\')) + repeatByte(0x7F);
    const Word isPlainASCII = isNoControl & isNoQuote & isNoBackslash & ~word & topBits;
    return (plain == PlainBytes::All ? isPlainASCII | (word & topBits) : isPlainASCII) == topBits;
}

/// Copies a text whose size is between that of a Half and twice that: its first and its last half, which may overlap.
template <typename Half>
std::size_t copyHalves(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    const std::size_t lastPlace = size - sizeof(Half);
    Half first = 0;
    Half last = 0;
    std::memcpy(&first, text, sizeof(Half));
    std::memcpy(&last, text + lastPlace, sizeof(Half));
    bool isAllPlain = false;
    if constexpr (sizeof(Half) == sizeof(Word)) {
        isAllPlain = hasOnlyPlainBytes(first, plain) && hasOnlyPlainBytes(last, plain);
    } else {
        isAllPlain = hasOnlyPlainBytes(Word{first} << 32 | last, plain);
    }
    if (!isAllPlain) {
        return copyBytes(out, text, size, plain);
    }
    std::memcpy(out, &first, sizeof(Half));
    std::memcpy(out + lastPlace, &last, sizeof(Half));
    return size;
}

#if defined(__x86_64__)

// One signed comparison finds control characters and the quote: flipping 02 moves the quote next to them, below 21.
// Bytes from 80 on are below it too, unless their top bit is flipped as well.
constexpr char obtainFlippedBits(PlainBytes plain) noexcept {
    return static_cast<char>(plain == PlainBytes::All ? 0x82 : 0x02);
}

constexpr char obtainLowestPlain(PlainBytes plain) noexcept {
    return static_cast<char>(plain == PlainBytes::All ? 0x21 ^ 0x80 : 0x21);
}

/// Copies a text of at least 16 bytes; the last 16 may overlap those before.
std::size_t copyBySSE2(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    constexpr std::size_t blockSize = sizeof(__m128i);
    const __m128i flipped = _mm_set1_epi8(obtainFlippedBits(plain));
    const __m128i lowest = _mm_set1_epi8(obtainLowestPlain(plain));
    const __m128i backslash = _mm_set1_epi8('\\');
    for (std::size_t done = 0; done < size; done += blockSize) {
        done = std::min(done, size - blockSize);
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + done));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done), block);
        const __m128i isLow = _mm_cmpgt_epi8(lowest, _mm_xor_si128(block, flipped));
        const auto special =
            static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(isLow, _mm_cmpeq_epi8(block, backslash))));
        if (special != 0) {
            return done + static_cast<std::size_t>(std::countr_zero(special));
        }
    }
    return size;
}

/// The same by blocks of 32 bytes, for a text of at least that size.
__attribute__((target("avx2"))) std::size_t copyByAVX2(char* out, const char* text, std::size_t size,
                                                       PlainBytes plain) noexcept {
    constexpr std::size_t blockSize = sizeof(__m256i);
    const __m256i flipped = _mm256_set1_epi8(obtainFlippedBits(plain));
    const __m256i lowest = _mm256_set1_epi8(obtainLowestPlain(plain));
    const __m256i backslash = _mm256_set1_epi8('\\');
    for (std::size_t done = 0; done < size; done += blockSize) {
        done = std::min(done, size - blockSize);
        const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + done));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + done), block);
        const __m256i isLow = _mm256_cmpgt_epi8(lowest, _mm256_xor_si256(block, flipped));
        const auto special =
            static_cast<unsigned>(_mm256_movemask_epi8(_mm256_or_si256(isLow, _mm256_cmpeq_epi8(block, backslash))));
        if (special != 0) {
            return done + static_cast<std::size_t>(std::countr_zero(special));
        }
    }
    return size;
}

std::size_t copyBlocks(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    static const bool hasAVX2 = __builtin_cpu_supports("avx2") != 0;
    return hasAVX2 && size >= sizeof(__m256i) ? copyByAVX2(out, text, size, plain) : copyBySSE2(out, text, size, plain);
}

#else

/// Copies a text of at least 16 bytes; the last 8 may overlap those before.
std::size_t copyBlocks(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    for (std::size_t done = 0; done < size; done += sizeof(Word)) {
        done = std::min(done, size - sizeof(Word));
        const std::size_t copied = copyHalves<Word>(out + done, text + done, sizeof(Word), plain);
        if (copied != sizeof(Word)) {
            return done + copied;
        }
    }
    return size;
}

#endif

}  // namespace

std::size_t copyPlainText(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    if (size >= 2 * sizeof(Word)) {
        return copyBlocks(out, text, size, plain);
    }
    if (size >= sizeof(Word)) {
        return copyHalves<Word>(out, text, size, plain);
    }
    if (size >= sizeof(std::uint32_t)) {
        return copyHalves<std::uint32_t>(out, text, size, plain);
    }
    return copyBytes(out, text, size, plain);
}
