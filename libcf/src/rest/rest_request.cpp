#include <iterator>

#include "cf/rest.h"

namespace {

void appendParams(CMRestParams& target, CMRestParams params) {
    if (target.empty()) {
        target = std::move(params);
    } else {
        target.insert(target.end(), std::make_move_iterator(params.begin()), std::make_move_iterator(params.end()));
    }
}

}  // namespace

CMRestRequest::CMRestRequest() = default;

CMRestRequest::~CMRestRequest() = default;

void CMRestRequest::setURL(std::string url) {
    m_url = std::move(url);
}

void CMRestRequest::addHeaderParams(CMRestParams params) {
    appendParams(m_headerParams, std::move(params));
}

const std::string& CMRestRequest::obtainURL() const noexcept {
    return m_url;
}

const CMRestParams& CMRestRequest::obtainQueryParams() const noexcept {
    return m_queryParams;
}

const CMRestParams& CMRestRequest::obtainHeaderParams() const noexcept {
    return m_headerParams;
}

CMRestGetRequest::CMRestGetRequest() = default;

CMRestGetRequest::~CMRestGetRequest() = default;

void CMRestGetRequest::addQueryParams(CMRestParams params) {
    appendParams(m_queryParams, std::move(params));
}

CMRestPostRequest::CMRestPostRequest() = default;

CMRestPostRequest::~CMRestPostRequest() = default;

void CMRestPostRequest::addQueryParams(CMRestParams params) {
    appendParams(m_queryParams, std::move(params));
}

void CMRestPostRequest::updateJson(const ICOJsonValue* body) {
    m_hasBody = false;
    m_body.clear();
    if (body == nullptr) {
        return;
    }
    m_body = body->obtainJsonPieces();
    m_hasBody = true;
}

void CMRestPostRequest::setBodyReceiver(CMRestBodyReceiver receiver) {
    m_bodyReceiver = std::move(receiver);
}

const std::vector<COJsonPiece>* CMRestPostRequest::obtainBodyPieces() const noexcept {
    return m_hasBody ? &m_body : nullptr;
}

const CMRestBodyReceiver& CMRestPostRequest::obtainBodyReceiver() const noexcept {
    return m_bodyReceiver;
}

CMRestDeleteRequest::CMRestDeleteRequest() = default;

CMRestDeleteRequest::~CMRestDeleteRequest() = default;
