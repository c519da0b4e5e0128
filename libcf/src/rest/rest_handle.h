#ifndef CF_SRC_REST_HANDLE_H
#define CF_SRC_REST_HANDLE_H

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "rest/rest_body.h"
#include "rest/rest_exchange.h"
#include "rest/rest_headers.h"
#include "rest/rest_transfer.h"
#include "rest/rest_trust_store.h"

namespace cf {

/// The TLS settings that a connection depends on. No store means that certificates are not checked.
struct RestTLSSettings {
    TrustStore trustStore;

    bool operator==(const RestTLSSettings&) const = default;
};

/// How one attempt of an exchange is sent.
struct RestAttempt {
    std::chrono::milliseconds passed{0};  ///< since the exchange began
    bool needsNewConnection = false;
};

/// A curl handle that runs one exchange after another, with its connections and its options. Most options never change;
/// those that are texts are set only if they differ from what the handle holds.
class RestHandle {
public:
    /// Throws std::bad_alloc.
    RestHandle();
    ~RestHandle();
    RestHandle(const RestHandle&) = delete;
    RestHandle& operator=(const RestHandle&) = delete;

    /// Must be called before an exchange that uses TLS. Closes connections that were made with other settings.
    void useTLSSettings(RestTLSSettings settings);
    /// Closes all connections and makes new curl handles.
    void reopen();
    /// The same, without the peers noticing that connections are closed.
    void disown();

    /// Prepares an exchange. False if libcurl rejects an option.
    [[nodiscard]] bool setRequest(const RestExchange& exchange, const RestAttempt& attempt);
    /// Drops all references to the request.
    void forgetRequest();
    /// Resets all options and keeps the connections.
    void reset();

    /// What is known about the exchange that has ended with `code`.
    [[nodiscard]] RestEnding describeEnding(CURLcode code) const;
    template <typename Value>
    [[nodiscard]] Value ask(CURLINFO info) const {
        Value value{};
        curl_easy_getinfo(m_easy.get(), info, &value);
        return value;
    }

    [[nodiscard]] CURLM* obtainMulti() const noexcept { return m_multi.get(); }
    [[nodiscard]] CURL* obtainEasy() const noexcept { return m_easy.get(); }
    [[nodiscard]] RestTransfer& obtainTransfer() noexcept { return m_transfer; }

private:
    struct EasyDeleter {
        void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
    };
    struct MultiDeleter {
        void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
    };

    void open();
    void close() noexcept;

    template <typename Value>
    void set(CURLoption option, Value value) {
        check(curl_easy_setopt(m_easy.get(), option, value));
    }
    void check(CURLcode result);
    void setText(CURLoption option, std::string& held, const std::string& wanted);
    void setConstantOptions();
    void setCallbacks();
    void setTLSOptions();
    void setMethod(const RestExchange& exchange);
    BodyReader setBody(const std::vector<COJsonPiece>* pieces);
    void setHeaders(const RestExchange& exchange);
    static CURLcode prepareTLS(CURL* easy, void* tlsContext, void* self) noexcept;

    RestTransfer m_transfer;  // outlives the handles: they call it while they are closed
    std::unique_ptr<CURLM, MultiDeleter> m_multi;
    std::unique_ptr<CURL, EasyDeleter> m_easy;
    bool m_hasTLSSettings = false;
    RestTLSSettings m_tlsSettings;
    CURLcode m_optionError = CURLE_OK;
    // What the handle holds, so that an option is set only when it changes.
    std::string m_url;
    std::string m_userAgent;
    std::string m_proxyURL;
    bool m_hasMethodName = false;
    bool m_hasNewConnection = false;
    // Memory that the handle refers to.
    RestHeaderList m_headers;
    std::string m_shortBody;
};

}  // namespace cf

#endif
