#ifndef BENCH_CURL_FLOOR_H
#define BENCH_CURL_FLOOR_H

#include <curl/curl.h>

#include <memory>
#include <string>

#include "bench_server.h"

/// What a turn costs at least over libcurl: one handle set up once and used again, a request that is there already, a
/// reply that is put into a buffer and not looked at.
class CurlFloor {
public:
    /// @param request  is sent again to the letter; borrowed
    CurlFloor(const BenchServer& server, const RecordedRequest& request);

    /// Runs the exchange. Throws std::runtime_error when it fails.
    /// @return the length of the reply
    std::size_t perform();

private:
    struct HandleDeleter {
        void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
    };
    struct ListDeleter {
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };

    template <typename Value>
    void setOption(CURLoption option, Value value);
    void setHeaders(const RecordedRequest& request);

    std::unique_ptr<curl_slist, ListDeleter> m_headers;
    std::unique_ptr<CURL, HandleDeleter> m_handle;
    std::string m_reply;
};

#endif
