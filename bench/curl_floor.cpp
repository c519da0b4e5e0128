#include "curl_floor.h"

#include <array>
#include <stdexcept>
#include <string_view>

namespace {

constexpr std::array<std::string_view, 4> kOwnHeaders{"Host", "Accept", "Accept-Encoding", "Content-Length"};

std::size_t appendReply(char* data, std::size_t unit, std::size_t size, void* reply) {
    static_cast<std::string*>(reply)->append(data, unit * size);
    return unit * size;
}

bool isOwnHeader(std::string_view name) {
    for (const std::string_view own : kOwnHeaders) {
        if (name == own) {
            return true;
        }
    }
    return false;
}

}  // namespace

CurlFloor::CurlFloor(const BenchServer& server, const RecordedRequest& request) : m_handle(curl_easy_init()) {
    const bool isTLS = !server.obtainBundleFile().empty();
    const std::string url = (isTLS ? "https://" : "http://") + server.obtainAuthority() + request.target;
    setOption(CURLOPT_URL, url.c_str());
    setOption(CURLOPT_NOSIGNAL, 1L);
    setOption(CURLOPT_PROXY, "");
    setOption(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    setOption(CURLOPT_TCP_KEEPALIVE, 1L);
    setOption(CURLOPT_CONNECTTIMEOUT_MS, 15'000L);
    setOption(CURLOPT_TIMEOUT_MS, 600'000L);
    setOption(CURLOPT_ACCEPT_ENCODING, "gzip");
    if (isTLS) {
        setOption(CURLOPT_CAINFO, server.obtainBundleFile().c_str());
    }
    setHeaders(request);
    setOption(CURLOPT_POSTFIELDS, request.body.data());
    setOption(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    setOption(CURLOPT_WRITEFUNCTION, &appendReply);
    setOption(CURLOPT_WRITEDATA, static_cast<void*>(&m_reply));
}

template <typename Value>
void CurlFloor::setOption(CURLoption option, Value value) {
    if (curl_easy_setopt(m_handle.get(), option, value) != CURLE_OK) {
        throw std::runtime_error("libcurl refuses an option");
    }
}

void CurlFloor::setHeaders(const RecordedRequest& request) {
    curl_slist* list = nullptr;
    for (const auto& [name, value] : request.headers) {
        if (name == "User-Agent") {
            setOption(CURLOPT_USERAGENT, value.c_str());
        } else if (!isOwnHeader(name)) {
            list = curl_slist_append(list, (name + ": " + value).c_str());
        }
    }
    m_headers.reset(curl_slist_append(list, "Expect:"));
    setOption(CURLOPT_HTTPHEADER, m_headers.get());
}

std::size_t CurlFloor::perform() {
    m_reply.clear();
    const CURLcode result = curl_easy_perform(m_handle.get());
    if (result != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(result));
    }
    return m_reply.size();
}
