#ifndef CF_SRC_PLAIN_TEXT_H
#define CF_SRC_PLAIN_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

/// Which bytes go into a JSON string as they are: never the quote, the backslash and the control characters.
enum class PlainBytes {
    ASCII,  ///< 20 to 7F
    All,    ///< 20 to FF
};

// Each function below copies a text up to its first byte that is not plain.
// `out` has room for `size` bytes; what stands behind the bytes copied is rubbish.
// The result is the number of bytes copied: `size` if all are plain.

/// Byte by byte.
[[nodiscard]] std::size_t copyPlainBytes(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept;

/// By blocks of 8 bytes in a plain register; for at least 8 bytes.
[[nodiscard]] std::size_t copyPlainWords(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept;

#if defined(__x86_64__)

/// By blocks of 16 bytes; for at least 16 bytes.
[[nodiscard]] std::size_t copyPlainBySSE2(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept;

/// By blocks of 64 bytes; for at least 64 bytes, on a processor that has AVX2.
[[nodiscard]] std::size_t copyPlainByAVX2(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept;

#endif

/// By the largest blocks that the processor knows; for at least 16 bytes.
[[nodiscard]] std::size_t copyPlainBlocks(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept;

using PlainWord = std::uint64_t;

[[nodiscard]] inline bool isPlainWord(PlainWord word, PlainBytes plain) noexcept {
    constexpr PlainWord kEveryByte = 0x0101010101010101;
    constexpr PlainWord kTopBits = 0x80 * kEveryByte;
    // With the top bits cleared no sum carries into the next byte, and each sets its byte's top bit if that is plain.
    const PlainWord low = word & ~kTopBits;
    const PlainWord isNoControl = low + 0x60 * kEveryByte;
    const PlainWord isNoQuote = (low ^ '"' * kEveryByte) + 0x7F * kEveryByte;
    const PlainWord isNoBackslash = (low ^ '\\' * kEveryByte) + 0x7F * kEveryByte;
    const PlainWord isPlainASCII = isNoControl & isNoQuote & isNoBackslash;
    const PlainWord isPlain = plain == PlainBytes::ASCII ? isPlainASCII & ~word : isPlainASCII | word;
    return (isPlain & kTopBits) == kTopBits;
}

#if defined(__x86_64__)

/// A bit for each of sixteen bytes that is not plain.
[[nodiscard]] inline unsigned findSpecialBytes(__m128i block, PlainBytes plain) noexcept {
    // One signed comparison finds control characters and the quote: flipping 02 moves the quote next to them, below
    // 21. Bytes from 80 on are below it too, unless their top bit is flipped as well.
    const bool isASCII = plain == PlainBytes::ASCII;
    const __m128i flipped = _mm_set1_epi8(static_cast<char>(isASCII ? 0x02 : 0x82));
    const __m128i lowest = _mm_set1_epi8(static_cast<char>(isASCII ? 0x21 : 0x21 ^ 0x80));
    const __m128i isLow = _mm_cmpgt_epi8(lowest, _mm_xor_si128(block, flipped));
    const __m128i isBackslash = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(isLow, isBackslash)));
}

[[nodiscard]] inline bool isPlainPair(PlainWord first, PlainWord last, PlainBytes plain) noexcept {
    return findSpecialBytes(_mm_set_epi64x(static_cast<long long>(last), static_cast<long long>(first)), plain) == 0;
}

#else

[[nodiscard]] inline bool isPlainPair(PlainWord first, PlainWord last, PlainBytes plain) noexcept {
    return isPlainWord(first, plain) && isPlainWord(last, plain);
}

#endif

/// Copies a text whose size is between that of a Half and twice that: its first and its last half, which may overlap.
template <typename Half>
[[nodiscard]] std::size_t copyPlainHalves(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    const std::size_t lastPlace = size - sizeof(Half);
    Half first = 0;
    Half last = 0;
    std::memcpy(&first, text, sizeof(Half));
    std::memcpy(&last, text + lastPlace, sizeof(Half));
    PlainWord pair[2] = {first, last};
    if constexpr (sizeof(Half) < sizeof(PlainWord)) {
        pair[0] = pair[1] = PlainWord{first} << 32 | last;
    }
    if (!isPlainPair(pair[0], pair[1], plain)) {
        return copyPlainBytes(out, text, size, plain);
    }
    std::memcpy(out, &first, sizeof(Half));
    std::memcpy(out + lastPlace, &last, sizeof(Half));
    return size;
}

/// In the fastest way for the text's size. Inline because most texts are short: keys and roles.
[[nodiscard]] inline std::size_t copyPlainText(char* out, const char* text, std::size_t size,
                                               PlainBytes plain) noexcept {
    if (size >= 2 * sizeof(PlainWord)) {
        return copyPlainBlocks(out, text, size, plain);
    }
    if (size >= sizeof(PlainWord)) {
        return copyPlainHalves<PlainWord>(out, text, size, plain);
    }
    if (size >= sizeof(std::uint32_t)) {
        return copyPlainHalves<std::uint32_t>(out, text, size, plain);
    }
    return copyPlainBytes(out, text, size, plain);
}

#endif
