#include "kai_service_openai.h"

#include "cf/utilities.h"
#include "kai_localization.h"

namespace {

std::string buildURL(const std::string& host, const KAIService_OPENAI::Path& path) {
    std::vector<std::string> parts{"https://" + host, "v1"};
    for (const std::string& segment : path) {
        parts.push_back(kai::encodePathSegment(segment));
    }
    return cfConcatURL(parts);
}

KAIServiceAnswer takeResult(HTTP::Result result, std::string_view suffix) {
    KAIServiceAnswer answer{std::unique_ptr<CMRestResourceResponse>(result.first), std::move(result.second)};
    if (!answer.errorText.empty()) {
        answer.errorText = kai::chooseErrorText(readErrorBody(answer.response.get()), std::move(answer.errorText));
    } else if (!suffix.empty() && answer.findJson() == nullptr) {
        answer.errorText = localizeString("Invalid response").append(suffix);
    }
    return answer;
}

}  // namespace

const COJson* KAIServiceAnswer::findJson() const {
    return response ? response->getJson() : nullptr;
}

COJsonValue KAIServiceAnswer::obtainMember(std::string_view key) const {
    const COJson* json = findJson();
    return json != nullptr ? json->obtainMember(key) : COJsonValue();
}

KAIServiceAnswer KAIService_OPENAI::get(const std::string& host, const Path& path, const HTTP::Params& queryParams,
                                        std::string_view suffix) {
    return takeResult(HTTP::Get(&m_restSession, buildURL(host, path), queryParams, {}), suffix);
}

KAIServiceAnswer KAIService_OPENAI::post(const std::string& host, const Path& path, ICOJsonValue* body,
                                         std::string_view suffix) {
    return takeResult(HTTP::Post(&m_restSession, buildURL(host, path), body, {}, {}), suffix);
}

std::pair<std::string, std::string> KAIService_OPENAI::postForID(const std::string& host, const Path& path,
                                                                 ICOJsonValue* body, std::string_view suffix) {
    KAIServiceAnswer answer = post(host, path, body, suffix);
    if (!answer.errorText.empty()) {
        return {std::string(), std::move(answer.errorText)};
    }
    const COJsonValue id = answer.obtainMember("id");
    if (!id.isString() || !kai::isPathSegment(id.obtainString())) {
        return {{}, localizeString("Unsupported data format").append(suffix)};
    }
    return {std::string(id.obtainString()), {}};
}

std::string KAIService_OPENAI::deleteResource(const std::string& host, const Path& path) {
    return takeResult(HTTP::Delete(&m_restSession, buildURL(host, path)), {}).errorText;
}
