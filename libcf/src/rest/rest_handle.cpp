#include "rest/rest_handle.h"

#include <new>
#include <utility>

#include "rest/rest_signals.h"
#include "rest/rest_sockets.h"
#include "rest/rest_url.h"

namespace cf {

namespace {

void initializeCurl() {
    // Never cleaned up: other libraries may use libcurl too. After a failure the next call tries again.
    [[maybe_unused]] static const bool isInitialized = [] {
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
            throw std::bad_alloc();
        }
        return true;
    }();
}

}  // namespace

RestHandle::RestHandle() {
    initializeCurl();
    open();
}

RestHandle::~RestHandle() {
    close();
}

void RestHandle::open() {
    const RestInheritanceMark mark;
    m_multi.reset(curl_multi_init());
    m_easy.reset(curl_easy_init());
    if (!m_multi || !m_easy) {
        throw std::bad_alloc();
    }
    mark.markNewSockets();
    m_transfer.attach(m_easy.get());
    reset();
}

void RestHandle::close() noexcept {
    const SigpipeGuard guard;
    m_easy.reset();
    m_multi.reset();
}

void RestHandle::reopen() {
    close();
    open();
}

void RestHandle::disown() {
    m_transfer.obtainSockets().disown();
    reopen();
}

void RestHandle::useTLSSettings(RestTLSSettings settings) {
    if (m_hasTLSSettings && m_tlsSettings == settings) {
        return;
    }
    const bool isChanged = std::exchange(m_hasTLSSettings, true);
    m_tlsSettings = std::move(settings);
    if (isChanged) {
        // The handle is replaced too: it caches TLS sessions, and resuming one skips the certificate check.
        reopen();
    } else {
        setTLSOptions();
    }
}

RestEnding RestHandle::describeEnding(CURLcode code) const {
    RestEnding ending{.code = code};
    ending.status = ask<long>(CURLINFO_RESPONSE_CODE);
    ending.proxyStatus = ask<long>(CURLINFO_HTTP_CONNECTCODE);
    ending.contentLength = ask<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    ending.isRequestBegun = ask<curl_off_t>(CURLINFO_PRETRANSFER_TIME_T) > 0;
    ending.hasProxy = !m_proxyURL.empty();
    ending.isProxyTLS = isTLSURL(m_proxyURL);
    ending.proxyVerification = ask<long>(CURLINFO_PROXY_SSL_VERIFYRESULT);
    ending.isTLS = isTLSURL(m_url);
    ending.isChecked = m_tlsSettings.trustStore != nullptr;
    m_transfer.describe(ending);
    return ending;
}

}  // namespace cf
