#include <openssl/ssl.h>

#include "rest/rest_connections.h"
#include "rest/rest_url.h"

// What is done to TLS connections beside libcurl: our own trusted certificates, and what is learnt of their end.

void CMRestConnections::setTLSOptions() {
    const bool isChecked = m_tlsSettings.trustStore != nullptr;
    setOption(CURLOPT_SSL_VERIFYPEER, isChecked ? 1L : 0L);
    setOption(CURLOPT_SSL_VERIFYHOST, isChecked ? 2L : 0L);
    setOption(CURLOPT_PROXY_SSL_VERIFYPEER, isChecked ? 1L : 0L);
    setOption(CURLOPT_PROXY_SSL_VERIFYHOST, isChecked ? 2L : 0L);
    setOption(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    setOption(CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    // The trusted certificates come from our own store, so libcurl must not read any.
    for (const CURLoption place : {CURLOPT_CAINFO, CURLOPT_CAPATH, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH}) {
        setOption(place, static_cast<const char*>(nullptr));
    }
    setOption(CURLOPT_SSL_CTX_FUNCTION, &CMRestConnections::prepareTLS);
    setOption(CURLOPT_SSL_CTX_DATA, static_cast<void*>(this));
}

CURLcode CMRestConnections::prepareTLS(CURL* /*handle*/, void* tlsContext, void* self) noexcept {
    auto* const context = static_cast<SSL_CTX*>(tlsContext);
    // libcurl writes the connection's keys to the file that SSLKEYLOGFILE names.
    SSL_CTX_set_keylog_callback(context, nullptr);
    SSL_CTX_set_app_data(context, self);
    SSL_CTX_set_info_callback(context, &CMRestConnections::watchTLS);
    // The store for verification, not the context's general one: libcurl may set that one later.
    X509_STORE* const store = static_cast<CMRestConnections*>(self)->m_tlsSettings.trustStore.get();
    const bool isSet = store == nullptr || SSL_CTX_set1_verify_cert_store(context, store) == 1;
    return isSet ? CURLE_OK : CURLE_SSL_CERTPROBLEM;
}

void CMRestConnections::watchTLS(const SSL* connection, int event, int value) noexcept {
    auto* const self = static_cast<CMRestConnections*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
    constexpr int kAlertMask = 0xFF;
    if (event == SSL_CB_READ_ALERT && (value & kAlertMask) == SSL_AD_CLOSE_NOTIFY) {
        self->m_receipt.isTLSClosed = true;
    }
    if (event == SSL_CB_WRITE_ALERT) {
        // libcurl keeps the result only of some failures.
        self->m_receipt.verification = SSL_get_verify_result(connection);
    }
}

CMRestResult CMRestConnections::classifyTLS(CURLcode code) const {
    if (isTLSURL(m_proxyURL) && obtainInfo<long>(CURLINFO_PROXY_SSL_VERIFYRESULT) != X509_V_OK) {
        return CMRestResult::Proxy;
    }
    if (m_tlsSettings.trustStore == nullptr) {
        return CMRestResult::TLS;
    }
    switch (m_receipt.verification) {
        case X509_V_OK:
            // The chain is sound; the host name is checked by libcurl itself.
            return code == CURLE_PEER_FAILED_VERIFICATION ? CMRestResult::WrongHostCertificate : CMRestResult::TLS;
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
