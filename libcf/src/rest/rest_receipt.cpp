#include "rest/rest_receipt.h"

#include <algorithm>
#include <utility>

#include "text/characters.h"

namespace cf {

namespace {

/// The limit for all header lines of an exchange, interim responses included. libcurl's own limit of 300 KiB ends in an
/// error that does not name the cause.
constexpr std::size_t kMostHeaderBytes = std::size_t{256} * 1024;

/// Spare capacity after a body, so that a JSON parser can read it in place.
constexpr std::size_t kBodyPadding = 64;
/// The most that is reserved for an announced length before the bytes have arrived.
constexpr std::int64_t kMostReserved = std::int64_t{1024} * 1024;

/// @param name  with its colon
bool isHeaderNamed(std::string_view line, std::string_view name) noexcept {
    // Checking the colon first rejects most lines quickly.
    return line.size() >= name.size() && line[name.size() - 1] == ':' &&
           isEqualIgnoringCase(line.substr(0, name.size()), name);
}

std::string_view obtainHeaderValue(std::string_view line) noexcept {
    return line.substr(line.find(':') + 1);
}

}  // namespace

CMRestResult RestReceipt::checkHeaderPiece(std::string_view piece) noexcept {
    const bool isLineStart = !std::exchange(m_isLineBegun, true);
    const bool continuesLine = isLineStart && (piece.starts_with(' ') || piece.starts_with('\t'));
    return continuesLine ? CMRestResult::MalformedResponse : CMRestResult::Success;
}

CMRestResult RestReceipt::addHeaderLine(std::string_view line, long status) noexcept {
    m_headerBytes += line.size();
    m_isLineBegun = false;
    if (m_headerBytes > kMostHeaderBytes) {
        return CMRestResult::OversizedResponse;
    }
    if (m_headers.isWhole && m_headers.isFinal) {
        return CMRestResult::Success;  // a trailer
    }
    if (line.starts_with("HTTP/")) {
        // No upgrade is asked for, so 101 is a response and not an interim one.
        m_headers = RestHeaderBlock{.isFinal = status >= 200 || status == 101};
    } else if (line.starts_with('\r') || line.starts_with('\n')) {
        m_headers.isWhole = true;
        m_isHeaderAwaited = m_isHeaderAwaited && !m_headers.isFinal;
    } else {
        m_isHeaderAwaited = false;
        readHeader(line);
    }
    return CMRestResult::Success;
}

void RestReceipt::readHeader(std::string_view line) noexcept {
    if (isHeaderNamed(line, "Transfer-Encoding:")) {
        m_headers.isChunked = m_headers.isChunked || endsChunked(obtainHeaderValue(line));
        m_headers.coding = addTransferCoding(m_headers.coding, obtainHeaderValue(line));
    } else if (isHeaderNamed(line, "Content-Length:")) {
        m_headers.hasLength = true;
    } else if (isHeaderNamed(line, "Content-Encoding:")) {
        m_headers.coding = addCoding(m_headers.coding, obtainHeaderValue(line));
    }
}

CMRestResult RestReceipt::addBody(char* bytes, std::size_t size, std::int64_t announced) {
    if (size > 0 && !m_firstByte) {
        m_firstByte = RestClock::now();
    }
    const bool isCoded = m_headers.coding != RestCoding::None;
    return isCoded ? keepDecoded(bytes, size) : keepBody({bytes, size}, announced);
}

CMRestResult RestReceipt::keepBody(std::string_view bytes, std::int64_t announced) {
    if (bytes.size() > m_bodyLimit - m_bodyBytes) {
        return CMRestResult::OversizedResponse;
    }
    makeRoom(bytes.size(), announced);
    m_body.append(bytes);
    m_bodyBytes += bytes.size();
    return CMRestResult::Success;
}

CMRestResult RestReceipt::keepDecoded(char* bytes, std::size_t size) {
    if (m_headers.coding == RestCoding::Unknown) {
        return CMRestResult::MalformedResponse;
    }
    if (size == 0) {
        return CMRestResult::Success;
    }
    if (!m_decoder) {
        m_decoder = std::make_unique<RestDecoder>(m_headers.coding, *bytes);
    }
    m_decoder->feed(bytes, size);
    for (std::string_view piece = m_decoder->decode(); !piece.empty(); piece = m_decoder->decode()) {
        if (const CMRestResult result = keepBody(piece, -1); result != CMRestResult::Success) {
            return result;
        }
    }
    return m_decoder->isMalformed() ? CMRestResult::MalformedResponse : CMRestResult::Success;
}

void RestReceipt::makeRoom(std::size_t size, std::int64_t announced) {
    const std::size_t needed = m_body.size() + size + kBodyPadding;
    if (needed <= m_body.capacity()) {
        return;
    }
    std::size_t wanted = 2 * m_body.capacity();
    if (m_body.empty()) {
        wanted = static_cast<std::size_t>(std::clamp(announced, std::int64_t{0}, kMostReserved)) + kBodyPadding;
    }
    m_body.reserve(std::max(needed, std::min(wanted, m_bodyLimit)));
}

}  // namespace cf
