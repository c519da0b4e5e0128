#include <openssl/ssl.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <new>
#include <string_view>

#include "rest/rest_handle.h"
#include "text/characters.h"

// The options of a curl handle: those that are set once, and those of an exchange.

namespace cf {

namespace {

/// Bodies up to this size are joined into one buffer, because libcurl then sends headers and body in one write. A
/// longer body is read from its pieces.
constexpr std::size_t kMostJoined = std::size_t{16} * 1024;

constexpr std::string_view kContentType = "Content-Type";

/// A time limit for libcurl.
/// @param passed     the part of the limit that has passed already
/// @param unlimited  libcurl's value for "no limit", returned if `limit` is 0 or less
long toCurlTimeout(std::chrono::milliseconds limit, std::chrono::milliseconds passed, long unlimited) {
    using Count = std::chrono::milliseconds::rep;
    constexpr Count kLongest = INT_MAX;
    if (limit.count() <= 0) {
        return unlimited;
    }
    return static_cast<long>(std::max(Count{1}, std::min(limit.count(), kLongest) - passed.count()));
}

void addParams(RestHeaderList& headers, const CMRestParams& params, bool hasJSONBody) {
    for (const auto& [name, value] : params) {
        // A JSON body sets its own content type.
        if (!hasJSONBody || !isEqualIgnoringCase(name, kContentType)) {
            headers.addHeader(name, value);
        }
    }
}

// libcurl's callbacks.

RestTransfer& toTransfer(void* self) noexcept {
    return *static_cast<RestTransfer*>(self);
}

std::size_t receiveHeader(char* data, std::size_t unit, std::size_t size, void* self) noexcept {
    return toTransfer(self).receiveHeader({data, unit * size});
}

std::size_t receiveBody(char* data, std::size_t unit, std::size_t size, void* self) noexcept {
    return toTransfer(self).receiveBody(data, unit * size);
}

std::size_t sendBody(char* target, std::size_t unit, std::size_t count, void* self) noexcept {
    return toTransfer(self).sendBody(target, unit * count);
}

int seekBody(void* self, curl_off_t offset, int origin) noexcept {
    return origin == SEEK_SET ? toTransfer(self).seekBody(offset) : CURL_SEEKFUNC_CANTSEEK;
}

int permitSending(void* self, char* /*remoteAddress*/, char* /*localAddress*/, int /*remotePort*/,
                  int localPort) noexcept {
    return toTransfer(self).permitSending(localPort);
}

int startResolving(void* /*resolver*/, void* /*reserved*/, void* self) noexcept {
    return toTransfer(self).startResolving();
}

curl_socket_t openSocket(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept {
    return toTransfer(self).openSocket(address->family, address->socktype, address->protocol);
}

int closeSocket(void* self, curl_socket_t descriptor) noexcept {
    toTransfer(self).obtainSockets().close(descriptor);
    return 0;
}

// OpenSSL's callbacks.

void watchTLS(const SSL* connection, int event, int value) noexcept {
    toTransfer(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection))).watchTLS(connection, event, value);
}

void watchRecord(int isWritten, int /*version*/, int type, const void* data, std::size_t size, SSL* /*connection*/,
                 void* self) noexcept {
    if (isWritten == 0 && type == SSL3_RT_HEADER) {
        toTransfer(self).watchRecord({static_cast<const char*>(data), size});
    }
}

}  // namespace

