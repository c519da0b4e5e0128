#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "cf/rest.h"
#include "rest/rest_connections.h"
#include "rest/rest_errors.h"
#include "rest/rest_headers.h"
#include "rest/rest_url.h"

namespace {

using Clock = std::chrono::steady_clock;

const char* obtainMethodName(CMRestMethod method) {
    switch (method) {
        case CMRestMethod::Get:
            return "GET";
        case CMRestMethod::Post:
            return "POST";
        case CMRestMethod::Delete:
            return "DELETE";
    }
    return "";
}

bool isSendable(const CMRestParams& headers) {
    return std::all_of(headers.begin(), headers.end(),
                       [](const auto& header) { return isSendableHeader(header.first, header.second); });
}

bool hasSendableHeaders(const CMRestExchange& exchange) {
    const CMRestSession* const session = exchange.session;
    const bool isSessionSendable =
        session == nullptr ||
        (isSendableHeaderValue(session->obtainAuthorizationHeaderValue()) && isSendable(session->obtainHeaderParams()));
    return isSessionSendable && isSendable(exchange.request.obtainHeaderParams()) &&
           isSendableHeaderValue(exchange.settings.userAgent);
}

/// Why an exchange must not begin.
CMRestResult checkExchange(const CMRestExchange& exchange) {
    if (!isRequestableURL(exchange.url)) {
        return CMRestResult::InvalidURL;
    }
    if (!hasSendableHeaders(exchange)) {
        return CMRestResult::InvalidHeader;
    }
    // The proxy's URL is no header, but it too must not smuggle anything into what is sent.
    return isSendableHeaderValue(exchange.settings.proxyURL) ? CMRestResult::Success : CMRestResult::Proxy;
}

bool isCancelled(const CMRestGlobalSettings& settings) {
    return settings.cancelled && settings.cancelled();
}

/// Applies the TLS settings; says why it cannot.
CMRestResult prepareTLS(CMRestConnections& connections, const CMRestGlobalSettings& settings) {
    CMRestTLSSettings tlsSettings;
    if (settings.verifyPeer) {
        tlsSettings.trustStore = obtainTrustStore(settings.caBundleFile);
        if (!tlsSettings.trustStore) {
            return settings.caBundleFile.empty() ? CMRestResult::NoSystemTrustStore : CMRestResult::UnreadableCABundle;
        }
    }
    connections.useTLSSettings(std::move(tlsSettings));
    return CMRestResult::Success;
}

CMRestOutcome runExchange(const CMRestExchange& exchange) {
    if (const CMRestResult refusal = checkExchange(exchange); refusal != CMRestResult::Success) {
        return {.failure = refusal};
    }
    if (isCancelled(exchange.settings)) {
        return {.failure = CMRestResult::Cancelled};
    }
    CMRestConnections::Lease connections(exchange.session == nullptr ? nullptr : exchange.session->obtainPoolCenter());
    CMRestOutcome outcome;
    if (isTLSURL(exchange.url) || isTLSURL(exchange.settings.proxyURL)) {
        outcome.failure = prepareTLS(*connections, exchange.settings);
    }
    if (outcome.failure == CMRestResult::Success) {
        outcome = connections->run(exchange);
    }
    connections.giveBack();
    return outcome;
}

std::int32_t toResultCode(const CMRestOutcome& outcome) {
    if (outcome.failure != CMRestResult::Success) {
        return static_cast<std::int32_t>(outcome.failure);
    }
    return outcome.status >= 200 && outcome.status <= 299 ? 0 : outcome.status;
}

void tellTrace(const CMRestExchange& exchange, const CMRestOutcome& outcome, Clock::time_point start) {
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
    record.duration = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
    if (outcome.firstByte) {
        // Rounded up: 0 means that no byte came.
        record.firstByte = std::chrono::ceil<std::chrono::microseconds>(*outcome.firstByte - start);
    }
    record.connectionReused = outcome.isConnectionReused;
    exchange.settings.trace(record);
}

/// As tellTrace, while an exception is on its way: that one passes through, not one of the trace.
void tellTraceOfException(const CMRestExchange& exchange, Clock::time_point start) noexcept {
    try {
        tellTrace(exchange, {.failure = CMRestResult::Interrupted}, start);
    } catch (...) {
    }
}

class CMRestClient final : public ICSRestClient {
public:
    CMRestClient(const CMRestGlobalSettings& settings, CMRestSession* session)
        : m_settings(settings), m_session(session) {}

    std::int32_t runGet(const CMRestGetRequest& request, CMRestResourceResponse*& response) override {
        return run(CMRestMethod::Get, request, nullptr, nullptr, response);
    }
    std::int32_t runPost(const CMRestPostRequest& request, CMRestResourceResponse*& response) override {
        const CMRestBodyReceiver& receiver = request.obtainBodyReceiver();
        return run(CMRestMethod::Post, request, request.obtainBodyPieces(), receiver ? &receiver : nullptr, response);
    }
    std::int32_t runDelete(const CMRestDeleteRequest& request, CMRestResourceResponse*& response) override {
        return run(CMRestMethod::Delete, request, nullptr, nullptr, response);
    }

private:
    std::int32_t run(CMRestMethod method, const CMRestRequest& request, const std::vector<COJsonPiece>* body,
                     const CMRestBodyReceiver* receiver, CMRestResourceResponse*& response);

    CMRestGlobalSettings m_settings;
    CMRestSession* m_session;
};

std::int32_t CMRestClient::run(CMRestMethod method, const CMRestRequest& request, const std::vector<COJsonPiece>* body,
                               const CMRestBodyReceiver* receiver, CMRestResourceResponse*& response) {
    response = nullptr;
    const Clock::time_point start = Clock::now();
    std::string url = buildRequestURL(request.obtainURL(), request.obtainQueryParams());
    usePlainHTTP(url, m_settings.plainHTTPHosts);
    const CMRestExchange exchange{method, url, request, body, receiver, m_session, m_settings};
    CMRestOutcome outcome;
    std::unique_ptr<CMRestResourceResponse> arrived;
    try {
        outcome = runExchange(exchange);
        if (outcome.failure == CMRestResult::Success) {
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
    // Never destroyed: a host may still use it while its static objects are.
    static auto* const factory = new CMAppFactory;
    return factory;
}
