#ifndef CF_SRC_REST_CONNECTIONS_H
#define CF_SRC_REST_CONNECTIONS_H

#include <curl/curl.h>
#include <openssl/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cf/rest.h"
#include "rest/rest_body.h"
#include "rest/rest_decoder.h"
#include "rest/rest_errors.h"
#include "rest/rest_headers.h"
#include "rest/rest_trust_store.h"

enum class CMRestMethod { Get, Post, Delete };

/// One exchange as it is asked for. All of it is borrowed while the exchange runs, and has been checked before.
struct CMRestExchange {
    CMRestMethod method;
    const std::string& url;                ///< whole, with the query parameters
    const CMRestRequest& request;          ///< for its headers
    const std::vector<COJsonPiece>* body;  ///< null: no body
    const CMRestBodyReceiver* receiver;    ///< null: the response keeps its body
    const CMRestSession* session;          ///< null: no credential and no session headers
    const CMRestGlobalSettings& settings;
};

/// How an exchange ended.
struct CMRestOutcome {
    CMRestResult failure = CMRestResult::Success;
    std::int32_t status = 0;        ///< 0: none came
    std::string body{};             ///< what came of the body and was kept; whole when there is no failure
    std::size_t responseBytes = 0;  ///< what came of the body, kept or not
    std::optional<std::chrono::steady_clock::time_point> firstByte{};  ///< when the body began to come
    bool isConnectionReused = false;  ///< whether a connection of an earlier exchange carried it
};

/// The TLS settings that a connection depends on. No store means that certificates are not checked.
struct CMRestTLSSettings {
    CMTrustStore trustStore;

    bool operator==(const CMRestTLSSettings&) const = default;
};

/// A curl handle with all that belongs to it: the connections it keeps, the lists and buffers of the running exchange.
///
/// Exchanges run one after another on one thread. An exception out of run() may leave the handle half set up: destroy
/// the object then.
class CMRestConnections {
public:
    /// The connections of a pool (new ones when it is null or has none), out of the pool while they are held here: an
    /// exchange that a callback of a running one begins finds none and makes its own.
    class Lease;

    CMRestConnections();
    ~CMRestConnections();
    CMRestConnections(const CMRestConnections&) = delete;
    CMRestConnections& operator=(const CMRestConnections&) = delete;

    /// To be called before an exchange that speaks TLS. What was connected under other settings is closed.
    void useTLSSettings(CMRestTLSSettings settings);

    /// Runs an exchange to its end, asking `cancelled` while it lasts, not at once. Throws what `cancelled` and
    /// allocation throw.
    CMRestOutcome run(const CMRestExchange& exchange);

private:
    using Clock = std::chrono::steady_clock;

    struct EasyDeleter {
        void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
    };
    struct MultiDeleter {
        void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
    };

    /// Ties the handle to its connections for the time of one exchange.
    class Attachment;

    /// The block of header lines that came last: an interim response's, a proxy's answer to CONNECT or the response's.
    struct HeaderBlock {
        bool isFinal = false;    ///< whether its status is a response's: not an interim one, not the proxy's
        bool isWhole = false;    ///< whether the blank line that ends it has come
        bool isChunked = false;  ///< whether it says that the body comes in chunks
        bool hasLength = false;  ///< whether it says how long the body is
        CMRestCoding coding = CMRestCoding::None;
    };

    /// What libcurl's callbacks gather in one exchange.
    struct Receipt {
        CMRestMethod method = CMRestMethod::Get;
        std::size_t bodyLimit = 0;
        std::string body;           ///< what came of it and was not handed over
        std::size_t bodyBytes = 0;  ///< what came of it
        std::optional<Clock::time_point> firstByte;
        std::unique_ptr<CMRestDecoder> decoder;  ///< null until the first bytes of a compressed body
        std::size_t headerBytes = 0;
        HeaderBlock headers;
        bool isTLSClosed = false;  ///< whether the peer has closed TLS in order
        long verification = 0;     ///< OpenSSL's result for the certificate that was refused
        int sendings = 0;          ///< how often the request was sent
        Clock::time_point firstSending;
        CMRestResult failure = CMRestResult::Success;  ///< why a callback stopped the exchange
        std::exception_ptr exception;                  ///< an exception that must not pass through libcurl
    };

