#ifndef CF_SRC_REST_RECEIPT_H
#define CF_SRC_REST_RECEIPT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "rest/rest_decoder.h"
#include "rest/rest_exchange.h"

namespace cf {

/// A block of header lines: of an interim response, of a proxy's answer to CONNECT, or of the response itself.
struct RestHeaderBlock {
    bool isFinal = false;    ///< whether it belongs to the response itself
    bool isWhole = false;    ///< whether the blank line at its end has arrived
    bool isChunked = false;  ///< whether the body is sent in chunks
    bool hasLength = false;  ///< whether it has a Content-Length
    RestCoding coding = RestCoding::None;
};

/// What has been received of a response: the last block of header lines, and the decompressed body. Limits their sizes.
class RestReceipt {
public:
    explicit RestReceipt(std::size_t bodyLimit = 0) noexcept : m_bodyLimit(bodyLimit) {}

    /// Checks a piece of a header line while isHeaderAwaited(), before the whole line is added.
    /// @return Success, or why the exchange must end
    CMRestResult checkHeaderPiece(std::string_view piece) noexcept;
    /// Whether the header lines so far were status lines and ends of blocks, and the next bytes belong to a header
    /// line.
    [[nodiscard]] bool isHeaderAwaited() const noexcept { return m_isHeaderAwaited; }

    /// Drops the header block. Called when a request is about to be sent: earlier headers are not part of its response.
    void forgetHeaders() noexcept { m_headers = {}; }

    /// Adds a header line with its line end.
    /// @param status  the status of the line's block so far; 0 in a proxy's answer to CONNECT
    /// @return Success, or why the exchange must end
    CMRestResult addHeaderLine(std::string_view line, long status) noexcept;
    /// Adds bytes of the body as received. The buffer may be overwritten.
    /// @param announced  the length of the body according to its headers; negative: unknown
    /// @return Success, or why the exchange must end. Throws what memory allocation throws.
    CMRestResult addBody(char* bytes, std::size_t size, std::int64_t announced);

    [[nodiscard]] const RestHeaderBlock& obtainHeaders() const noexcept { return m_headers; }
    /// Bytes of all header lines so far, interim responses included.
    [[nodiscard]] std::size_t countHeaderBytes() const noexcept { return m_headerBytes; }
    /// Whether compressed data is complete; true if the body is not compressed.
    [[nodiscard]] bool isDecodedWhole() const noexcept { return !m_decoder || m_decoder->isWhole(); }

    /// The bytes of the body since the last clearBody().
    [[nodiscard]] std::string& obtainBody() noexcept { return m_body; }
    void clearBody() noexcept { m_body.clear(); }
    /// Bytes of the whole body so far, after decompression.
    [[nodiscard]] std::size_t countBodyBytes() const noexcept { return m_bodyBytes; }
    [[nodiscard]] std::optional<RestClock::time_point> obtainFirstByte() const noexcept { return m_firstByte; }

private:
    void readHeader(std::string_view line) noexcept;
    CMRestResult keepBody(std::string_view bytes, std::int64_t announced);
    CMRestResult keepDecoded(char* bytes, std::size_t size);
    void makeRoom(std::size_t size, std::int64_t announced);

    std::size_t m_bodyLimit;
    RestHeaderBlock m_headers;
    std::size_t m_headerBytes = 0;
    bool m_isHeaderAwaited = true;
    bool m_isLineBegun = false;              ///< whether checkHeaderPiece() has seen the beginning of the next line
    std::unique_ptr<RestDecoder> m_decoder;  ///< null until the first bytes of a compressed body
    std::string m_body;
    std::size_t m_bodyBytes = 0;
    std::optional<RestClock::time_point> m_firstByte;
};

}  // namespace cf

#endif
