#include "loopback_http.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <stdexcept>

namespace {

constexpr std::size_t kLongestHead = std::size_t{1} << 20;
constexpr std::size_t kLongestBody = std::size_t{1} << 30;

bool isSameName(std::string_view left, std::string_view right) {
    const auto lower = [](unsigned char c) { return std::tolower(c); };
    return std::ranges::equal(left, right, {}, lower, lower);
}

const std::string* findField(const LoopbackFields& fields, std::string_view name) {
    const auto found = std::ranges::find_if(fields, [&](const auto& field) { return isSameName(field.first, name); });
    return found == fields.end() ? nullptr : &found->second;
}

std::string_view trimBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::optional<std::size_t> readNumber(std::string_view text, int base) {
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::string decodeQueryText(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto code = text[i] == '%' ? readNumber(text.substr(i + 1, 2), 16) : std::nullopt;
        if (code && i + 2 < text.size()) {
            decoded.push_back(static_cast<char>(*code));
            i += 2;
        } else {
            decoded.push_back(text[i] == '+' ? ' ' : text[i]);
        }
    }
    return decoded;
}

LoopbackFields readQueryParams(std::string_view query) {
    LoopbackFields params;
    while (!query.empty()) {
        const auto pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), pair.size() + 1));
        const auto equals = std::min(pair.find('='), pair.size());
        const auto value = pair.substr(std::min(pair.size(), equals + 1));
        params.emplace_back(decodeQueryText(pair.substr(0, equals)), decodeQueryText(value));
    }
    return params;
}

std::string deflatePiece(z_stream& stream, std::string piece, int flush) {
    constexpr std::size_t kFlushBytes = 64;  // the most that a flush adds, and the gzip header and trailer
    std::string result(deflateBound(&stream, piece.size()) + kFlushBytes, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_in = static_cast<uInt>(piece.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    deflate(&stream, flush);
    result.resize(result.size() - stream.avail_out);
    return result;
}

// One gzip stream. Each piece is flushed, so that a client can read it before the next one is sent.
void compressPieces(std::vector<std::string>& pieces) {
    z_stream stream{};
    constexpr int kGzipWindow = 15 + 16;
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::runtime_error("cannot compress a reply");
    }
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        pieces[i] = deflatePiece(stream, std::move(pieces[i]), i + 1 == pieces.size() ? Z_FINISH : Z_SYNC_FLUSH);
    }
    deflateEnd(&stream);
}

std::string writeChunks(std::string_view body, std::size_t chunkBytes) {
    std::string result;
    while (!body.empty()) {
        const auto chunk = body.substr(0, std::max<std::size_t>(chunkBytes, 1));
        std::array<char, 16> size{};
        const auto end = std::to_chars(size.data(), size.data() + size.size(), chunk.size(), 16).ptr;
        result.append(size.data(), end).append("\r\n").append(chunk).append("\r\n");
        body.remove_prefix(chunk.size());
    }
    return result;
}

void writeBody(const LoopbackReply& reply, LoopbackWireReply& wire) {
    const bool isChunked = reply.framing == LoopbackFraming::Chunked;
    const bool isWhole = reply.pieces.empty();
    std::vector<std::string> pieces = isWhole ? std::vector{reply.body} : reply.pieces;
    if (reply.isCompressed) {
        compressPieces(pieces);
    }
    for (const std::string& piece : pieces) {
        wire.body += isChunked ? writeChunks(piece, isWhole ? reply.chunkBytes : piece.size()) : piece;
        wire.pieceEnds.push_back(wire.body.size());
    }
    wire.body += isChunked ? "0\r\n\r\n" : "";
}

std::string_view obtainStandardReason(int status) {
    static constexpr std::pair<int, std::string_view> kReasons[] = {{200, "OK"},
                                                                    {201, "Created"},
                                                                    {204, "No Content"},
                                                                    {301, "Moved Permanently"},
                                                                    {302, "Found"},
                                                                    {307, "Temporary Redirect"},
                                                                    {308, "Permanent Redirect"},
                                                                    {400, "Bad Request"},
                                                                    {401, "Unauthorized"},
                                                                    {402, "Payment Required"},
                                                                    {403, "Forbidden"},
                                                                    {404, "Not Found"},
                                                                    {405, "Method Not Allowed"},
                                                                    {409, "Conflict"},
                                                                    {413, "Content Too Large"},
                                                                    {422, "Unprocessable Content"},
                                                                    {429, "Too Many Requests"},
                                                                    {500, "Internal Server Error"},
                                                                    {502, "Bad Gateway"},
                                                                    {503, "Service Unavailable"},
                                                                    {504, "Gateway Timeout"}};
    const auto found = std::ranges::find(kReasons, status, &std::pair<int, std::string_view>::first);
    return found == std::end(kReasons) ? std::string_view{} : found->second;
}