    void open();
    void close() noexcept;

    // The handle's options.
    template <typename Value>
    void setOption(CURLoption option, Value value) {
        checkOption(curl_easy_setopt(m_easy.get(), option, value));
    }
    void checkOption(CURLcode result);
    void setText(CURLoption option, std::string& held, const std::string& wanted);
    void resetOptions();
    void setConstantOptions();
    void setTLSOptions();
    void setRequest(const CMRestExchange& exchange);
    void setBody(const std::vector<COJsonPiece>* pieces);
    void setHeaders(const CMRestExchange& exchange);
    void forgetRequest();

    // The exchange.
    CMRestResult drive(const CMRestExchange& exchange);
    /// Lets libcurl work, and waits for the network unless there is something to do at once. Gives the result at the
    /// end of the exchange.
    std::optional<CMRestResult> advance(bool hasReceiver, std::chrono::milliseconds longestWait);
    bool isBodyToBeHandedOver() const;
    CMRestResult obtainResult();
    CMRestResult classify(CURLcode code) const;
    CMRestResult classifyTLS(CURLcode code) const;
    CMRestResult classifyEnd() const;
    CMRestResult classifyBreak() const;
    CMRestResult classifyExhaustion() const;
    CMRestOutcome conclude(CMRestResult failure);
    template <typename Value>
    Value obtainInfo(CURLINFO info) const {
        Value value{};
        curl_easy_getinfo(m_easy.get(), info, &value);
        return value;
    }
    bool isRequestBegun() const;
    /// Whether the body came to the end that its headers announce, or to one that the peer has announced otherwise.
    bool isBodyWhole() const;
    void makeRoom(std::size_t size);
    bool keepBody(std::string_view bytes);
    bool keepDecoded(char* bytes, std::size_t size);
    void readHeaderLine(std::string_view line) noexcept;

    // libcurl's callbacks; they throw nothing.
    static std::size_t receiveHeader(char* data, std::size_t unit, std::size_t size, void* self) noexcept;
    static std::size_t receiveBody(char* data, std::size_t unit, std::size_t size, void* self) noexcept;
    static std::size_t sendBody(char* target, std::size_t unit, std::size_t count, void* self) noexcept;
    static int seekBody(void* self, curl_off_t offset, int origin) noexcept;
    static int permitSending(void* self, char* remoteAddress, char* localAddress, int remotePort,
                             int localPort) noexcept;
    static void watchTLS(const SSL* connection, int event, int value) noexcept;
    static CURLcode prepareTLS(CURL* handle, void* tlsContext, void* self) noexcept;

    std::unique_ptr<CURLM, MultiDeleter> m_multi;
    std::unique_ptr<CURL, EasyDeleter> m_easy;
    bool m_hasTLSSettings = false;
    CMRestTLSSettings m_tlsSettings;
    CURLcode m_optionError = CURLE_OK;
    // What the handle holds, so that an option is set only when it changes.
    std::string m_url;
    std::string m_userAgent;
    std::string m_proxyURL;
    bool m_hasMethodName = false;
    CMRestHeaderList m_headers;
    cf::BodyReader m_bodyReader;
    std::string m_shortBody;
    Receipt m_receipt;
};

class CMRestConnections::Lease {
public:
    explicit Lease(ICSHTTPPoolCenter* pool);
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    CMRestConnections& operator*() const noexcept { return *m_connections; }
    CMRestConnections* operator->() const noexcept { return m_connections.get(); }

    /// Gives the connections to the pool, where there is one. Without it they are closed.
    void giveBack() noexcept;

private:
    ICSHTTPPoolCenter* m_pool;
    std::unique_ptr<CMRestConnections> m_connections;
};

#endif