void RestHandle::check(CURLcode result) {
    if (result == CURLE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    if (result != CURLE_OK) {
        m_optionError = result;
    }
}

void RestHandle::setText(CURLoption option, std::string& held, const std::string& wanted) {
    if (held != wanted) {
        set(option, wanted.c_str());
        held = wanted;
    }
}

void RestHandle::reset() {
    curl_easy_reset(m_easy.get());
    m_url.clear();
    m_userAgent.clear();
    m_proxyURL.clear();
    m_hasMethodName = false;
    m_hasNewConnection = false;
    m_optionError = CURLE_OK;
    m_transfer.end();
    setConstantOptions();
    setCallbacks();
    if (m_hasTLSSettings) {
        setTLSOptions();
    }
}

void RestHandle::setConstantOptions() {
    set(CURLOPT_NOSIGNAL, 1L);
    // A cancelled exchange does not wait for a running name resolution.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    set(CURLOPT_ACCEPT_ENCODING, "gzip");
    // RestReceipt decompresses, transfer codings included, because libcurl accepts truncated compressed data.
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    // Empty, not unset: otherwise libcurl reads environment variables.
    set(CURLOPT_PROXY, "");
    set(CURLOPT_NOPROXY, "");
}

void RestHandle::setCallbacks() {
    auto* const self = static_cast<void*>(&m_transfer);
    set(CURLOPT_HEADERFUNCTION, &receiveHeader);
    set(CURLOPT_HEADERDATA, self);
    set(CURLOPT_WRITEFUNCTION, &receiveBody);
    set(CURLOPT_WRITEDATA, self);
    set(CURLOPT_READFUNCTION, &sendBody);
    set(CURLOPT_READDATA, self);
    // libcurl rewinds the body when it sends a request again on a new connection.
    set(CURLOPT_SEEKFUNCTION, &seekBody);
    set(CURLOPT_SEEKDATA, self);
    set(CURLOPT_PREREQFUNCTION, &permitSending);
    set(CURLOPT_PREREQDATA, self);
    set(CURLOPT_RESOLVER_START_FUNCTION, &startResolving);
    set(CURLOPT_RESOLVER_START_DATA, self);
    set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
    set(CURLOPT_OPENSOCKETDATA, self);
    set(CURLOPT_CLOSESOCKETFUNCTION, &closeSocket);
    set(CURLOPT_CLOSESOCKETDATA, self);
}

void RestHandle::setTLSOptions() {
    const bool isChecked = m_tlsSettings.trustStore != nullptr;
    set(CURLOPT_SSL_VERIFYPEER, isChecked ? 1L : 0L);
    set(CURLOPT_SSL_VERIFYHOST, isChecked ? 2L : 0L);
    set(CURLOPT_PROXY_SSL_VERIFYPEER, isChecked ? 1L : 0L);
    set(CURLOPT_PROXY_SSL_VERIFYHOST, isChecked ? 2L : 0L);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    // The trusted certificates come from our own store, so libcurl must not read any.
    for (const CURLoption place : {CURLOPT_CAINFO, CURLOPT_CAPATH, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH}) {
        set(place, static_cast<const char*>(nullptr));
    }
    set(CURLOPT_SSL_CTX_FUNCTION, &RestHandle::prepareTLS);
    set(CURLOPT_SSL_CTX_DATA, static_cast<void*>(this));
}

CURLcode RestHandle::prepareTLS(CURL* /*easy*/, void* tlsContext, void* self) noexcept {
    auto& handle = *static_cast<RestHandle*>(self);
    auto* const context = static_cast<SSL_CTX*>(tlsContext);
    // Otherwise libcurl writes the connection's keys to the file that SSLKEYLOGFILE names.
    SSL_CTX_set_keylog_callback(context, nullptr);
    if (SSL_CTX_set_app_data(context, &handle.m_transfer) != 1) {
        return CURLE_OUT_OF_MEMORY;
    }
    SSL_CTX_set_info_callback(context, &watchTLS);
    SSL_CTX_set_msg_callback(context, &watchRecord);
    SSL_CTX_set_msg_callback_arg(context, &handle.m_transfer);
    // The verification store, not the context's general store: libcurl may set that one later.
    X509_STORE* const store = handle.m_tlsSettings.trustStore.get();
    const bool isSet = store == nullptr || SSL_CTX_set1_verify_cert_store(context, store) == 1;
    return isSet ? CURLE_OK : CURLE_SSL_CERTPROBLEM;
}

bool RestHandle::setRequest(const RestExchange& exchange, const RestAttempt& attempt) {
    const CMRestGlobalSettings& settings = exchange.settings;
    setText(CURLOPT_URL, m_url, exchange.url);
    setText(CURLOPT_USERAGENT, m_userAgent, settings.userAgent);
    setText(CURLOPT_PROXY, m_proxyURL, settings.proxyURL);
    // Here 0 would mean libcurl's default limit, not "no limit".
    set(CURLOPT_CONNECTTIMEOUT_MS, toCurlTimeout(settings.connectTimeout, std::chrono::milliseconds{0}, INT_MAX));
    set(CURLOPT_TIMEOUT_MS, toCurlTimeout(settings.requestTimeout, attempt.passed, 0));
    if (attempt.needsNewConnection != m_hasNewConnection) {
        set(CURLOPT_FRESH_CONNECT, attempt.needsNewConnection ? 1L : 0L);
        m_hasNewConnection = attempt.needsNewConnection;
    }
    setMethod(exchange);
    setHeaders(exchange);
    return m_optionError == CURLE_OK;
}

void RestHandle::setMethod(const RestExchange& exchange) {
    BodyReader body;
    if (exchange.method == RestMethod::Post) {
        body = setBody(exchange.body);
    } else {
        set(CURLOPT_HTTPGET, 1L);
    }
    m_transfer.beginAttempt(exchange, body);
    const bool needsMethodName = exchange.method == RestMethod::Delete;
    if (needsMethodName != m_hasMethodName) {
        set(CURLOPT_CUSTOMREQUEST, needsMethodName ? "DELETE" : static_cast<const char*>(nullptr));
        m_hasMethodName = needsMethodName;
    }
}

/// @return what libcurl reads while it sends; empty if it gets the whole body now
BodyReader RestHandle::setBody(const std::vector<COJsonPiece>* pieces) {
    const std::size_t size = pieces == nullptr ? 0 : countBytes(*pieces);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    BodyReader body = pieces == nullptr ? BodyReader() : BodyReader(*pieces);
    if (size > kMostJoined) {
        // With a null pointer libcurl asks for the body.
        set(CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
        return body;
    }
    m_shortBody.resize(size);
    body.read(m_shortBody.data(), size);
    set(CURLOPT_POSTFIELDS, m_shortBody.c_str());
    return {};
}

void RestHandle::setHeaders(const RestExchange& exchange) {
    const bool hasBody = exchange.body != nullptr;
    m_headers.clear();
    if (exchange.session != nullptr) {
        if (const std::string& value = exchange.session->obtainAuthorizationHeaderValue(); !value.empty()) {
            m_headers.addHeader("Authorization", value);
        }
        addParams(m_headers, exchange.session->obtainHeaderParams(), hasBody);
    }
    addParams(m_headers, exchange.request.obtainHeaderParams(), hasBody);
    if (hasBody) {
        m_headers.addHeader(kContentType, "application/json");
        // Before a long body, libcurl would send "Expect: 100-continue" and wait a second if the server does not answer
        // it.
        m_headers.suppressHeader("Expect");
    } else if (exchange.method == RestMethod::Post) {
        m_headers.suppressHeader(kContentType);
    }
    set(CURLOPT_HTTPHEADER, m_headers.obtainList());
}

void RestHandle::forgetRequest() {
    set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
    m_transfer.end();
}

}  // namespace cf
