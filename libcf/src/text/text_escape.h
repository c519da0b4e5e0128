#ifndef CF_SRC_TEXT_ESCAPE_H
#define CF_SRC_TEXT_ESCAPE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

namespace cf {

/// Which bytes go into a JSON string as they are: never the quote, the backslash and the control characters.
enum class PlainBytes {
    ASCII,  ///< 20 to 7F
    All,    ///< 20 to FF
};

/// The room that each function below needs behind that for the text: for one escape, written as eight bytes.
inline constexpr std::size_t kEscapeRoom = 8;

/// How far the writing of a text got.
struct EscapeProgress {
    char* out;         ///< the end of what was written
    const char* text;  ///< the first byte not written yet
};

// Each function below writes a text, from `text` to `end`, with its escapes at `out`. It stops before a byte from 80 on
// where `plain` is ASCII, and when fewer bytes than those left and kEscapeRoom fit between `out` and `limit`: as many
// must fit at the start. What stands behind the end of what was written is rubbish.

/// Byte by byte.
[[nodiscard]] EscapeProgress escapeBytes(char* out, const char* limit, const char* text, const char* end,
                                         PlainBytes plain) noexcept;

/// By blocks of 8 bytes in a plain register.
[[nodiscard]] EscapeProgress escapeByWords(char* out, const char* limit, const char* text, const char* end,
                                           PlainBytes plain) noexcept;

#if defined(__x86_64__)

/// By blocks of 16 bytes.
[[nodiscard]] EscapeProgress escapeBySSE2(char* out, const char* limit, const char* text, const char* end,
                                          PlainBytes plain) noexcept;

/// By blocks of 32 bytes; on a processor that has AVX2.
[[nodiscard]] EscapeProgress escapeByAVX2(char* out, const char* limit, const char* text, const char* end,
                                          PlainBytes plain) noexcept;

#endif

/// In the fastest way for the text's size that the processor knows.
[[nodiscard]] EscapeProgress escapeText(char* out, const char* limit, const char* text, const char* end,
                                        PlainBytes plain) noexcept;

using TextWord = std::uint64_t;

/// Sets the top bit of each byte that is not plain.
[[nodiscard]] inline TextWord markSpecialBytes(TextWord word, PlainBytes plain) noexcept {
    constexpr TextWord kEveryByte = 0x0101010101010101;
    constexpr TextWord kTopBits = 0x80 * kEveryByte;
    // With the top bits cleared no sum carries into the next byte, and each sets its byte's top bit if that is plain.
    const TextWord low = word & ~kTopBits;
    const TextWord isNoControl = low + 0x60 * kEveryByte;
    const TextWord isNoQuote = (low ^ '"' * kEveryByte) + 0x7F * kEveryByte;
    const TextWord isNoBackslash = (low ^ '\\' * kEveryByte) + 0x7F * kEveryByte;
    const TextWord isPlainASCII = isNoControl & isNoQuote & isNoBackslash;
    const TextWord isPlain = plain == PlainBytes::ASCII ? isPlainASCII & ~word : isPlainASCII | word;
    return ~isPlain & kTopBits;
}

#if defined(__x86_64__)

/// A bit for each of sixteen bytes that is not plain.
[[nodiscard]] inline std::uint32_t findSpecialBytes(__m128i block, PlainBytes plain) noexcept {
    // One signed comparison finds control characters and the quote: flipping 02 moves the quote next to them, below
    // 21. Bytes from 80 on are below it too, unless their top bit is flipped as well.
    const bool isASCII = plain == PlainBytes::ASCII;
    const __m128i flipped = _mm_set1_epi8(static_cast<char>(isASCII ? 0x02 : 0x82));
    const __m128i lowest = _mm_set1_epi8(static_cast<char>(isASCII ? 0x21 : 0x21 ^ 0x80));
    const __m128i isLow = _mm_cmpgt_epi8(lowest, _mm_xor_si128(block, flipped));
    const __m128i isBackslash = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_or_si128(isLow, isBackslash)));
}

[[nodiscard]] inline bool isPlainPair(TextWord first, TextWord last, PlainBytes plain) noexcept {
    return findSpecialBytes(_mm_set_epi64x(static_cast<long long>(last), static_cast<long long>(first)), plain) == 0;
}

#else

[[nodiscard]] inline bool isPlainPair(TextWord first, TextWord last, PlainBytes plain) noexcept {
    return (markSpecialBytes(first, plain) | markSpecialBytes(last, plain)) == 0;
}

#endif

/// Copies a text whose size is between that of a Half and twice that, its first and its last half, which may overlap.
/// @return whether it is all plain; if not, nothing is written
template <typename Half>
[[nodiscard]] bool copyPlainHalves(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    const std::size_t lastPlace = size - sizeof(Half);
    Half first = 0;
    Half last = 0;
    std::memcpy(&first, text, sizeof(Half));
    std::memcpy(&last, text + lastPlace, sizeof(Half));
    TextWord pair[2] = {first, last};
    if constexpr (sizeof(Half) < sizeof(TextWord)) {
        pair[0] = pair[1] = TextWord{first} << 32 | last;
    }
    if (!isPlainPair(pair[0], pair[1], plain)) {
        return false;
    }
    std::memcpy(out, &first, sizeof(Half));
    std::memcpy(out + lastPlace, &last, sizeof(Half));
    return true;
}

/// Copies a text of 4 to 15 bytes that are all plain. Inline because such texts are many: keys, roles, names of models.
/// @return whether it is one; if not, nothing is written
[[nodiscard]] inline bool copyShortPlainText(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    if (size >= sizeof(TextWord)) {
        return size < 2 * sizeof(TextWord) && copyPlainHalves<TextWord>(out, text, size, plain);
    }
    return size >= sizeof(std::uint32_t) && copyPlainHalves<std::uint32_t>(out, text, size, plain);
}

}  // namespace cf

#endif
