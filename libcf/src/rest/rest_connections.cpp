#include "rest/rest_connections.h"

#include <algorithm>
#include <new>
#include <utility>

#include "rest/rest_classify.h"
#include "rest/rest_signals.h"
#include "rest/rest_sockets.h"

namespace cf {

namespace {

using namespace std::chrono_literals;

/// The interval between calls of `cancelled`. A network event may nearly double the wait, so it is well under 100 ms.
constexpr auto kQuestionInterval = 40ms;
constexpr auto kLongestWait = 10s;

/// When an exchange must have ended.
RestClock::time_point obtainDeadline(RestClock::time_point start, std::chrono::milliseconds limit) {
    constexpr std::chrono::milliseconds kLongest = std::chrono::years(1);
    return limit.count() <= 0 ? RestClock::time_point::max() : start + std::min(limit, kLongest);
}

unsigned startCountingForks() {
    watchForks();
    return countForks();
}

}  // namespace

class RestConnections::Attachment {
public:
    explicit Attachment(const RestHandle& handle) : m_multi(handle.obtainMulti()), m_easy(handle.obtainEasy()) {
        if (curl_multi_add_handle(m_multi, m_easy) != CURLM_OK) {
            throw std::bad_alloc();
        }
    }
    ~Attachment() {
        if (m_isAttached) {
            const SigpipeGuard guard;
            detach();
        }
    }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

