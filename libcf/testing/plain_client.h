#ifndef CF_TESTING_PLAIN_CLIENT_H
#define CF_TESTING_PLAIN_CLIENT_H

#include <curl/curl.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The result of one exchange.
struct PlainResponse {
    CURLcode code = CURLE_OK;  ///< of the transport; an HTTP error status is no error here
    long status = 0;
    std::string head;  ///< status line and header fields as received
    std::string body;
};

struct PlainRequest {
    std::string method = "GET";
    std::string url;
    std::vector<std::string> headers{};  ///< "Name: value"
    std::string body{};
};

/// Plain libcurl, for tests of servers: it does not use the library under test. Connections are kept between the
/// exchanges of one client.
class PlainClient {
public:
    /// `caFile`: the only trusted certificates; empty: the system's.
    explicit PlainClient(std::string caFile = {});

    [[nodiscard]] PlainResponse send(const PlainRequest& request);
    /// Receives the bytes of each body as they arrive, decompressed. They are in the response as well.
    void watchBody(std::function<void(std::string_view)> watcher) { m_watcher = std::move(watcher); }
    /// Sets the time limit of a whole exchange.
    void limitTime(std::chrono::milliseconds limit) { m_limit = limit; }

private:
    struct Deleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    std::unique_ptr<CURL, Deleter> m_handle;
    std::string m_caFile;
    std::function<void(std::string_view)> m_watcher;
    std::chrono::milliseconds m_limit{std::chrono::seconds{30}};
};

#endif