bool hasNoBody(int status, std::string_view method) {
    return method == "HEAD" || (status >= 100 && status < 200) || status == 204 || status == 304;
}

}  // namespace

const std::string* LoopbackRequest::findHeader(std::string_view name) const {
    return findField(headers, name);
}

const std::string* LoopbackRequest::findQueryParam(std::string_view name) const {
    const auto found = std::ranges::find(queryParams, name, &std::pair<std::string, std::string>::first);
    return found == queryParams.end() ? nullptr : &found->second;
}

LoopbackRequestReader::State LoopbackRequestReader::read() {
    while (m_stage != Stage::Done) {
        const State state = m_stage == Stage::Head ? readHead() : readBody();
        if (state != State::Complete) {
            return state;
        }
    }
    return State::Complete;
}

LoopbackRequest LoopbackRequestReader::takeRequest() {
    m_stage = Stage::Head;
    m_isContinueExpected = false;
    return std::exchange(m_request, {});
}

bool LoopbackRequestReader::takeExpectation() {
    return std::exchange(m_isContinueExpected, false);
}

LoopbackRequestReader::State LoopbackRequestReader::readHead() {
    const auto end = m_buffer.find("\r\n\r\n");
    if (end == std::string::npos) {
        return m_buffer.size() > kLongestHead ? State::Malformed : State::NeedsMore;
    }
    const bool isUnderstood = parseHead(std::string_view(m_buffer).substr(0, end + 2));
    m_buffer.erase(0, end + 4);
    return isUnderstood && startBody() ? State::Complete : State::Malformed;
}

bool LoopbackRequestReader::parseHead(std::string_view head) {
    const auto line = head.substr(0, head.find("\r\n"));
    head.remove_prefix(line.size() + 2);
    const auto first = line.find(' ');
    const auto last = line.rfind(' ');
    if (first == std::string_view::npos || first == last || !line.substr(last + 1).starts_with("HTTP/1.")) {
        return false;
    }
    m_request.method = line.substr(0, first);
    m_request.target = line.substr(first + 1, last - first - 1);
    m_request.version = line.substr(last + 1);
    m_request.path = m_request.target.substr(0, m_request.target.find('?'));
    if (m_request.path.size() < m_request.target.size()) {
        m_request.queryParams = readQueryParams(std::string_view(m_request.target).substr(m_request.path.size() + 1));
    }
    while (!head.empty()) {
        const auto field = head.substr(0, head.find("\r\n"));
        head.remove_prefix(field.size() + 2);
        const auto colon = field.find(':');
        if (colon == std::string_view::npos || colon == 0) {
            return false;
        }
        m_request.headers.emplace_back(field.substr(0, colon), trimBlanks(field.substr(colon + 1)));
    }
    return !m_request.method.empty() && !m_request.target.empty();
}

bool LoopbackRequestReader::startBody() {
    const auto* expectation = m_request.findHeader("Expect");
    m_isContinueExpected = expectation != nullptr && isSameName(*expectation, "100-continue");
    if (const auto* coding = m_request.findHeader("Transfer-Encoding")) {
        m_stage = Stage::ChunkSize;
        return isSameName(*coding, "chunked");
    }
    const auto* length = m_request.findHeader("Content-Length");
    const auto bytes = length == nullptr ? std::size_t{0} : readNumber(*length, 10);
    m_remaining = bytes.value_or(0);
    m_stage = Stage::LengthBody;
    return bytes && *bytes <= kLongestBody;
}

