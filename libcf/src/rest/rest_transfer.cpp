#include "rest/rest_transfer.h"

#include <openssl/ssl.h>

#include <utility>

namespace cf {

namespace {

using namespace std::chrono_literals;

/// A POST whose kept-alive connection breaks without an answer is retried only within this time after it was first
/// sent: then the server was closing an idle connection. Later the server may already be processing the request.
constexpr auto kReplayWindow = 1s;

}  // namespace

void RestTransfer::beginExchange(const RestExchange& exchange) noexcept {
    m_method = exchange.method;
    m_sendings = 0;
}

void RestTransfer::beginAttempt(const RestExchange& exchange, BodyReader body) {
    m_receipt = RestReceipt(exchange.settings.maxResponseBytes);
    m_tls = {};
    m_body = body;
    m_isBodyRead = body.isAtEnd();
    m_stop.reset();
    m_exception = nullptr;
    m_descriptor = -1;
    m_tlsConnection = nullptr;
    m_isReused = false;
    m_isConnectionDead = false;
    setHeaderPreview(true);
}

void RestTransfer::end() noexcept {
    m_body = BodyReader();
    m_receipt = RestReceipt();
}

void RestTransfer::rethrow() {
    if (m_exception) {
        std::rethrow_exception(std::exchange(m_exception, nullptr));
    }
}

bool RestTransfer::isReplayable(RestClock::time_point now) const noexcept {
    return m_method != RestMethod::Post || m_sendings == 0 || now - m_firstSending <= kReplayWindow;
}

bool RestTransfer::mayBeSentAgain(CMRestResult result) const noexcept {
    const bool isBrokenUnanswered =
        m_isReused && result == CMRestResult::BrokenConnection && m_receipt.countHeaderBytes() == 0 && !m_stop;
    return (m_isConnectionDead || isBrokenUnanswered) && isReplayable(RestClock::now());
}

void RestTransfer::describe(RestEnding& ending) const noexcept {
    ending.headers = m_receipt.obtainHeaders();
    ending.isDecodedWhole = m_receipt.isDecodedWhole();
    ending.tls = m_tls;
    ending.receivedBytes = m_sockets.countBytesOfClosed();
}

void RestTransfer::inspectConnection() noexcept {
    // OpenSSL buffers the bytes that follow the response in the same TLS record; the socket does not show them. If
    // libcurl has closed the connection, find() returns null, and its TLS object no longer exists.
    RestSocket* const socket = m_sockets.find(m_descriptor);
    if (socket != nullptr && m_tlsConnection != nullptr) {
        socket->isSpoilt = SSL_has_pending(m_tlsConnection) == 1;
    }
    m_tlsConnection = nullptr;
}

void RestTransfer::markResolverSockets() {
    if (const auto mark = std::exchange(m_resolverMark, std::nullopt)) {
        mark->markNewSockets();
    }
}

void RestTransfer::giveUpConnection() noexcept {
    m_isConnectionDead = true;
    stop(CMRestResult::BrokenConnection);
}

void RestTransfer::setHeaderPreview(bool isWanted) noexcept {
    curl_easy_setopt(m_easy, CURLOPT_HEADER, isWanted ? 1L : 0L);
}

/// Whether the data that arrives now was sent before the server can have read the whole request. A response takes a
/// round trip after the request's last byte, and TCP has measured that round trip when the response is read.
bool RestTransfer::isTooEarly() const noexcept {
    if (!m_isReused) {
        return false;
    }
    if (!m_isBodyRead) {
        return true;
    }
    const auto elapsed = RestClock::now() - m_lastSending;
    if (elapsed > kReplayWindow) {
        return false;
    }
    const auto roundTrip = obtainShortestRoundTrip(m_descriptor);
    return roundTrip && elapsed < *roundTrip;
}

std::size_t RestTransfer::receiveHeader(std::string_view line) noexcept {
    if (m_receipt.countHeaderBytes() == 0 && isTooEarly()) {
        giveUpConnection();
        return 0;
    }
    const bool isPreviewed = m_receipt.isHeaderAwaited();
    const CMRestResult result = m_receipt.addHeaderLine(line, ask<long>(CURLINFO_RESPONSE_CODE));
    if (result != CMRestResult::Success) {
        stop(result);
        return 0;
    }
    if (isPreviewed && !m_receipt.isHeaderAwaited()) {
        setHeaderPreview(false);
    }
    return line.size();
}

std::size_t RestTransfer::receiveBody(char* bytes, std::size_t size) noexcept {
    try {
        const CMRestResult result =
            m_receipt.isHeaderAwaited()
                ? m_receipt.checkHeaderPiece({bytes, size})
                : m_receipt.addBody(bytes, size, ask<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T));
        if (result != CMRestResult::Success) {
            stop(result);
            return 0;
        }
        return size;
    } catch (...) {
        m_exception = std::current_exception();
        return 0;
    }
}

