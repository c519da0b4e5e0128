#ifndef CF_SRC_REST_DECODER_H
#define CF_SRC_REST_DECODER_H

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// How a body is coded.
enum class CMRestCoding : std::uint8_t { None, Gzip, Deflate, Unknown };

/// The coding after a further Content-Encoding value. More than one is as good as an unknown one.
[[nodiscard]] CMRestCoding addCoding(CMRestCoding known, std::string_view value) noexcept;

/// As addCoding, for a Transfer-Encoding value.
[[nodiscard]] CMRestCoding addTransferCoding(CMRestCoding known, std::string_view value) noexcept;

/// Whether "chunked" is the last coding of a Transfer-Encoding value.
[[nodiscard]] bool endsChunked(std::string_view value) noexcept;

/// Decompresses a body that comes in pieces, and knows whether it came to its end. One body, one thread.
class CMRestDecoder {
public:
    /// @param coding  neither None nor Unknown
    /// @param firstByte  the body's, which tells the two forms of Deflate apart
    /// Throws std::bad_alloc.
    CMRestDecoder(CMRestCoding coding, char firstByte);
    ~CMRestDecoder();
    CMRestDecoder(const CMRestDecoder&) = delete;
    CMRestDecoder& operator=(const CMRestDecoder&) = delete;

    /// Takes the body's next bytes, borrowed until decode() has given nothing.
    void feed(char* bytes, std::size_t size) noexcept;
    /// The next decompressed bytes, valid until the next call. None: it wants more, or the body is malformed. Throws
    /// std::bad_alloc.
    [[nodiscard]] std::string_view decode();

    [[nodiscard]] bool isMalformed() const noexcept { return m_isMalformed; }
    /// Whether the compressed data ends where it has been fed to.
    [[nodiscard]] bool isWhole() const noexcept { return m_isAtEnd && !m_isMalformed; }

private:
    bool startNextMember() noexcept;

    CMRestCoding m_coding;
    bool m_isAtEnd = false;
    bool m_isMalformed = false;
    z_stream m_stream{};
    std::array<char, std::size_t{16} * 1024> m_decoded;
};

#endif
