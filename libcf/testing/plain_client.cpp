#include "plain_client.h"

namespace {

struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

std::size_t appendBytes(const char* bytes, std::size_t size, std::size_t count, void* target) {
    static_cast<std::string*>(target)->append(bytes, size * count);
    return size * count;
}

struct BodyTarget {
    std::string& body;
    const std::function<void(std::string_view)>& watcher;
};

std::size_t takeBody(const char* bytes, std::size_t size, std::size_t count, void* target) {
    const auto& [body, watcher] = *static_cast<BodyTarget*>(target);
    body.append(bytes, size * count);
    if (watcher) {
        watcher({bytes, size * count});
    }
    return size * count;
}

}  // namespace

PlainClient::PlainClient(std::string caFile) : m_handle(curl_easy_init()), m_caFile(std::move(caFile)) {}

PlainResponse PlainClient::send(const PlainRequest& request) {
    PlainResponse response;
    CURL* handle = m_handle.get();
    curl_easy_reset(handle);
    std::unique_ptr<curl_slist, ListDeleter> headers;
    const auto addHeader = [&](const std::string& header) {
        headers.reset(curl_slist_append(headers.release(), header.c_str()));
    };
    bool isExpectGiven = false;
    for (const auto& header : request.headers) {
        addHeader(header);
        isExpectGiven = isExpectGiven || header.starts_with("Expect:");
    }
    if (!isExpectGiven) {
        addHeader("Expect:");
    }
    curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    if (!request.body.empty()) {
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request.body.data());
    }
    if (!m_caFile.empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, m_caFile.c_str());
    }
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(m_limit.count()));
    BodyTarget target{response.body, m_watcher};
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &target);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, appendBytes);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &response.head);
    response.code = curl_easy_perform(handle);
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &response.status);
    return response;
}
