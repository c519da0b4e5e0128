#include <climits>
#include <new>
#include <string_view>

#include "rest/rest_connections.h"
#include "text/characters.h"

// How the curl handle is set up: once when it is made, and for each exchange. A reset keeps its connections.

namespace {

/// Bodies up to this size are joined before they are sent.
constexpr std::size_t kMostJoined = std::size_t{16} * 1024;

constexpr std::string_view kContentType = "Content-Type";

/// A time limit as libcurl takes it, with its own value for "no limit" (also given for a negative one).
long toCurlTimeout(std::chrono::milliseconds limit, long unlimited) {
    constexpr std::chrono::milliseconds::rep kLongest = INT_MAX;
    return limit.count() <= 0 ? unlimited : static_cast<long>(std::min(limit.count(), kLongest));
}

void addParams(CMRestHeaderList& headers, const CMRestParams& params, bool hasJSONBody) {
    for (const auto& [name, value] : params) {
        // A JSON body has one content type, its own.
        if (!hasJSONBody || !cf::isEqualIgnoringCase(name, kContentType)) {
            headers.addHeader(name, value);
        }
    }
}

}  // namespace

void CMRestConnections::checkOption(CURLcode result) {
    if (result == CURLE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    if (result != CURLE_OK) {
        m_optionError = result;
    }
}

void CMRestConnections::setText(CURLoption option, std::string& held, const std::string& wanted) {
    if (held != wanted) {
        setOption(option, wanted.c_str());
        held = wanted;
    }
}

void CMRestConnections::resetOptions() {
    curl_easy_reset(m_easy.get());
    m_url.clear();
    m_userAgent.clear();
    m_proxyURL.clear();
    m_hasMethodName = false;
    m_optionError = CURLE_OK;
    setConstantOptions();
    if (m_hasTLSSettings) {
        setTLSOptions();
    }
}

void CMRestConnections::setConstantOptions() {
    setOption(CURLOPT_NOSIGNAL, 1L);
    // A cancelled exchange does not wait for a name that is still being resolved.
    setOption(CURLOPT_QUICK_EXIT, 1L);
    setOption(CURLOPT_PROTOCOLS_STR, "http,https");
    setOption(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    setOption(CURLOPT_PATH_AS_IS, 1L);
    setOption(CURLOPT_TCP_KEEPALIVE, 1L);
    setOption(CURLOPT_ACCEPT_ENCODING, "gzip");
    // Decompressed by ourselves, transfer codings included: libcurl takes compressed data that was cut for whole.
    setOption(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    // Empty, not unset: unset, libcurl would read environment variables.
    setOption(CURLOPT_PROXY, "");
    setOption(CURLOPT_NOPROXY, "");
    setOption(CURLOPT_HEADERFUNCTION, &CMRestConnections::receiveHeader);
    setOption(CURLOPT_HEADERDATA, static_cast<void*>(this));
    setOption(CURLOPT_WRITEFUNCTION, &CMRestConnections::receiveBody);
    setOption(CURLOPT_WRITEDATA, static_cast<void*>(this));
    setOption(CURLOPT_READFUNCTION, &CMRestConnections::sendBody);
    setOption(CURLOPT_READDATA, static_cast<void*>(this));
    // A request that is sent again on a new connection begins at the body's first byte.
    setOption(CURLOPT_SEEKFUNCTION, &CMRestConnections::seekBody);
    setOption(CURLOPT_SEEKDATA, static_cast<void*>(this));
    setOption(CURLOPT_PREREQFUNCTION, &CMRestConnections::permitSending);
    setOption(CURLOPT_PREREQDATA, static_cast<void*>(this));
}

void CMRestConnections::setRequest(const CMRestExchange& exchange) {
    const CMRestGlobalSettings& settings = exchange.settings;
    setText(CURLOPT_URL, m_url, exchange.url);
    setText(CURLOPT_USERAGENT, m_userAgent, settings.userAgent);
    setText(CURLOPT_PROXY, m_proxyURL, settings.proxyURL);
    // 0 would be libcurl's own limit here, not none.
    setOption(CURLOPT_CONNECTTIMEOUT_MS, toCurlTimeout(settings.connectTimeout, INT_MAX));
    setOption(CURLOPT_TIMEOUT_MS, toCurlTimeout(settings.requestTimeout, 0));
    if (exchange.method == CMRestMethod::Post) {
        setBody(exchange.body);
    } else {
        setOption(CURLOPT_HTTPGET, 1L);
    }
    const bool needsMethodName = exchange.method == CMRestMethod::Delete;
    if (needsMethodName != m_hasMethodName) {
        setOption(CURLOPT_CUSTOMREQUEST, needsMethodName ? "DELETE" : static_cast<const char*>(nullptr));
        m_hasMethodName = needsMethodName;
    }
    setHeaders(exchange);
}

void CMRestConnections::setBody(const std::vector<COJsonPiece>* pieces) {
    const std::size_t size = pieces == nullptr ? 0 : cf::countBytes(*pieces);
    setOption(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    m_bodyReader = pieces == nullptr ? cf::BodyReader() : cf::BodyReader(*pieces);
    if (size <= kMostJoined) {
        // libcurl then sends head and body in one write.
        m_shortBody.resize(size);
        m_bodyReader.read(m_shortBody.data(), size);
        setOption(CURLOPT_POSTFIELDS, m_shortBody.c_str());
    } else {
        // With a null pointer libcurl asks for the body.
        setOption(CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    }
}

void CMRestConnections::setHeaders(const CMRestExchange& exchange) {
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
        // libcurl asks for leave to send a long body and waits a second where the server does not answer that.
        m_headers.suppressHeader("Expect");
    } else if (exchange.method == CMRestMethod::Post) {
        m_headers.suppressHeader(kContentType);
    }
    setOption(CURLOPT_HTTPHEADER, m_headers.obtainList());
}

void CMRestConnections::forgetRequest() {
    setOption(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
    m_bodyReader = cf::BodyReader();
}
