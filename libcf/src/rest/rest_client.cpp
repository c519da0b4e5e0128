#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "cf/rest.h"
#include "rest/rest_connections.h"
#include "rest/rest_errors.h"
#include "rest/rest_headers.h"
#include "rest/rest_trust_store.h"
#include "rest/rest_url.h"

namespace {

using namespace cf;

/// The limit for the request's URL and headers together. libcurl's own limit is 1 MiB after percent-encoding, and it
/// reports that as exhausted memory.
constexpr std::size_t kMostHeadBytes = std::size_t{256} * 1024;

const char* obtainMethodName(RestMethod method) {
    switch (method) {
        case RestMethod::Get:
            return "GET";
        case RestMethod::Post:
            return "POST";
        case RestMethod::Delete:
            return "DELETE";
    }
    return "";
}

bool isSendable(const CMRestParams& headers) {
    return std::all_of(headers.begin(), headers.end(),
                       [](const auto& header) { return isSendableHeader(header.first, header.second); });
}

bool hasSendableHeaders(const RestExchange& exchange) {
    const CMRestSession* const session = exchange.session;
    const bool isSessionSendable =
        session == nullptr ||
        (isSendableHeaderValue(session->obtainAuthorizationHeaderValue()) && isSendable(session->obtainHeaderParams()));
    return isSessionSendable && isSendable(exchange.request.obtainHeaderParams()) &&
           isSendableHeaderValue(exchange.settings.userAgent);
}

std::size_t countBytes(const CMRestParams& headers) {
    std::size_t count = 0;
    for (const auto& [name, value] : headers) {
        count += name.size() + value.size() + std::string_view(": \r\n").size();
    }
    return count;
}

std::size_t countHeadBytes(const RestExchange& exchange) {
    std::size_t count =
        exchange.url.size() + exchange.settings.userAgent.size() + countBytes(exchange.request.obtainHeaderParams());
    if (exchange.session != nullptr) {
        count += exchange.session->obtainAuthorizationHeaderValue().size() +
                 countBytes(exchange.session->obtainHeaderParams());
    }
    return count;
}

/// Success if an exchange may begin, otherwise why not.
CMRestResult checkExchange(const RestExchange& exchange) {
    if (const CMRestResult result = checkURL(exchange.url); result != CMRestResult::Success) {
        return result;
    }
    if (!hasSendableHeaders(exchange)) {
        return CMRestResult::InvalidHeader;
    }
    if (countHeadBytes(exchange) > kMostHeadBytes) {
        return CMRestResult::OversizedRequest;
    }
    // libcurl puts parts of the proxy's URL into requests, so a line break in it could add headers.
    return isSendableHeaderValue(exchange.settings.proxyURL) ? CMRestResult::Success : CMRestResult::Proxy;
}

/// Whether an exchange may have failed because a certificate in the trust store was marked as unusable.
bool isTrustDoubtful(CMRestResult result) {
    return result == CMRestResult::UntrustedCertificate || result == CMRestResult::TLS;
}

bool isCancelled(const CMRestGlobalSettings& settings) {
    return settings.cancelled && settings.cancelled();
}

/// Runs an exchange that uses TLS.
RestOutcome runTLSExchange(RestConnections& connections, const RestExchange& exchange) {
    const CMRestGlobalSettings& settings = exchange.settings;
    if (!settings.verifyPeer) {
        connections.useTLSSettings({});
        return connections.run(exchange);
    }
    const TrustStore store = obtainTrustStore(settings.caBundleFile);
    if (!store) {
        return {.result = settings.caBundleFile.empty() ? CMRestResult::NoSystemTrustStore
                                                        : CMRestResult::UnreadableCABundle};
    }
    try {
        connections.useTLSSettings({store});
        RestOutcome outcome = connections.run(exchange);
        if (isTrustDoubtful(outcome.result)) {
            forgetTrustStore(store);
        }
        return outcome;
    } catch (const std::bad_alloc&) {
        forgetTrustStore(store);
        throw;
    }
}

RestOutcome runExchange(const RestExchange& exchange) {
    if (const CMRestResult refusal = checkExchange(exchange); refusal != CMRestResult::Success) {
        return {.result = refusal};
    }
    if (isCancelled(exchange.settings)) {
        return {.result = CMRestResult::Cancelled};
    }
    RestConnections::Lease connections(exchange.session == nullptr ? nullptr : exchange.session->obtainPoolCenter());
    const bool isTLS = isTLSURL(exchange.url) || isTLSURL(exchange.settings.proxyURL);
    RestOutcome outcome = isTLS ? runTLSExchange(*connections, exchange) : connections->run(exchange);
    connections.giveBack();
    return outcome;
}

std::int32_t toResultCode(const RestOutcome& outcome) {
    if (outcome.result != CMRestResult::Success) {
        return static_cast<std::int32_t>(outcome.result);
    }
    return outcome.status >= 200 && outcome.status <= 299 ? 0 : outcome.status;
}

void tellTrace(const RestExchange& exchange, const RestOutcome& outcome, RestClock::time_point start) {
    if (!exchange.settings.trace) {
        return;
    }
    CMRestTraceRecord record;
    record.method = obtainMethodName(exchange.method);
    record.url = redactURL(exchange.url);
    record.status = outcome.status;
    record.resultCode = toResultCode(outcome);
    record.requestBytes = exchange.body == nullptr ? 0 : cf::countBytes(*exchange.body);
    record.responseBytes = outcome.responseBytes;
    record.duration = std::chrono::duration_cast<std::chrono::microseconds>(RestClock::now() - start);
    if (outcome.firstByte) {
        // Rounded up: 0 means that no byte arrived.
        record.firstByte = std::chrono::ceil<std::chrono::microseconds>(*outcome.firstByte - start);
    }
    record.connectionReused = outcome.isConnectionReused;
    exchange.settings.trace(record);
}

/// Like tellTrace(), for an exchange that an exception ended. The caller gets that exception, so one thrown by `trace`
/// is dropped.
void tellTraceOfException(const RestExchange& exchange, RestClock::time_point start) noexcept {
    try {
        tellTrace(exchange, {.result = CMRestResult::Interrupted}, start);
    } catch (...) {
    }
}

class CMRestClient final : public ICSRestClient {
public:
    CMRestClient(const CMRestGlobalSettings& settings, CMRestSession* session)
        : m_settings(settings), m_session(session) {}

