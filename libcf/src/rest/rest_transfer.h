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

/// The work and the data of libcurl's callbacks while an exchange runs. An exchange is sent once, and once more if its
/// kept-alive connection turns out to be dead.
///
/// libcurl 7.88 reuses a kept-alive connection even if unread bytes wait on it. A service may have sent them after its
/// last response: an error before it closes the connection, or a response to no request. They must not become the
/// response to the next request. So a connection is checked right before it is used, and data that arrives sooner than
/// a response can arrive is rejected.
///
/// Until May 2023 libcurl kept a pointer to the last header of a handle's previous response, which it had freed. A
/// first header line that begins with a blank continues that header, and libcurl crashed. So each header line up to the
/// first header is received as body too (CURLOPT_HEADER), which libcurl does before it stores the line.
class RestTransfer {
public:
    /// @param easy  the handle that calls back; borrowed
    void attach(CURL* easy) noexcept { m_easy = easy; }

    void beginExchange(const RestExchange& exchange) noexcept;
    /// @param body  what libcurl reads; empty if it has the whole body already
    void beginAttempt(const RestExchange& exchange, BodyReader body);
    /// Drops all references to the request.
    void end() noexcept;

    [[nodiscard]] RestReceipt& obtainReceipt() noexcept { return m_receipt; }
    [[nodiscard]] RestSockets& obtainSockets() noexcept { return m_sockets; }
    /// Why a callback has stopped the attempt; none if no callback has.
    [[nodiscard]] std::optional<CMRestResult> obtainStop() const noexcept { return m_stop; }
    [[nodiscard]] bool isConnectionReused() const noexcept { return m_isReused; }
    /// Whether the request was not sent exactly once: libcurl has sent it again, or a connection was given up.
    [[nodiscard]] bool isSentAgain() const noexcept { return m_sendings != 1; }
    /// Whether the request may be retried on a new connection because the one it was sent on was dead.
    [[nodiscard]] bool mayBeSentAgain(CMRestResult result) const noexcept;
    /// Rethrows an exception that a callback had to keep out of libcurl.
    void rethrow();
    /// Fills in what is known about the ending besides libcurl's own answers.
    void describe(RestEnding& ending) const noexcept;
    /// Must be called when an attempt has ended. Marks the connection if it received more than the response.
    void inspectConnection() noexcept;
    /// Keeps programs started by the host from inheriting the sockets that libcurl opened to resolve a name.
    void markResolverSockets();

    // Called by libcurl's callbacks. They return libcurl's value for "continue" or "stop".
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
    void setHeaderPreview(bool isWanted) noexcept;
    [[nodiscard]] bool isReplayable(RestClock::time_point now) const noexcept;
    [[nodiscard]] bool isTooEarly() const noexcept;
    const SSL* obtainTLS() const noexcept;

    CURL* m_easy = nullptr;
    RestSockets m_sockets;

    // State of the exchange.
    RestMethod m_method = RestMethod::Get;
    int m_sendings = 0;
    RestClock::time_point m_firstSending;

    // State of the attempt.
    RestReceipt m_receipt;
    RestTLSEvents m_tls;
    BodyReader m_body;
    std::optional<CMRestResult> m_stop;
    std::exception_ptr m_exception;
    int m_descriptor = -1;                 ///< the socket that the request is sent on
    const SSL* m_tlsConnection = nullptr;  ///< TLS on that socket; null: none
    bool m_isReused = false;
    bool m_isConnectionDead = false;
    bool m_isBodyRead = true;             ///< whether libcurl has read the whole body
    RestClock::time_point m_lastSending;  ///< shortly before the request's last byte was sent
    std::optional<RestInheritanceMark> m_resolverMark;
};

}  // namespace cf

#endif
