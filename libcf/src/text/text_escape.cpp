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

/// Which bytes of a block are special.
class Marks {
public:
    /// @param isMarked  in a marked byte all bits are set
    explicit Marks(Block isMarked) noexcept {
#ifdef __SSE2__
        m_bits = static_cast<unsigned>(_mm_movemask_epi8(reinterpret_cast<__m128i>(isMarked)));
#else
        static_assert(sizeof m_halves == sizeof isMarked);
        std::memcpy(m_halves, &isMarked, sizeof m_halves);
#endif
    }

#ifdef __SSE2__
    [[nodiscard]] bool isEmpty() const noexcept {
        return m_bits == 0;
    }
    /// The number of bytes before the first marked one; there is one.
    [[nodiscard]] std::size_t countUnmarked() const noexcept {
        return static_cast<std::size_t>(std::countr_zero(m_bits));
    }
#else
    [[nodiscard]] bool isEmpty() const noexcept {
        return (m_halves[0] | m_halves[1]) == 0;
    }
    [[nodiscard]] std::size_t countUnmarked() const noexcept {
        constexpr bool kIsLittleEndian = std::endian::native == std::endian::little;
        const std::uint64_t half = m_halves[0] != 0 ? m_halves[0] : m_halves[1];
        const int bits = kIsLittleEndian ? std::countr_zero(half) : std::countl_zero(half);
        return (m_halves[0] != 0 ? 0 : kBlockSize / 2) + static_cast<std::size_t>(bits) / 8;
    }
#endif

private:
#ifdef __SSE2__
    unsigned m_bits;  // one for each byte
#else
    std::uint64_t m_halves[2];
#endif
};

/// Copies a block.
Marks copyBlock(char* out, const char* text, const BlockTest& test) noexcept {
    Block block;
    std::memcpy(&block, text, kBlockSize);
    std::memcpy(out, &block, kBlockSize);
    return Marks((test.lowest > (block ^ test.flipped)) | (block == '\\'));
}

/// Copies up to kBlockSize bytes, but not none, without a call.
void copyShort(char* out, const char* text, std::size_t size) noexcept {
    const auto copyEnds = [&]<typename Word>(Word word) {
        std::memcpy(&word, text, sizeof word);
        std::memcpy(out, &word, sizeof word);
        std::memcpy(&word, text + size - sizeof word, sizeof word);
        std::memcpy(out + size - sizeof word, &word, sizeof word);
    };
    if (size >= 8) {
        copyEnds(std::uint64_t{});
    } else if (size >= 4) {
        copyEnds(std::uint32_t{});
    } else {
        out[0] = text[0];
        out[size / 2] = text[size / 2];
        out[size - 1] = text[size - 1];
    }
}

/// Copies the plain bytes up to the first one that is not plain.
EscapeProgress copyPlainBytes(EscapeProgress progress, const char* end, const BlockTest& test) noexcept {
    auto [out, text] = progress;
    while (static_cast<std::size_t>(end - text) >= kBlockSize) {
        if (const Marks marks = copyBlock(out, text, test); !marks.isEmpty()) {
            const std::size_t size = marks.countUnmarked();
            return {out + size, text + size};
        }
        out += kBlockSize;
        text += kBlockSize;
    }
    if (text == end) {
        return {out, text};
    }
    // Copy the rest as a block filled up with NULs, which are not plain.
    char rest[kBlockSize] = {};
    copyShort(rest, text, static_cast<std::size_t>(end - text));
    const std::size_t size = copyBlock(out, rest, test).countUnmarked();
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