std::size_t RestTransfer::sendBody(char* target, std::size_t capacity) noexcept {
    const std::size_t size = m_body.read(target, capacity);
    if (!m_isBodyRead && m_body.isAtEnd()) {
        if (m_isReused && isSocketReadable(m_descriptor)) {
            // The request is not complete yet, so this cannot be its response, and the server has not acted on it.
            giveUpConnection();
            return CURL_READFUNC_ABORT;
        }
        m_isBodyRead = true;
        m_lastSending = RestClock::now();
    }
    return size;
}

int RestTransfer::seekBody(curl_off_t offset) noexcept {
    const bool isFound = offset >= 0 && m_body.seek(static_cast<std::size_t>(offset));
    m_isBodyRead = m_body.isAtEnd();
    return isFound ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

const SSL* RestTransfer::obtainTLS() const noexcept {
    const auto* const info = ask<const curl_tlssessioninfo*>(CURLINFO_TLS_SSL_PTR);
    return info == nullptr ? nullptr : static_cast<const SSL*>(info->internals);
}

int RestTransfer::permitSending(int localPort) noexcept {
    const RestClock::time_point now = RestClock::now();
    // Drop what a proxy, or another connection that was closed for its age, may have left.
    m_tls.isClosed = false;
    m_receipt.forgetHeaders();
    RestSocket* const socket = m_sockets.findByLocalPort(localPort);
    m_isReused = socket != nullptr && socket->requestCount > 0;
    if (m_isReused && (socket->isSpoilt || isSocketReadable(socket->descriptor))) {
        giveUpConnection();
        return CURL_PREREQFUNC_ABORT;
    }
    if (!isReplayable(now)) {
        stop(CMRestResult::BrokenConnection);
        return CURL_PREREQFUNC_ABORT;
    }
    if (++m_sendings == 1) {
        m_firstSending = now;
    }
    if (socket != nullptr) {
        ++socket->requestCount;
        m_descriptor = socket->descriptor;
    }
    m_tlsConnection = obtainTLS();
    m_lastSending = now;
    return CURL_PREREQFUNC_OK;
}

int RestTransfer::startResolving() noexcept {
    try {
        m_resolverMark.emplace();
        return 0;
    } catch (...) {
        m_exception = std::current_exception();
        return 1;
    }
}

int RestTransfer::openSocket(int family, int type, int protocol) noexcept {
    try {
        return m_sockets.open(family, type, protocol);
    } catch (...) {
        m_exception = std::current_exception();
        return CURL_SOCKET_BAD;
    }
}

void RestTransfer::watchTLS(const SSL* connection, int event, int value) noexcept {
    constexpr int kDescriptionMask = 0xFF;
    constexpr int kLevelShift = 8;
    m_tls.isBegun = m_tls.isBegun || event == SSL_CB_HANDSHAKE_START;
    if (event == SSL_CB_READ_ALERT) {
        m_tls.isClosed = m_tls.isClosed || (value & kDescriptionMask) == SSL_AD_CLOSE_NOTIFY;
        m_tls.hasFatalAlert = m_tls.hasFatalAlert || value >> kLevelShift == SSL3_AL_FATAL;
    }
    if (event == SSL_CB_WRITE_ALERT) {
        // libcurl keeps the verification result only for some failures.
        m_tls.verification = SSL_get_verify_result(connection);
    }
}

void RestTransfer::watchRecord(std::string_view header) noexcept {
    // A server that expects plain HTTP answers with an error page. It begins with a status line or, from older servers,
    // with HTML.
    m_tls.isPlainHTTP = m_tls.isPlainHTTP || header.starts_with("HTTP/") || header.starts_with('<');
}

}  // namespace cf
