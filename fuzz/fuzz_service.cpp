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
    reply.isCompressed = has(2);
    if (has(3)) {
        reply.framing = LoopbackFraming::Chunked;
        reply.chunkBytes = 7;
    }
    if (has(4)) {
        const std::size_t half = bytes.size() / 2;
        reply.pieces = {std::string(bytes.substr(0, half)), std::string(bytes.substr(half))};
    } else {
        reply.body = std::string(bytes);
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
