#include <openssl/x509_vfy.h>

#include <new>

#include "rest_connections.h"
#include "rest_url.h"

// What libcurl's result of an exchange means for a person.

CMRestFailure CMRestConnections::classifyVerification() const {
    if (isTLSURL(m_proxyURL) && obtainInfo<long>(CURLINFO_PROXY_SSL_VERIFYRESULT) != X509_V_OK) {
        return CMRestFailure::Proxy;
    }
    switch (obtainInfo<long>(CURLINFO_SSL_VERIFYRESULT)) {
        case X509_V_OK:
        case X509_V_ERR_UNSPECIFIED:
            // The chain was sound, and libcurl, which checks the host name itself, had not noted a result yet.
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return CMRestFailure::WrongHostCertificate;
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return CMRestFailure::OutdatedCertificate;
        default:
            return CMRestFailure::UntrustedCertificate;
    }
}

CMRestFailure CMRestConnections::classify(CURLcode code) const {
    if (m_receipt.failure != CMRestFailure::None) {
        return m_receipt.failure;
    }
    switch (code) {
        case CURLE_OK:
            return CMRestFailure::None;
        case CURLE_URL_MALFORMAT:
            return CMRestFailure::InvalidURL;
        case CURLE_COULDNT_RESOLVE_HOST:
            return CMRestFailure::UnresolvedHost;
        case CURLE_COULDNT_CONNECT:
            return m_proxyURL.empty() ? CMRestFailure::NoConnection : CMRestFailure::Proxy;
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_PROXY:
            return CMRestFailure::Proxy;
        case CURLE_OPERATION_TIMEDOUT:
            return isRequestBegun() ? CMRestFailure::RequestTimeout : CMRestFailure::ConnectTimeout;
        case CURLE_PEER_FAILED_VERIFICATION:
            return classifyVerification();
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
            return CMRestFailure::TLS;
        case CURLE_PARTIAL_FILE:
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
            return classifyBreak();
        case CURLE_UNSUPPORTED_PROTOCOL:  // an answer without a status line
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_BAD_CONTENT_ENCODING:
            return CMRestFailure::MalformedResponse;
        case CURLE_OUT_OF_MEMORY:
            return classifyExhaustion();
        default:
            return CMRestFailure::Other;
    }
}

CMRestFailure CMRestConnections::classifyBreak() const {
    const bool isTunnelRefused = !isRequestBegun() && obtainInfo<long>(CURLINFO_HTTP_CONNECTCODE) != 0;
    return isTunnelRefused ? CMRestFailure::Proxy : CMRestFailure::BrokenConnection;
}

/// libcurl reports a header line that is too long for it like exhausted memory.
CMRestFailure CMRestConnections::classifyExhaustion() const {
    if (!isRequestBegun()) {
        throw std::bad_alloc();
    }
    return CMRestFailure::OversizedResponse;
}
