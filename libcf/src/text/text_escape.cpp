#include "text/text_escape.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace cf {

namespace {

/// The escape sequence of a byte.
struct Escape {
    char text[7];
    std::uint8_t size;
};

constexpr Escape makeShortEscape(char letter) noexcept {
    return {{'\\', letter}, 2};
}

/// The escapes of all bytes up to the backslash; those of plain bytes are empty.
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

// The compiler's vector extension: one register if the processor has registers of this size, otherwise several.
constexpr std::size_t kBlockSize = 16;
using Block [[gnu::vector_size(kBlockSize)]] = signed char;

Block repeat(unsigned char byte) noexcept {
    return Block{} + static_cast<signed char>(byte);
}

/// Finds bytes that are not plain with two comparisons of signed bytes: one with 21 and one with the backslash (values
/// in hexadecimal). XOR with 02 turns the quote into 20, next to the control characters, and no other byte into a value
/// up to 20. Bytes from 80 on are negative, so they are below 21 too; XOR with 82 makes them positive.
struct BlockTest {
    explicit BlockTest(PlainBytes plain) noexcept
        : flipped(repeat(plain == PlainBytes::ASCII ? 0x02 : 0x82)),
          lowest(repeat(plain == PlainBytes::ASCII ? 0x21 : 0x21 ^ 0x80)) {}

    Block flipped;
    Block lowest;
};

/// The number of bytes before the first marked one. In a marked byte all bits are set.
std::size_t countUnmarked(Block isMarked) noexcept {
#ifdef __SSE2__
    // One bit per byte, and one more that stops the count if no byte is marked.
    const auto bits = static_cast<unsigned>(_mm_movemask_epi8(reinterpret_cast<__m128i>(isMarked)));
    return static_cast<std::size_t>(std::countr_zero(bits | 1U << kBlockSize));
#else
    constexpr bool kIsLittleEndian = std::endian::native == std::endian::little;
    std::uint64_t halves[2];
    static_assert(sizeof halves == sizeof isMarked);
    std::memcpy(halves, &isMarked, sizeof halves);
    const std::uint64_t half = halves[0] != 0 ? halves[0] : halves[1];
    const int bits = kIsLittleEndian ? std::countr_zero(half) : std::countl_zero(half);
    return (halves[0] != 0 ? 0 : kBlockSize / 2) + static_cast<std::size_t>(bits) / 8;
#endif
}

/// Copies a block.
/// @return the number of plain bytes at its start
std::size_t copyBlock(char* out, const char* text, const BlockTest& test) noexcept {
    Block block;
    std::memcpy(&block, text, kBlockSize);
    std::memcpy(out, &block, kBlockSize);
    return countUnmarked((test.lowest > (block ^ test.flipped)) | (block == '\\'));
}

/// Copies the plain bytes up to the first one that is not plain.
EscapeProgress copyPlainBytes(EscapeProgress progress, const char* end, const BlockTest& test) noexcept {
    auto [out, text] = progress;
    while (static_cast<std::size_t>(end - text) >= kBlockSize) {
        const std::size_t size = copyBlock(out, text, test);
        out += size;
        text += size;
        if (size < kBlockSize) {
            return {out, text};
        }
    }
    if (text == end) {
        return {out, text};
    }
    // Copy the rest as a block filled up with NULs, which are not plain.
    char rest[kBlockSize] = {};
    std::memcpy(rest, text, static_cast<std::size_t>(end - text));
    const std::size_t size = copyBlock(out, rest, test);
    return {out + size, text + size};
}

}  // namespace

EscapeProgress escapeText(char* out, const char* limit, const char* text, const char* end, PlainBytes plain) noexcept {
    static_assert(kEscapeRoom >= kBlockSize && kEscapeRoom >= sizeof(Escape));
    const BlockTest test(plain);
    EscapeProgress progress{out, text};
    for (;;) {
        progress = copyPlainBytes(progress, end, test);
        if (progress.text == end || static_cast<unsigned char>(*progress.text) >= 0x80) {
            return progress;
        }
        const Escape& escape = kEscapes[static_cast<unsigned char>(*progress.text)];
        std::memcpy(progress.out, &escape, sizeof escape);
        progress.out += escape.size;
        ++progress.text;
        if (limit - progress.out < end - progress.text + static_cast<std::ptrdiff_t>(kEscapeRoom)) {
            return progress;
        }
    }
}

}  // namespace cf
