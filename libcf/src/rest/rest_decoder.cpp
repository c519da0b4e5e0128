#include "rest/rest_decoder.h"

#include <algorithm>
#include <new>

#include "text/characters.h"

namespace cf {

namespace {

constexpr int kWindowBits = MAX_WBITS;
constexpr int kGzipWindowBits = MAX_WBITS + 16;
constexpr Bytef kGzipFirstByte = 0x1F;

RestCoding obtainCoding(std::string_view name) noexcept {
    if (isEqualIgnoringCase(name, "gzip") || isEqualIgnoringCase(name, "x-gzip")) {
        return RestCoding::Gzip;
    }
    if (isEqualIgnoringCase(name, "deflate")) {
        return RestCoding::Deflate;
    }
    const bool isNone = name.empty() || isEqualIgnoringCase(name, "identity") || isEqualIgnoringCase(name, "none");
    return isNone ? RestCoding::None : RestCoding::Unknown;
}

/// "deflate" means a zlib stream, but some servers send raw deflate data. Compressors never write raw data whose first
/// byte is also a valid first byte of a zlib stream.
int obtainWindowBits(RestCoding coding, char firstByte) noexcept {
    if (coding == RestCoding::Gzip) {
        return kGzipWindowBits;
    }
    const auto byte = static_cast<unsigned char>(firstByte);
    const bool isZlib = (byte & 0x0FU) == Z_DEFLATED && byte >> 4U <= 7;
    return isZlib ? kWindowBits : -kWindowBits;
}

RestCoding addNames(RestCoding known, std::string_view names, std::string_view passedOver) noexcept {
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        const std::string_view name = trimHTTPBlanks(names.substr(0, end));
        const RestCoding coding = isEqualIgnoringCase(name, passedOver) ? RestCoding::None : obtainCoding(name);
        if (coding != RestCoding::None) {
            known = known == RestCoding::None ? coding : RestCoding::Unknown;
        }
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    return known;
}

constexpr std::string_view kChunked = "chunked";

}  // namespace

RestCoding addCoding(RestCoding known, std::string_view value) noexcept {
    return addNames(known, value, "");
}

RestCoding addTransferCoding(RestCoding known, std::string_view value) noexcept {
    return addNames(known, value, kChunked);
}

bool endsChunked(std::string_view value) noexcept {
    return isEqualIgnoringCase(trimHTTPBlanks(value.substr(value.find_last_of(',') + 1)), kChunked);
}

RestDecoder::RestDecoder(RestCoding coding, char firstByte) : m_coding(coding) {
    if (inflateInit2(&m_stream, obtainWindowBits(coding, firstByte)) != Z_OK) {
        throw std::bad_alloc();
    }
}

RestDecoder::~RestDecoder() {
    inflateEnd(&m_stream);
}

void RestDecoder::feed(char* bytes, std::size_t size) noexcept {
    m_stream.next_in = reinterpret_cast<Bytef*>(bytes);
    m_stream.avail_in = static_cast<uInt>(size);
}

std::string_view RestDecoder::decode() {
    while (!m_isMalformed) {
        if (m_isAtEnd && !startNextMember()) {
            break;
        }
        m_stream.next_out = reinterpret_cast<Bytef*>(m_decoded.data());
        m_stream.avail_out = static_cast<uInt>(m_decoded.size());
        const int result = inflate(&m_stream, Z_NO_FLUSH);
        if (result == Z_MEM_ERROR) {
            throw std::bad_alloc();
        }
        m_isAtEnd = result == Z_STREAM_END;
        m_isMalformed = !m_isAtEnd && result != Z_OK && result != Z_BUF_ERROR;
        const std::size_t size = m_decoded.size() - m_stream.avail_out;
        if (size > 0) {
            return {m_decoded.data(), size};
        }
        if (m_stream.avail_in == 0) {
            break;
        }
    }
    return {};
}

/// gzip data may consist of several members. False when there is no more input, or when something else follows, which
/// makes the data malformed.
bool RestDecoder::startNextMember() noexcept {
    if (m_stream.avail_in == 0) {
        return false;
    }
    const bool isMember = m_coding == RestCoding::Gzip && *m_stream.next_in == kGzipFirstByte;
    m_isMalformed = !isMember || inflateReset(&m_stream) != Z_OK;
    m_isAtEnd = false;
    return !m_isMalformed;
}

}  // namespace cf
