#include "fuzz_service.h"

#include <chrono>
#include <utility>

#include "kai.h"

LoopbackReply makeFuzzedReply(unsigned char form, std::string_view bytes) {
    const auto has = [form](unsigned bit) { return ((form >> bit) & 1U) != 0; };
    LoopbackReply reply;
    if (has(1)) {
        reply.raw = std::string(bytes);
        reply.isClosedAfter = true;
        return reply;
    }
    constexpr std::size_t kLargeBytes = std::size_t{64} * 1024;
    std::string body(bytes);
    body.append(has(6) ? kLargeBytes : 0, '\n');
    reply.isCompressed = has(2);
    if (has(3)) {
        reply.framing = LoopbackFraming::Chunked;
        reply.chunkBytes = has(6) ? 7'000 : 7;
    }
    if (has(4)) {
        const std::size_t half = bytes.size() / 2;
        reply.pieces = {body.substr(0, half), body.substr(half)};
    } else {
        reply.body = std::move(body);
    }
    return reply;
}

FuzzedService::FuzzedService()
    : m_server(
          [this](const LoopbackRequest& request) {
              const std::scoped_lock lock(m_mutex);
              return m_handler(request);
          },
          {.isRecording = false}) {
    CMRestGlobalSettings settings;
    // Longer than a fuzzer waits for a run: a reply that makes the client wait is to be found.
    settings.requestTimeout = std::chrono::seconds(60);
    settings.plainHTTPHosts = {obtainHost()};
    settings.maxResponseBytes = std::size_t{1} << 20;
    KAISetHTTPSettings(settings);
}

void FuzzedService::setHandler(Handler handler) {
    const std::scoped_lock lock(m_mutex);
    m_handler = std::move(handler);
}

FuzzedService& obtainFuzzedService() {
    static auto* const service = new FuzzedService;
    return *service;
}
