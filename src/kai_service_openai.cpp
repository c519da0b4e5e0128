#include "kai_service_openai.h"

#include "cf/utilities.h"
#include "kai_host_callback.h"

namespace kai {

namespace {

std::string buildURL(const std::string& host, const OpenAIService::Path& path) {
    std::vector<std::string> parts{"https://" + host, "v1"};
    for (const std::string& segment : path) {
        parts.push_back(encodePathSegment(segment));
    }
    return cfConcatURL(parts);
}

ServiceAnswer takeResult(HTTP::Result result, std::string_view suffix) {
    ServiceAnswer answer{std::unique_ptr<CMRestResourceResponse>(result.first), std::move(result.second)};
    if (!answer.errorText.empty()) {
        answer.errorText = chooseErrorText(readErrorBody(answer.response.get()), std::move(answer.errorText));
    } else if (!suffix.empty() && answer.findJson() == nullptr) {
        answer.errorText = localizeString("Invalid response").append(suffix);
    }
    return answer;
}

}  // namespace

const COJson* ServiceAnswer::findJson() const {
    return response ? response->getJson() : nullptr;
}

COJsonValue ServiceAnswer::obtainMember(std::string_view key) const {
    const COJson* json = findJson();
    return json != nullptr ? json->obtainMember(key) : COJsonValue();
}

ServiceAnswer OpenAIService::get(const std::string& host, const Path& path, const HTTP::Params& queryParams,
                                 std::string_view suffix) {
    return takeResult(HTTP::Get(&m_restSession, buildURL(host, path), queryParams, {}), suffix);
}

ServiceAnswer OpenAIService::post(const std::string& host, const Path& path, ICOJsonValue* body,
                                  std::string_view suffix) {
    return takeResult(HTTP::Post(&m_restSession, buildURL(host, path), body, {}, {}), suffix);
}

std::pair<std::string, std::string> OpenAIService::postForID(const std::string& host, const Path& path,
                                                             ICOJsonValue* body, std::string_view suffix) {
    ServiceAnswer answer = post(host, path, body, suffix);
    if (!answer.errorText.empty()) {
        return {std::string(), std::move(answer.errorText)};
    }
    const COJsonValue id = answer.obtainMember("id");
    if (!id.isString() || !isPathSegment(id.obtainString())) {
        return {{}, localizeString("Unsupported data format").append(suffix)};
    }
    return {std::string(id.obtainString()), {}};
}

std::string OpenAIService::deleteResource(const std::string& host, const Path& path) {
    return takeResult(HTTP::Delete(&m_restSession, buildURL(host, path)), {}).errorText;
}

}  // namespace kai
