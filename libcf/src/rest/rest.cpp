#include "cf/rest.h"

#include "rest/rest_connections.h"

ICSHTTPPoolCenter::ICSHTTPPoolCenter() = default;

ICSHTTPPoolCenter::~ICSHTTPPoolCenter() = default;

ICSHTTPPoolCenter* cfCreateHTTPPoolCenter() {
    return new ICSHTTPPoolCenter;
}

std::string cfObtainDefaultUserAgent() {
    return "libcf/" CF_VERSION;
}

CMRestSession::CMRestSession() = default;

CMRestSession::~CMRestSession() = default;

void CMRestSession::setAuthorizationHeaderValue(std::string value) {
    m_authorizationHeaderValue = std::move(value);
}

void CMRestSession::addHeaderParam(std::string name, std::string value) {
    m_headerParams.emplace_back(std::move(name), std::move(value));
}

void CMRestSession::setPoolCenter(ICSHTTPPoolCenter* poolCenter) noexcept {
    m_poolCenter = poolCenter;
}

const std::string& CMRestSession::obtainAuthorizationHeaderValue() const noexcept {
    return m_authorizationHeaderValue;
}

const CMRestParams& CMRestSession::obtainHeaderParams() const noexcept {
    return m_headerParams;
}

ICSHTTPPoolCenter* CMRestSession::obtainPoolCenter() const noexcept {
    return m_poolCenter;
}

CMRestResourceResponse::CMRestResourceResponse(std::int32_t status, std::string body)
    : m_status(status), m_body(std::move(body)) {}

CMRestResourceResponse::~CMRestResourceResponse() = default;

std::int32_t CMRestResourceResponse::obtainStatus() const noexcept {
    return m_status;
}

COJson* CMRestResourceResponse::getJson() {
    if (!m_isJsonRead) {
        auto json = std::make_unique<COJson>(COJson::readInPlace(m_body));
        if (json->getIsValidJson()) {
            m_json = std::move(json);
        }
        m_isJsonRead = true;
    }
    return m_json.get();
}

bool CMRestResourceResponse::readJson(COJson& document) {
    return document.rereadInPlace(m_body);
}

const std::string& CMRestResourceResponse::getBufferString() const noexcept {
    return m_body;
}