LoopbackRequestReader::State LoopbackRequestReader::readBody() {
    switch (m_stage) {
        case Stage::ChunkSize:
            return readChunkSize();
        case Stage::ChunkData:
            return readChunkData();
        case Stage::Trailer:
            return readTrailer();
        default:
            break;
    }
    const auto taken = std::min(m_remaining, m_buffer.size());
    m_request.body.append(m_buffer, 0, taken);
    m_buffer.erase(0, taken);
    m_remaining -= taken;
    if (m_remaining != 0) {
        return State::NeedsMore;
    }
    m_stage = Stage::Done;
    return State::Complete;
}

LoopbackRequestReader::State LoopbackRequestReader::readChunkSize() {
    const auto line = takeLine();
    if (!line) {
        return m_buffer.size() > kLongestHead ? State::Malformed : State::NeedsMore;
    }
    const auto size = readNumber(trimBlanks(std::string_view(*line).substr(0, line->find(';'))), 16);
    if (!size || *size > kLongestBody || m_request.body.size() + *size > kLongestBody) {
        return State::Malformed;
    }
    m_remaining = *size;
    m_stage = *size == 0 ? Stage::Trailer : Stage::ChunkData;
    return State::Complete;
}

LoopbackRequestReader::State LoopbackRequestReader::readChunkData() {
    if (m_buffer.size() < m_remaining + 2) {
        return State::NeedsMore;
    }
    if (m_buffer.compare(m_remaining, 2, "\r\n") != 0) {
        return State::Malformed;
    }
    m_request.body.append(m_buffer, 0, m_remaining);
    m_buffer.erase(0, m_remaining + 2);
    m_stage = Stage::ChunkSize;
    return State::Complete;
}

LoopbackRequestReader::State LoopbackRequestReader::readTrailer() {
    const auto line = takeLine();
    if (!line) {
        return m_buffer.size() > kLongestHead ? State::Malformed : State::NeedsMore;
    }
    if (line->empty()) {
        m_stage = Stage::Done;
    }
    return State::Complete;
}

std::optional<std::string> LoopbackRequestReader::takeLine() {
    const auto end = m_buffer.find("\r\n");
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = m_buffer.substr(0, end);
    m_buffer.erase(0, end + 2);
    return line;
}

std::size_t LoopbackWireReply::findPieceEnd(std::size_t place) const {
    const auto end = std::ranges::upper_bound(pieceEnds, place);
    return end == pieceEnds.end() ? body.size() : *end;
}

LoopbackWireReply writeLoopbackReply(const LoopbackReply& reply, std::string_view method) {
    if (reply.raw) {
        return {.head = {}, .body = *reply.raw, .pieceEnds = {}, .isConnectionClosed = reply.isClosedAfter};
    }
    LoopbackWireReply wire;
    writeBody(reply, wire);
    const auto reason = reply.reason.empty() ? obtainStandardReason(reply.status) : std::string_view(reply.reason);
    wire.head.append("HTTP/1.1 ").append(std::to_string(reply.status)).append(" ").append(reason).append("\r\n");
    for (const auto& [name, value] : reply.headers) {
        wire.head.append(name).append(": ").append(value).append("\r\n");
    }
    if (reply.isCompressed) {
        wire.head.append("Content-Encoding: gzip\r\n");
    }
    const bool isLengthDue = reply.framing == LoopbackFraming::ContentLength && reply.status >= 200 &&
                             reply.status != 204 && findField(reply.headers, "Content-Length") == nullptr;
    if (isLengthDue) {
        wire.head.append("Content-Length: ").append(std::to_string(wire.body.size())).append("\r\n");
    } else if (reply.framing == LoopbackFraming::Chunked) {
        wire.head.append("Transfer-Encoding: chunked\r\n");
    }
    wire.head.append("\r\n");
    if (hasNoBody(reply.status, method)) {
        wire.body.clear();
    }
    const auto* connection = findField(reply.headers, "Connection");
    wire.isConnectionClosed = reply.isClosedAfter || reply.framing == LoopbackFraming::UntilClose ||
                              (connection != nullptr && isSameName(*connection, "close"));
    return wire;
}

bool isCloseRequested(const LoopbackRequest& request) {
    const auto* connection = request.findHeader("Connection");
    if (request.version == "HTTP/1.0") {
        return connection == nullptr || !isSameName(*connection, "keep-alive");
    }
    return connection != nullptr && isSameName(*connection, "close");
}
