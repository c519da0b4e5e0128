#include "rest/rest_classify.h"

#include <openssl/x509_vfy.h>

#include <new>

namespace cf {

namespace {

/// The longest header line that libcurl accepts. libcurl 7.88 reports a longer one as exhausted memory.
constexpr std::size_t kLongestHeaderLine = 100'000;

/// A header line or a trailer was too long for libcurl. Newer versions name it CURLE_TOO_LARGE.
constexpr auto kTooLarge = static_cast<CURLcode>(100);

/// Whether the body is known to be complete.
bool isBodyWhole(const RestEnding& ending) noexcept {
    const RestHeaderBlock& headers = ending.headers;
    if (!ending.isDecodedWhole) {
        return false;
    }
    if (headers.isChunked || ending.contentLength >= 0) {
        return true;  // libcurl has checked it
    }
    if (ending.status < 200 || ending.status == 204 || ending.status == 304) {
        return true;
    }
    // libcurl ignores a length beyond 64 bits. Without a length, the body ends with the connection, and only TLS tells
    // whether the server has ended it.
    return !headers.hasLength && (ending.tls.isClosed || !ending.isTLS);
}

/// libcurl also reports success if the headers are truncated or the last response is an interim one.
CMRestResult classifyResponse(const RestEnding& ending) noexcept {
    if (ending.headers.isWhole && ending.status < 100) {
        return CMRestResult::MalformedResponse;
    }
    const bool isWhole = ending.headers.isWhole && ending.headers.isFinal && isBodyWhole(ending);
    return isWhole ? CMRestResult::Success : CMRestResult::BrokenConnection;
}

/// Whether the TLS handshake was with the proxy, not with the server behind it.
bool isProxyHandshake(const RestEnding& ending) noexcept {
    return ending.isProxyTLS && ending.proxyStatus == 0;
}

CMRestResult classifyBreak(const RestEnding& ending) noexcept {
    if (!ending.isRequestBegun && ending.proxyStatus != 0) {
        return CMRestResult::Proxy;
    }
    // In TLS 1.3 the server can still reject the client after the client has finished its handshake.
    const bool isRefused = ending.tls.hasFatalAlert && ending.status == 0 && !isProxyHandshake(ending);
    return isRefused ? CMRestResult::TLSAlert : CMRestResult::BrokenConnection;
}

CMRestResult classifyCertificate(long verification) noexcept {
    switch (verification) {
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return CMRestResult::WrongHostCertificate;
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return CMRestResult::OutdatedCertificate;
        default:
            return CMRestResult::UntrustedCertificate;
    }
}

CMRestResult classifyTLS(const RestEnding& ending) noexcept {
    if (isProxyHandshake(ending) || (ending.isProxyTLS && ending.proxyVerification != X509_V_OK)) {
        return CMRestResult::Proxy;
    }
    if (ending.tls.isPlainHTTP) {
        return CMRestResult::PlainHTTPServer;
    }
    if (ending.tls.hasFatalAlert) {
        return CMRestResult::TLSAlert;
    }
    if (!ending.isChecked) {
        return CMRestResult::TLS;
    }
    if (ending.tls.verification != X509_V_OK) {
        return classifyCertificate(ending.tls.verification);
    }
    // The chain is valid; libcurl itself checks the host name.
    return ending.code == CURLE_PEER_FAILED_VERIFICATION ? CMRestResult::WrongHostCertificate : CMRestResult::TLS;
}

CMRestResult classifyTimeout(const RestEnding& ending) noexcept {
    if (ending.isRequestBegun) {
        return CMRestResult::RequestTimeout;
    }
    const bool isServerReached = ending.tls.isBegun && (!ending.hasProxy || ending.proxyStatus == 200);
    return ending.isTLS && isServerReached ? CMRestResult::TLSTimeout : CMRestResult::ConnectTimeout;
}

/// libcurl 7.88 reports a header line or a trailer that is too long for it as exhausted memory.
CMRestResult classifyExhaustion(const RestEnding& ending) {
    const bool isTrailer = ending.headers.isWhole && ending.headers.isFinal && ending.headers.isChunked;
    const bool hasLongLine = ending.isRequestBegun && ending.receivedBytes > kLongestHeaderLine;
    if (!isTrailer && !hasLongLine) {
        throw std::bad_alloc();
    }
    return CMRestResult::OversizedResponse;
}

}  // namespace

CMRestResult classifyEnding(const RestEnding& ending) {
    if (ending.code == kTooLarge) {
        return CMRestResult::OversizedResponse;
    }
    switch (ending.code) {
        case CURLE_OK:
            return classifyResponse(ending);
        case CURLE_URL_MALFORMAT:
            return CMRestResult::InvalidURL;
        case CURLE_COULDNT_RESOLVE_HOST:
            return CMRestResult::UnresolvedHost;
        case CURLE_COULDNT_CONNECT:
            return ending.hasProxy ? CMRestResult::Proxy : CMRestResult::NoConnection;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_PROXY:
            return CMRestResult::Proxy;
        case CURLE_OPERATION_TIMEDOUT:
            return classifyTimeout(ending);
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_CLIENTCERT:
        case CURLE_USE_SSL_FAILED:
            return classifyTLS(ending);
        case CURLE_GOT_NOTHING:
            // libcurl also reports this if nothing follows an interim status; of those, 101 may be the response itself.
            return ending.headers.isFinal ? classifyResponse(ending) : classifyBreak(ending);
        case CURLE_PARTIAL_FILE:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
            return classifyBreak(ending);
        case CURLE_UNSUPPORTED_PROTOCOL:   // an answer without a status line
        case CURLE_BAD_FUNCTION_ARGUMENT:  // a header line without a name
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_BAD_CONTENT_ENCODING:
            return CMRestResult::MalformedResponse;
        case CURLE_OUT_OF_MEMORY:
            return classifyExhaustion(ending);
        default:
            return CMRestResult::Other;
    }
}

}  // namespace cf
