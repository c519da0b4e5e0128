#include <new>

#include "rest/rest_connections.h"
#include "rest/rest_url.h"

// What libcurl's result of an exchange means for a person.

CMRestResult CMRestConnections::classify(CURLcode code) const {
    if (m_receipt.failure != CMRestResult::Success) {
        return m_receipt.failure;
    }
    switch (code) {
        case CURLE_OK:
            return classifyEnd();
        case CURLE_URL_MALFORMAT:
            return CMRestResult::InvalidURL;
        case CURLE_COULDNT_RESOLVE_HOST:
            return CMRestResult::UnresolvedHost;
        case CURLE_COULDNT_CONNECT:
            return m_proxyURL.empty() ? CMRestResult::NoConnection : CMRestResult::Proxy;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_PROXY:
            return CMRestResult::Proxy;
        case CURLE_OPERATION_TIMEDOUT:
            return isRequestBegun() ? CMRestResult::RequestTimeout : CMRestResult::ConnectTimeout;
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
            return classifyTLS(code);
        case CURLE_GOT_NOTHING:
            // Also what libcurl makes of an interim status with nothing behind it, and 101 may be the response.
            return m_receipt.headers.isFinal ? classifyEnd() : classifyBreak();
        case CURLE_PARTIAL_FILE:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
            return classifyBreak();
        case CURLE_UNSUPPORTED_PROTOCOL:  // an answer without a status line
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_BAD_CONTENT_ENCODING:
            return CMRestResult::MalformedResponse;
        case CURLE_OUT_OF_MEMORY:
            return classifyExhaustion();
        default:
            return CMRestResult::Other;
    }
}

/// libcurl takes headers that were cut for a response, and an interim response for the last one.
CMRestResult CMRestConnections::classifyEnd() const {
    if (m_receipt.headers.isWhole && obtainInfo<long>(CURLINFO_RESPONSE_CODE) < 100) {
        return CMRestResult::MalformedResponse;
    }
    const bool isWhole = m_receipt.headers.isWhole && m_receipt.headers.isFinal && isBodyWhole();
    return isWhole ? CMRestResult::Success : CMRestResult::BrokenConnection;
}

bool CMRestConnections::isBodyWhole() const {
    const HeaderBlock& headers = m_receipt.headers;
    if (m_receipt.decoder && !m_receipt.decoder->isWhole()) {
        return false;
    }
    if (headers.isChunked || obtainInfo<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T) >= 0) {
        return true;  // libcurl has seen to it
    }
    const auto status = obtainInfo<long>(CURLINFO_RESPONSE_CODE);
    if (status < 200 || status == 204 || status == 304) {
        return true;
    }
    // A length that libcurl has passed over is beyond 64 bits. Without any, the body ends with its connection: TLS
    // tells whether the peer has ended it.
    return !headers.hasLength && (m_receipt.isTLSClosed || !isTLSURL(m_url));
}

CMRestResult CMRestConnections::classifyBreak() const {
    const bool isTunnelRefused = !isRequestBegun() && obtainInfo<long>(CURLINFO_HTTP_CONNECTCODE) != 0;
    return isTunnelRefused ? CMRestResult::Proxy : CMRestResult::BrokenConnection;
}

/// libcurl reports a header line that is too long for it like exhausted memory.
CMRestResult CMRestConnections::classifyExhaustion() const {
    if (!isRequestBegun()) {
        throw std::bad_alloc();
    }
    return CMRestResult::OversizedResponse;
}
