#ifndef CF_SRC_REST_DECODER_H
#define CF_SRC_REST_DECODER_H

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cf {

/// The compression of a body.
enum class RestCoding : std::uint8_t { None, Gzip, Deflate, Unknown };

/// Adds a Content-Encoding value to the coding of the values before it. A second coding gives Unknown: it is not
/// supported.
[[nodiscard]] RestCoding addCoding(RestCoding known, std::string_view value) noexcept;

/// The same for a Transfer-Encoding value. Ignores "chunked", since libcurl joins the chunks.
[[nodiscard]] RestCoding addTransferCoding(RestCoding known, std::string_view value) noexcept;

/// Whether "chunked" is the last coding of a Transfer-Encoding value.
[[nodiscard]] bool endsChunked(std::string_view value) noexcept;

/// Decompresses one body that arrives in pieces, and tells whether the compressed data was complete.
class RestDecoder {
public:
    /// @param coding     Gzip or Deflate
    /// @param firstByte  the first byte of the body; it distinguishes the two forms of Deflate
    /// Throws std::bad_alloc.
    RestDecoder(RestCoding coding, char firstByte);
    ~RestDecoder();
    RestDecoder(const RestDecoder&) = delete;
    RestDecoder& operator=(const RestDecoder&) = delete;

    /// Sets the next bytes of the body as input. They must stay valid until decode() returns nothing.
    void feed(char* bytes, std::size_t size) noexcept;
    /// The next decompressed bytes, valid until the next call. Empty when it needs more input or the data is malformed.
    /// Throws std::bad_alloc.
    [[nodiscard]] std::string_view decode();

    [[nodiscard]] bool isMalformed() const noexcept { return m_isMalformed; }
    /// Whether the compressed data ended exactly with the last input byte.
    [[nodiscard]] bool isWhole() const noexcept { return m_isAtEnd && !m_isMalformed; }

private:
    bool startNextMember() noexcept;

    RestCoding m_coding;
    bool m_isAtEnd = false;
    bool m_isMalformed = false;
    z_stream m_stream{};
    std::array<char, std::size_t{16} * 1024> m_decoded;
};

}  // namespace cf

#endif
