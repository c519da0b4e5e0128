#include "rest/rest_decoder.h"

#include <algorithm>
#include <new>

#include "text/characters.h"

namespace {

constexpr int kWindowBits = MAX_WBITS;
constexpr int kGzipWindowBits = MAX_WBITS + 16;
constexpr Bytef kGzipFirstByte = 0x1F;

CMRestCoding obtainCoding(std::string_view name) noexcept {
    if (cf::isEqualIgnoringCase(name, "gzip") || cf::isEqualIgnoringCase(name, "x-gzip")) {
        return CMRestCoding::Gzip;
    }
    if (cf::isEqualIgnoringCase(name, "deflate")) {
        return CMRestCoding::Deflate;
    }
    const bool isNone =
        name.empty() || cf::isEqualIgnoringCase(name, "identity") || cf::isEqualIgnoringCase(name, "none");
    return isNone ? CMRestCoding::None : CMRestCoding::Unknown;
}

/// "deflate" means a zlib stream, but there are servers that send bare deflate data. That never begins like a zlib
/// stream, except with bits set that a compressor leaves zero.
int obtainWindowBits(CMRestCoding coding, char firstByte) noexcept {
    if (coding == CMRestCoding::Gzip) {
        return kGzipWindowBits;
    }
    const auto byte = static_cast<unsigned char>(firstByte);
    const bool isZlib = (byte & 0x0FU) == Z_DEFLATED && byte >> 4U <= 7;
    return isZlib ? kWindowBits : -kWindowBits;
}

CMRestCoding addNames(CMRestCoding known, std::string_view names, std::string_view passedOver) noexcept {
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        const std::string_view name = cf::trimHTTPBlanks(names.substr(0, end));
        const CMRestCoding coding = cf::isEqualIgnoringCase(name, passedOver) ? CMRestCoding::None : obtainCoding(name);
        if (coding != CMRestCoding::None) {
            known = known == CMRestCoding::None ? coding : CMRestCoding::Unknown;
        }
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    return known;
}

constexpr std::string_view kChunked = "chunked";

}  // namespace

CMRestCoding addCoding(CMRestCoding known, std::string_view value) noexcept {
    return addNames(known, value, "");
}

CMRestCoding addTransferCoding(CMRestCoding known, std::string_view value) noexcept {
    return addNames(known, value, kChunked);
}

bool endsChunked(std::string_view value) noexcept {
    return cf::isEqualIgnoringCase(cf::trimHTTPBlanks(value.substr(value.find_last_of(',') + 1)), kChunked);
}

CMRestDecoder::CMRestDecoder(CMRestCoding coding, char firstByte) : m_coding(coding) {
    if (inflateInit2(&m_stream, obtainWindowBits(coding, firstByte)) != Z_OK) {
        throw std::bad_alloc();
    }
}

CMRestDecoder::~CMRestDecoder() {
    inflateEnd(&m_stream);
}

void CMRestDecoder::feed(char* bytes, std::size_t size) noexcept {
    m_stream.next_in = reinterpret_cast<Bytef*>(bytes);
    m_stream.avail_in = static_cast<uInt>(size);
}

std::string_view CMRestDecoder::decode() {
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

/// gzip data may be several members, one behind the other. False where nothing more was fed, or nothing may follow.
bool CMRestDecoder::startNextMember() noexcept {
    if (m_stream.avail_in == 0) {
        return false;
    }
    const bool isMember = m_coding == CMRestCoding::Gzip && *m_stream.next_in == kGzipFirstByte;
    m_isMalformed = !isMember || inflateReset(&m_stream) != Z_OK;
    m_isAtEnd = false;
    return !m_isMalformed;
}
