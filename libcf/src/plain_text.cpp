#include "plain_text.h"

#include <algorithm>
#include <bit>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

std::size_t copyPlainBytes(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    std::size_t done = 0;
    for (; done < size; ++done) {
        const auto byte = static_cast<unsigned char>(text[done]);
        if (byte < 0x20 || byte == '"' || byte == '\\' || (byte >= 0x80 && plain == PlainBytes::ASCII)) {
            break;
        }
        out[done] = text[done];
    }
    return done;
}

// In the functions below the last block is moved forward to end with the text: it then overlaps the one before, which
// is plain.

std::size_t copyPlainWords(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    constexpr std::size_t kBlockSize = sizeof(PlainWord);
    for (std::size_t done = 0; done < size; done += kBlockSize) {
        done = std::min(done, size - kBlockSize);
        PlainWord word = 0;
        std::memcpy(&word, text + done, kBlockSize);
        std::memcpy(out + done, &word, kBlockSize);
        if (!isPlainWord(word, plain)) {
            return done + copyPlainBytes(out + done, text + done, kBlockSize, plain);
        }
    }
    return size;
}

#if defined(__x86_64__)

namespace {

bool checkAVX2() noexcept {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}

// Not a static inside the function that asks for it: that would be guarded at every call. What is written before this
// is set goes by SSE2.
const bool hasAVX2 = checkAVX2();

}  // namespace

std::size_t copyPlainBySSE2(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    constexpr std::size_t kBlockSize = sizeof(__m128i);
    for (std::size_t done = 0; done < size; done += kBlockSize) {
        done = std::min(done, size - kBlockSize);
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + done));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done), block);
        const unsigned special = findSpecialBytes(block, plain);
        if (special != 0) {
            return done + static_cast<std::size_t>(std::countr_zero(special));
        }
    }
    return size;
}

namespace {

/// The AVX2 form of findSpecialBytes().
__attribute__((target("avx2"))) inline __m256i markSpecialBytes(__m256i block, PlainBytes plain) noexcept {
    const bool isASCII = plain == PlainBytes::ASCII;
    const __m256i flipped = _mm256_set1_epi8(static_cast<char>(isASCII ? 0x02 : 0x82));
    const __m256i lowest = _mm256_set1_epi8(static_cast<char>(isASCII ? 0x21 : 0x21 ^ 0x80));
    const __m256i isLow = _mm256_cmpgt_epi8(lowest, _mm256_xor_si256(block, flipped));
    return _mm256_or_si256(isLow, _mm256_cmpeq_epi8(block, _mm256_set1_epi8('\\')));
}

__attribute__((target("avx2"))) inline std::uint64_t collectBits(__m256i bytes) noexcept {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

}  // namespace

__attribute__((target("avx2"))) std::size_t copyPlainByAVX2(char* out, const char* text, std::size_t size,
                                                            PlainBytes plain) noexcept {
    constexpr std::size_t kBlockSize = 2 * sizeof(__m256i);
    for (std::size_t done = 0; done < size; done += kBlockSize) {
        done = std::min(done, size - kBlockSize);
        const auto* source = reinterpret_cast<const __m256i*>(text + done);
        auto* target = reinterpret_cast<__m256i*>(out + done);
        const __m256i first = _mm256_loadu_si256(source);
        const __m256i last = _mm256_loadu_si256(source + 1);
        _mm256_storeu_si256(target, first);
        _mm256_storeu_si256(target + 1, last);
        const __m256i isFirstSpecial = markSpecialBytes(first, plain);
        const __m256i isLastSpecial = markSpecialBytes(last, plain);
        if (collectBits(_mm256_or_si256(isFirstSpecial, isLastSpecial)) != 0) {
            const std::uint64_t special = collectBits(isFirstSpecial) | collectBits(isLastSpecial) << 32;
            return done + static_cast<std::size_t>(std::countr_zero(special));
        }
    }
    return size;
}

std::size_t copyPlainBlocks(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    return hasAVX2 && size >= 2 * sizeof(__m256i) ? copyPlainByAVX2(out, text, size, plain)
                                                  : copyPlainBySSE2(out, text, size, plain);
}

#else

std::size_t copyPlainBlocks(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    return copyPlainWords(out, text, size, plain);
}

#endif
