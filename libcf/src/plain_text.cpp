#include "plain_text.h"

#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
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

constexpr std::uint64_t repeatByte(unsigned char byte) noexcept {
    return 0x0101010101010101U * byte;
}

/// Eight bytes at a time in a plain register.
class WordScan {
public:
    static constexpr std::size_t blockSize = 8;

    explicit WordScan(PlainBytes plain) noexcept : m_plain(plain) {}

    /// Copies a block and gives the place of its first byte that is not plain, or the block's size.
    std::size_t copyBlock(char* out, const char* text) const noexcept {
        std::uint64_t word = 0;
        std::memcpy(&word, text, sizeof word);
        std::memcpy(out, &word, sizeof word);
        const std::uint64_t high = repeatByte(0x80);
        const std::uint64_t ascii = word & ~high;
        // With the top bits cleared no byte carries into the next: each test sets its byte's top bit, exactly.
        const std::uint64_t control = ~(ascii + repeatByte(0x60));
        const std::uint64_t quote = ~((ascii ^ repeatByte('"')) + repeatByte(0x7F));
        const std::uint64_t backslash = ~((ascii ^ repeatByte('\\')) + repeatByte(0x7F));
        const std::uint64_t special = (control | quote | backslash) & ~word & high;
        if (special == 0 && (m_plain == PlainBytes::All || (word & high) == 0)) {
            return blockSize;
        }
        return copyBytes(out, text, blockSize, m_plain);
    }

private:
    PlainBytes m_plain;
};

#if defined(__SSE2__)

/// Sixteen bytes at a time.
class VectorScan {
public:
    static constexpr std::size_t blockSize = 16;

    // A signed comparison after flipping bits finds control characters and the quote at once: flipping 02 moves the
    // quote next to them, below 21. Bytes from 80 on are below it too, unless their top bit is flipped as well.
    explicit VectorScan(PlainBytes plain) noexcept
        : m_flip(_mm_set1_epi8(static_cast<char>(plain == PlainBytes::All ? 0x82 : 0x02))),
          m_limit(_mm_set1_epi8(static_cast<char>(plain == PlainBytes::All ? 0xA1 : 0x21))) {}

    std::size_t copyBlock(char* out, const char* text) const noexcept {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), block);
        const __m128i isLow = _mm_cmplt_epi8(_mm_xor_si128(block, m_flip), m_limit);
        const __m128i isBackslash = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
        const auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(isLow, isBackslash)));
        return mask == 0 ? blockSize : static_cast<std::size_t>(std::countr_zero(mask));
    }

private:
    __m128i m_flip;
    __m128i m_limit;
};

#else

using VectorScan = WordScan;

#endif

/// Copies a text of at least one block; its last block overlaps the one before.
template <typename Scan>
std::size_t copyBlocks(char* out, const char* text, std::size_t size, Scan scan) noexcept {
    constexpr std::size_t blockSize = Scan::blockSize;
    std::size_t done = 0;
    while (size - done >= blockSize) {
        const std::size_t copied = scan.copyBlock(out + done, text + done);
        done += copied;
        if (copied != blockSize) {
            return done;
        }
    }
    if (done != size) {
        done = size - blockSize;
        done += scan.copyBlock(out + done, text + done);
    }
    return done;
}

}  // namespace

std::size_t copyPlainText(char* out, const char* text, std::size_t size, PlainBytes plain) noexcept {
    if (size >= VectorScan::blockSize) {
        return copyBlocks(out, text, size, VectorScan(plain));
    }
    if (size >= WordScan::blockSize) {
        return copyBlocks(out, text, size, WordScan(plain));
    }
    return copyBytes(out, text, size, plain);
}
