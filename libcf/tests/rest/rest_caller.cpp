#include "rest/rest_caller.h"

#include <curl/curl.h>

std::string describeRestCode(std::int32_t code) {
    return CF::obtainAppFactory()->obtainErrorTextService()->describe(code).message;
}

RestCaller::RestCaller() : pool(cfCreateHTTPPoolCenter()) {
    session.setPoolCenter(pool.get());
}

template <typename Request, typename Run>
RestResult RestCaller::run(const Request& request, Run runRequest) {
    ICSAppFactory* const factory = CF::obtainAppFactory();
    const std::unique_ptr<ICSRestClient> client(
        factory->obtainRestService()->createRestClient(factory, settings, &session));
    CMRestResourceResponse* response = nullptr;
    RestResult result;
    result.code = (client.get()->*runRequest)(request, response);
    result.response.reset(response);
    result.text = describeRestCode(result.code);
    return result;
}

RestResult RestCaller::get(const std::string& url, const CMRestParams& queryParams, const CMRestParams& headers) {
    CMRestGetRequest request;
    request.setURL(url);
    request.addQueryParams(queryParams);
    request.addHeaderParams(headers);
    return run(request, &ICSRestClient::runGet);
}

RestResult RestCaller::post(const std::string& url, const ICOJsonValue* body, const CMRestParams& queryParams,
                            const CMRestParams& headers) {
    CMRestPostRequest request;
    request.setURL(url);
    request.updateJson(body);
    request.addQueryParams(queryParams);
    request.addHeaderParams(headers);
    return run(request, &ICSRestClient::runPost);
}

RestResult RestCaller::post(const std::string& url, const std::string& text) {
    const RestTextBody body(text);
    return post(url, &body);
}

RestResult RestCaller::post(const CMRestPostRequest& request) {
    return run(request, &ICSRestClient::runPost);
}

RestResult RestCaller::remove(const std::string& url) {
    CMRestDeleteRequest request;
    request.setURL(url);
    return run(request, &ICSRestClient::runDelete);
}

void RestCaller::recordTrace() {
    settings.trace = [this](const CMRestTraceRecord& record) { records.push_back(record); };
}

bool rejectsTransferCodings() {
    constexpr unsigned int kRejecting = 0x080E00;
    return curl_version_info(CURLVERSION_NOW)->version_num >= kRejecting;
}
