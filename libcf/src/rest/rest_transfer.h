#ifndef CF_SRC_REST_TRANSFER_H
#define CF_SRC_REST_TRANSFER_H

#include <curl/curl.h>
#include <openssl/types.h>

#include <exception>
#include <optional>
#include <string_view>

#include "rest/rest_body.h"
#include "rest/rest_classify.h"
#include "rest/rest_exchange.h"
#include "rest/rest_receipt.h"
#include "rest/rest_sockets.h"

namespace cf {

/// What libcurl's callbacks do and gather while an exchange runs. An exchange is sent once, and once more where its
/// kept-alive connection turned out to be dead.
///
/// libcurl 7.88 uses a kept-alive connection again also when bytes wait on it. A service may have sent them after its
/// last response: an error before it closes the connection, or a response to nothing. They must not become the response
/// of the next request, so a connection is looked at right before it is used, and what comes sooner than a response can
/// come is not taken for one.
class RestTransfer {
public:
    /// @param easy  for questions in callbacks; borrowed
    void attach(CURL* easy) noexcept { m_easy = easy; }

    void beginExchange(const RestExchange& exchange) noexcept;
    /// @param body  what libcurl reads; empty where it has all of the body already
    void beginAttempt(const RestExchange& exchange, BodyReader body);
    /// Drops what it refers to.
    void end() noexcept;

    [[nodiscard]] RestReceipt& obtainReceipt() noexcept { return m_receipt; }
    [[nodiscard]] RestSockets& obtainSockets() noexcept { return m_sockets; }
    /// Why a callback has stopped the attempt.
    [[nodiscard]] std::optional<CMRestResult> obtainStop() const noexcept { return m_stop; }
    [[nodiscard]] bool isConnectionReused() const noexcept { return m_isReused; }
    /// Whether libcurl has sent the request more than once, or a connection was given up.
    [[nodiscard]] bool isSentAgain() const noexcept { return m_sendings != 1; }
    /// Whether the request may be sent on a new connection, since the one that it was given to was dead.
    [[nodiscard]] bool mayBeSentAgain(CMRestResult result) const noexcept;
    /// Throws what a callback could not let pass through libcurl.
    void rethrow();
    /// What is known at the end beside libcurl's own answers.
    void describe(RestEnding& ending) const noexcept;
    /// To be called when an attempt has ended: marks a connection on which more came than the response.
    void inspectConnection() noexcept;
    /// Marks what libcurl opened by itself to resolve a name.
    void markResolverSockets();

    // What libcurl's callbacks call. They return libcurl's value for "go on" or "stop".
    std::size_t receiveHeader(std::string_view line) noexcept;
    std::size_t receiveBody(char* bytes, std::size_t size) noexcept;
    std::size_t sendBody(char* target, std::size_t capacity) noexcept;
    int seekBody(curl_off_t offset) noexcept;
    int permitSending(int localPort) noexcept;
    int startResolving() noexcept;
    int openSocket(int family, int type, int protocol) noexcept;
    void watchTLS(const SSL* connection, int event, int value) noexcept;
    void watchRecord(std::string_view header) noexcept;

private:
    template <typename Value>
    Value ask(CURLINFO info) const noexcept {
        Value value{};
        curl_easy_getinfo(m_easy, info, &value);
        return value;
    }
    void stop(CMRestResult result) noexcept { m_stop = result; }
    void giveUpConnection() noexcept;
    [[nodiscard]] bool isReplayable(RestClock::time_point now) const noexcept;
    [[nodiscard]] bool isTooEarly() const noexcept;
    const SSL* obtainTLS() const noexcept;

    CURL* m_easy = nullptr;
    RestSockets m_sockets;

    // Of the exchange.
    RestMethod m_method = RestMethod::Get;
    int m_sendings = 0;
    RestClock::time_point m_firstSending;

    // Of the attempt.
    RestReceipt m_receipt;
    RestTLSEvents m_tls;
    BodyReader m_body;
    std::optional<CMRestResult> m_stop;
    std::exception_ptr m_exception;
    int m_descriptor = -1;                 ///< the socket that the request was given to
    const SSL* m_tlsConnection = nullptr;  ///< TLS on that socket; null: none
    bool m_isReused = false;
    bool m_isConnectionDead = false;
    bool m_isBodyRead = true;             ///< whether libcurl has been given all of the body
    RestClock::time_point m_lastSending;  ///< before the request's last byte was sent
    std::optional<RestInheritanceMark> m_resolverMark;
};

}  // namespace cf

#endif
