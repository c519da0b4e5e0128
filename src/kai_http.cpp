#include "kai_http.h"

#include <memory>

#include "cf/utilities.h"

namespace {

// The label of requests that this library creates.
constexpr std::uint32_t kRequestMark = 2062955722;

// Not destroyed with the other static objects: the destructors of a host's static objects may still use an assistant.
union SettingsStorage {
    SettingsStorage() : settings() {}
    ~SettingsStorage() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
    CMRestGlobalSettings settings;
};

CMRestGlobalSettings& changeGlobalSettings() {
    static SettingsStorage storage;
    return storage.settings;
}

// Creates the settings when the library is loaded, not in the first request.
[[maybe_unused]] const CMRestGlobalSettings& s_settingsOfLoadTime = changeGlobalSettings();

bool s_isProcessEnding = false;

struct EndOfProcess {
    ~EndOfProcess() { s_isProcessEnding = true; }
};

// Runs when the library is unloaded, and then destroys the host's functions with all that they own. Also runs at the
// end of the process, after the destructors of the program's static objects, which may still use an assistant. The
// functions are then left alone, because what they refer to may be destroyed already.
[[gnu::destructor]] void releaseSettings() {
    if (!s_isProcessEnding) {
        changeGlobalSettings().~CMRestGlobalSettings();
    }
}

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
        factory->obtainRestService()->createRestClient(factory, HTTP::obtainGlobalSettings(), session));
    CMRestResourceResponse* response = nullptr;
    const std::int32_t resultCode = (client.get()->*run)(request, response);
    if (resultCode == 0) {
        return {response, {}};
    }
    std::unique_ptr<CMRestResourceResponse> guard(response);
    std::string message = HTTP::describeResult(resultCode);
    return {guard.release(), std::move(message)};
}

}  // namespace

void HTTP::setGlobalSettings(const CMRestGlobalSettings& settings) {
    changeGlobalSettings() = settings;
    // Created here and not when the library is loaded. So it is destroyed before releaseSettings() runs when the
    // process ends, and after it when the library is unloaded.
    static const EndOfProcess endOfProcess;
}

const CMRestGlobalSettings& HTTP::obtainGlobalSettings() noexcept {
    return changeGlobalSettings();
}

std::string HTTP::describeResult(std::int32_t resultCode) {
    return CF::obtainAppFactory()->obtainErrorTextService()->describe(resultCode).message;
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

namespace kai {

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

std::string chooseErrorText(std::string serviceText, std::string transportText) {
    return serviceText.empty() ? std::move(transportText) : std::move(serviceText);
}

bool isPathSegment(std::string_view id) noexcept {
    return id != "." && id != "..";
}

std::string encodePathSegment(std::string_view id) {
    constexpr std::string_view kUnreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string segment;
    segment.reserve(id.size());
    for (const char character : id) {
        if (kUnreserved.find(character) != std::string_view::npos) {
            segment += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            segment += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return segment;
}

}  // namespace kai