    std::int32_t runGet(const CMRestGetRequest& request, CMRestResourceResponse*& response) override {
        return run(RestMethod::Get, request, nullptr, nullptr, response);
    }
    std::int32_t runPost(const CMRestPostRequest& request, CMRestResourceResponse*& response) override {
        const CMRestBodyReceiver& receiver = request.obtainBodyReceiver();
        return run(RestMethod::Post, request, request.obtainBodyPieces(), receiver ? &receiver : nullptr, response);
    }
    std::int32_t runDelete(const CMRestDeleteRequest& request, CMRestResourceResponse*& response) override {
        return run(RestMethod::Delete, request, nullptr, nullptr, response);
    }

private:
    std::int32_t run(RestMethod method, const CMRestRequest& request, const std::vector<COJsonPiece>* body,
                     const CMRestBodyReceiver* receiver, CMRestResourceResponse*& response);

    CMRestGlobalSettings m_settings;
    CMRestSession* m_session;
};

std::int32_t CMRestClient::run(RestMethod method, const CMRestRequest& request, const std::vector<COJsonPiece>* body,
                               const CMRestBodyReceiver* receiver, CMRestResourceResponse*& response) {
    response = nullptr;
    const RestClock::time_point start = RestClock::now();
    std::string url = buildRequestURL(request.obtainURL(), request.obtainQueryParams());
    usePlainHTTP(url, m_settings.plainHTTPHosts);
    const RestExchange exchange{method, url, request, body, receiver, m_session, m_settings};
    RestOutcome outcome;
    std::unique_ptr<CMRestResourceResponse> arrived;
    try {
        outcome = runExchange(exchange);
        if (outcome.result == CMRestResult::Success) {
            arrived = std::make_unique<CMRestResourceResponse>(outcome.status, std::move(outcome.body));
        }
    } catch (...) {
        tellTraceOfException(exchange, start);
        throw;
    }
    tellTrace(exchange, outcome, start);
    response = arrived.release();
    return toResultCode(outcome);
}

class CMRestService final : public ICSRestService {
public:
    ICSRestClient* createRestClient(ICSAppFactory* /*factory*/, const CMRestGlobalSettings& settings,
                                    CMRestSession* session) override {
        return new CMRestClient(settings, session);
    }
};

class CMErrorTextService final : public ICSErrorTextService {
public:
    CMErrorRecord describe(std::int32_t resultCode) override { return {resultCode, describeRestResult(resultCode)}; }
};

class CMAppFactory final : public ICSAppFactory {
public:
    ICSRestService* obtainRestService() override { return &m_restService; }
    ICSErrorTextService* obtainErrorTextService() override { return &m_errorTextService; }

private:
    CMRestService m_restService;
    CMErrorTextService m_errorTextService;
};

}  // namespace

ICSRestClient::~ICSRestClient() = default;

ICSRestService::~ICSRestService() = default;

ICSErrorTextService::~ICSErrorTextService() = default;

ICSAppFactory::~ICSAppFactory() = default;

ICSAppFactory* CF::obtainAppFactory() {
    // Never destroyed: the destructors of a host's static objects may still use it.
    static auto* const factory = new CMAppFactory;
    return factory;
}
