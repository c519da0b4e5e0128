#include "kai_http.h"

#include <memory>

#include "cf/utilities.h"

namespace {

// libcf's requests carry a mark of their creator; this is the library's.
constexpr std::uint32_t kRequestMark = 2062955722;

// Never destroyed: a host may still use an assistant while its static objects are.
CMRestGlobalSettings& obtainGlobalSettings() {
    static auto* const settings = new CMRestGlobalSettings;
    return *settings;
}

// Made when the library is loaded, not in the first request.
[[maybe_unused]] const CMRestGlobalSettings& s_settingsOfLoadTime = obtainGlobalSettings();

template <class Request>
using RunOperation = std::int32_t (ICSRestClient::*)(const Request&, CMRestResourceResponse*&);

template <class Request>
void addParams(Request& request, const HTTP::Params& queryParams, const HTTP::Params& headerParams) {
    if (!queryParams.empty()) {
        request.addQueryParams(queryParams);
    }
    if (!headerParams.empty()) {
        request.addHeaderParams(headerParams);
    }
}

template <class Request>
HTTP::Result runRequest(CMRestSession* session, const Request& request, RunOperation<Request> run) {
    ICSAppFactory* factory = CF::obtainAppFactory();
    const std::unique_ptr<ICSRestClient> client(
        factory->obtainRestService()->createRestClient(factory, obtainGlobalSettings(), session));
    CMRestResourceResponse* response = nullptr;
    const std::int32_t resultCode = (client.get()->*run)(request, response);
    if (resultCode == 0) {
        return {response, {}};
    }
    std::unique_ptr<CMRestResourceResponse> guard(response);
    std::string message = factory->obtainErrorTextService()->describe(resultCode).message;
    return {guard.release(), std::move(message)};
}

}  // namespace

void HTTP::setGlobalSettings(const CMRestGlobalSettings& settings) {
    obtainGlobalSettings() = settings;
}

HTTP::Result HTTP::Get(CMRestSession* session, const std::string& url, const Params& queryParams,
                       const Params& headerParams) {
    CMRestGetRequest request;
    request.m_requestMark = kRequestMark;
    request.setURL(url);
    addParams(request, queryParams, headerParams);
    return runRequest(session, request, &ICSRestClient::runGet);
}

HTTP::Result HTTP::Post(CMRestSession* session, const std::string& url, ICOJsonValue* body, const Params& queryParams,
                        const Params& headerParams, CMRestBodyReceiver receiver) {
    CMRestPostRequest request;
    request.m_requestMark = kRequestMark;
    request.setURL(url);
    if (body != nullptr) {
        request.updateJson(body);
    }
    request.setBodyReceiver(std::move(receiver));
    addParams(request, queryParams, headerParams);
    return runRequest(session, request, &ICSRestClient::runPost);
}

HTTP::Result HTTP::Delete(CMRestSession* session, const std::string& url) {
    CMRestDeleteRequest request;
    request.m_requestMark = kRequestMark;
    request.setURL(url);
    return runRequest(session, request, &ICSRestClient::runDelete);
}

std::optional<std::string> findErrorMessage(CMRestResourceResponse* response) {
    const COJson* json = response != nullptr ? response->getJson() : nullptr;
    if (json == nullptr) {
        return std::nullopt;
    }
    const COJsonValue message = json->obtainMember("error").obtainMember("message");
    if (!message.isString()) {
        return std::nullopt;
    }
    return std::string(message.obtainString());
}

std::string readErrorBody(CMRestResourceResponse* response) {
    if (std::optional<std::string> message = findErrorMessage(response)) {
        return *std::move(message);
    }
    return response != nullptr ? response->getBufferString() : std::string();
}
