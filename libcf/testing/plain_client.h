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

/// What came back from one exchange.
struct PlainResponse {
    CURLcode code = CURLE_OK;  ///< of the transport; the status is not judged
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

/// libcurl as it is, for tests of servers: it knows nothing of the library under test. Connections are kept between
/// the exchanges of one client.
class PlainClient {
public:
    /// `caFile`: the only certificates trusted; empty: the system's.
    explicit PlainClient(std::string caFile = {});

    [[nodiscard]] PlainResponse send(const PlainRequest& request);
    /// Told of the bytes of each body as they come, decompressed. They are in the response as well.
    void watchBody(std::function<void(std::string_view)> watcher) { m_watcher = std::move(watcher); }
    /// Time for a whole exchange from now on.
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