    /// Must be called with SIGPIPE blocked: libcurl may close the connection.
    void detach() noexcept {
        curl_multi_remove_handle(m_multi, m_easy);
        m_isAttached = false;
    }

private:
    CURLM* m_multi;
    CURL* m_easy;
    bool m_isAttached = true;
};

RestConnections::RestConnections() : m_forkCount(startCountingForks()) {}

RestConnections::~RestConnections() {
    if (isInherited()) {
        m_handle.obtainTransfer().obtainSockets().disown();
    }
}

bool RestConnections::isInherited() const noexcept {
    return m_forkCount != countForks();
}

void RestConnections::leaveInherited() {
    if (isInherited()) {
        m_handle.disown();
        m_forkCount = countForks();
    }
}

void RestConnections::useTLSSettings(RestTLSSettings settings) {
    leaveInherited();
    m_handle.useTLSSettings(std::move(settings));
}

RestOutcome RestConnections::run(const RestExchange& exchange) {
    const RestClock::time_point start = RestClock::now();
    m_deadline = obtainDeadline(start, exchange.settings.requestTimeout);
    RestTransfer& transfer = m_handle.obtainTransfer();
    leaveInherited();
    transfer.beginExchange(exchange);
    RestOutcome outcome = runOnce(exchange, {});
    if (transfer.mayBeSentAgain(outcome.result)) {
        const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(RestClock::now() - start);
        outcome = runOnce(exchange, {.passed = passed, .needsNewConnection = true});
    }
    if (outcome.result == CMRestResult::Success && !transfer.isSentAgain()) {
        m_handle.forgetRequest();
    } else {
        // libcurl counts its retries over the handle's whole life and gives up at the sixth.
        m_handle.reset();
    }
    return outcome;
}

RestOutcome RestConnections::runOnce(const RestExchange& exchange, const RestAttempt& attempt) {
    if (!m_handle.setRequest(exchange, attempt)) {
        return {.result = CMRestResult::Other};
    }
    const CMRestResult result = drive(exchange);
    m_handle.obtainTransfer().rethrow();
    return conclude(result);
}

CMRestResult RestConnections::drive(const RestExchange& exchange) {
    const std::function<bool()>& isCancelled = exchange.settings.cancelled;
    const auto longestWait = std::chrono::milliseconds(isCancelled ? kQuestionInterval : kLongestWait);
    RestClock::time_point nextQuestion =
        isCancelled ? RestClock::now() + kQuestionInterval : RestClock::time_point::max();
    Attachment attachment(m_handle);
    std::optional<SigpipeGuard> guard(std::in_place);
    std::optional<CMRestResult> result;
    while (!result) {
        result = advance(exchange.receiver != nullptr, longestWait);
        const bool isToldOf = exchange.receiver != nullptr && hasBodyToHandOver();
        const bool isAsked = isCancelled && !result && (isToldOf || RestClock::now() >= nextQuestion);
        if (!isToldOf && !isAsked) {
            continue;
        }
        // The host's functions are called outside libcurl and without the guard: they may throw, start a program, fork
        // or run another exchange.
        guard.reset();
        if (isToldOf) {
            (*exchange.receiver)(m_handle.obtainTransfer().obtainReceipt().obtainBody());
            m_handle.obtainTransfer().obtainReceipt().clearBody();
        }
        if (isAsked) {
            result = isCancelled() ? std::optional(CMRestResult::Cancelled) : std::nullopt;
            nextQuestion = RestClock::now() + kQuestionInterval;
        }
        guard.emplace();
        if (isInherited()) {
            // One of them called fork(), and this is the child process: the exchange belongs to the parent.
            m_handle.obtainTransfer().obtainSockets().disown();
            result = CMRestResult::BrokenConnection;
        }
    }
    attachment.detach();
    return *result;
}

/// Lets libcurl work, then waits for the network unless there are bytes for the receiver. Returns the result when the
/// exchange has ended.
std::optional<CMRestResult> RestConnections::advance(bool hasReceiver, std::chrono::milliseconds longestWait) {
    int runningTransfers = 0;
    const CURLMcode performed = curl_multi_perform(m_handle.obtainMulti(), &runningTransfers);
    m_handle.obtainTransfer().markResolverSockets();
    if (performed != CURLM_OK) {
        return CMRestResult::Other;
    }
    if (runningTransfers == 0) {
        return obtainResult();
    }
    if (hasReceiver && hasBodyToHandOver()) {
        return std::nullopt;
    }
    // When libcurl 7.88 sends a request again, it sets its own timer for the whole time limit anew. It notices that the
    // time is up whenever it is called.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_deadline - RestClock::now());
    const auto wait = static_cast<int>(std::clamp(left, std::chrono::milliseconds(1), longestWait).count());
    const bool isSound = curl_multi_poll(m_handle.obtainMulti(), nullptr, 0, wait, nullptr) == CURLM_OK;
    return isSound ? std::nullopt : std::optional(CMRestResult::Other);
}

CMRestResult RestConnections::obtainResult() {
    RestTransfer& transfer = m_handle.obtainTransfer();
    transfer.inspectConnection();
    int remaining = 0;
    const CURLMsg* const message = curl_multi_info_read(m_handle.obtainMulti(), &remaining);
    if (message == nullptr) {
        return CMRestResult::Other;
    }
    const std::optional<CMRestResult> stop = transfer.obtainStop();
    return stop ? *stop : classifyEnding(m_handle.describeEnding(message->data.result));
}

bool RestConnections::hasBodyToHandOver() {
    if (m_handle.obtainTransfer().obtainReceipt().obtainBody().empty()) {
        return false;
    }
    const auto status = m_handle.ask<long>(CURLINFO_RESPONSE_CODE);
    return status >= 200 && status <= 299;
}

RestOutcome RestConnections::conclude(CMRestResult result) {
    RestReceipt& receipt = m_handle.obtainTransfer().obtainReceipt();
    RestOutcome outcome{.result = result};
    outcome.body = std::exchange(receipt.obtainBody(), std::string());
    outcome.responseBytes = receipt.countBodyBytes();
    outcome.firstByte = receipt.obtainFirstByte();
    outcome.isConnectionReused = m_handle.obtainTransfer().isConnectionReused();
    outcome.status = static_cast<std::int32_t>(m_handle.ask<long>(CURLINFO_RESPONSE_CODE));
    const bool isInterim = outcome.status < 200;
    if (result != CMRestResult::Success && isInterim) {
        outcome.status = 0;
    }
    return outcome;
}

RestConnections::Lease::Lease(ICSHTTPPoolCenter* pool) : m_pool(pool) {
    if (m_pool != nullptr) {
        m_connections = std::move(m_pool->m_connections);
    }
    if (!m_connections) {
        m_connections = std::make_unique<RestConnections>();
    }
}

void RestConnections::Lease::giveBack() noexcept {
    if (m_pool != nullptr) {
        m_pool->m_connections = std::move(m_connections);
    }
}

}  // namespace cf
