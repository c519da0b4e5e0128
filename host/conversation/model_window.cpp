#include "conversation/model_window.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "cf/json.h"
#include "cf/rest.h"

namespace host {
namespace {

/// The services' names for it: OpenRouter, Together and Ollama, Groq, Mistral, vLLM, Gemini (2026-11-21).
constexpr std::array<std::string_view, 5> kWindowMembers{"context_length", "context_window", "max_context_length",
                                                         "max_model_len", "inputTokenLimit"};

/// More than any model accepts; a larger number is ignored.
constexpr std::int64_t kMaxWindow = 1'000'000'000;

bool isSameModel(std::string_view listed, std::string_view model, const ModelDetails& details) {
    if (listed == model) {
        return true;
    }
    if (listed.starts_with(details.namePrefix)) {
        listed.remove_prefix(details.namePrefix.size());
    }
    if (listed.ends_with(details.nameSuffix)) {
        listed.remove_suffix(details.nameSuffix.size());
    }
    return listed == model;
}

std::size_t readWindow(const COJsonValue& model) {
    for (const std::string_view member : kWindowMembers) {
        const COJsonValue value = model.obtainMember(member);
        if (value.isNumber() && value.obtainInteger() > 0 && value.obtainInteger() < kMaxWindow) {
            return static_cast<std::size_t>(value.obtainInteger());
        }
    }
    return 0;
}

std::size_t findWindow(const COJson& list, const ModelDetails& details, std::string_view model) {
    for (const COJsonValue entry : list.obtainMember(details.list).obtainItems()) {
        if (isSameModel(entry.obtainMember(details.name).obtainString(), model, details)) {
            return readWindow(entry);
        }
    }
    return 0;
}

}  // namespace

std::size_t askModelWindow(const Provider& provider, const ApiKey& key, const std::string& apiHost,
                           const std::string& model, ExchangeWatch& watch) {
    const ModelDetails& details = provider.modelDetails;
    if (details.path.empty()) {
        return 0;
    }
    const ExchangeWatch::Request scope(watch, ExchangeWatch::Cancelling::AtOnce);
    CMRestSession session;
    CMRestGetRequest request;
    request.setURL(std::string(details.scheme) + "://" + apiHost + std::string(details.path));
    if (details.keyParameter.empty()) {
        session.setAuthorizationHeaderValue(key.obtainText().empty() ? "" : "Bearer " + key.obtainText());
    } else {
        request.addQueryParams({{std::string(details.keyParameter), key.obtainText()}, {"pageSize", "1000"}});
    }
    ICSAppFactory* factory = CF::obtainAppFactory();
    const std::unique_ptr<ICSRestClient> client(
        factory->obtainRestService()->createRestClient(factory, watch.obtainSettings(), &session));
    CMRestResourceResponse* response = nullptr;
    const std::int32_t result = client->runGet(request, response);
    const std::unique_ptr<CMRestResourceResponse> owner(response);
    const COJson* list = result == 0 && response != nullptr ? response->getJson() : nullptr;
    return list != nullptr ? findWindow(*list, details, model) : 0;
}

}  // namespace host
