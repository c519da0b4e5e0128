#include "good_service.h"

#include <utility>

namespace {

bool isStreamed(const LoopbackRequest& request) {
    return request.path.ends_with(":streamGenerateContent") ||
           request.body.find("\"stream\":true") != std::string::npos;
}

bool isOfRow(const LoopbackRequest& request, const RequestRow& row) {
    return request.method == row.method && request.path == row.path &&
           (request.method != "POST" || isStreamed(request) == (row.step == HostStep::SayStreamed));
}

/// The last text of a request: the tests' texts need no escapes.
std::string readLastText(const std::string& body) {
    for (const std::string_view key : {"\"content\":\"", "\"text\":\""}) {
        if (const std::size_t place = body.rfind(key); place != std::string::npos) {
            const std::size_t start = place + key.size();
            return body.substr(start, body.find('"', start) - start);
        }
    }
    return {};
}

std::string writeEvents(const std::string& first, const std::string& last) {
    return "data: " + first + "\n\ndata: " + last + "\n\n";
}

std::string writeDeepSeekStream(const std::string& text) {
    return writeEvents(R"({"choices":[{"index":0,"delta":{"role":"assistant","content":")" + text + R"("}}]})",
                       R"({"choices":[{"index":0,"delta":{},"finish_reason":"stop"}]})") +
           "data: [DONE]\n\n";
}

std::string writeGoogleStream(const std::string& text) {
    return writeEvents(R"({"candidates":[{"content":{"role":"model","parts":[{"text":")" + text + R"("}]}}]})",
                       R"({"candidates":[{"content":{"role":"model","parts":[{"text":""}]},"finishReason":"STOP"}]})");
}

std::string writeOllamaStream(const std::string& text) {
    return R"({"message":{"role":"assistant","content":")" + text + R"("},"done":false})" + "\n" +
           R"({"message":{"role":"assistant","content":""},"done":true,"done_reason":"stop"})" + "\n";
}

std::string writeChatReply(const LoopbackRequest& request, const std::string& text) {
    const bool streams = isStreamed(request);
    if (request.path == "/chat/completions") {
        return streams ? writeDeepSeekStream(text)
                       : R"({"choices":[{"message":{"role":"assistant","content":")" + text + R"("}}]})";
    }
    if (request.path == "/api/chat") {
        return streams ? writeOllamaStream(text)
                       : R"({"message":{"role":"assistant","content":")" + text + R"("},"done":true})";
    }
    return streams ? writeGoogleStream(text)
                   : R"({"candidates":[{"content":{"role":"model","parts":[{"text":")" + text + R"("}]}}]})";
}

std::string writeModels(const std::string& path) {
    if (path == "/v1beta/models") {
        return R"({"models":[{"name":"models/m","supportedGenerationMethods":["generateContent"]}]})";
    }
    if (path == "/api/tags") {
        return R"({"models":[{"name":"m"}]})";
    }
    return R"({"data":[{"id":"m","object":"model","created":1}]})";
}

std::string writeThreadMessages(const std::string& text) {
    return R"({"data":[{"created_at":7,"content":[{"type":"text","text":{"value":")" + text + R"("}}]}]})";
}

}  // namespace

LoopbackReply GoodService::answer(const LoopbackRequest& request) {
    Spoiling spoiling;
    {
        const std::scoped_lock lock(m_mutex);
        if (m_row != nullptr && isOfRow(request, *m_row)) {
            ++m_spoiledCount;
            spoiling = m_spoiling;
        }
    }
    const LoopbackReply good{.headers = {{"Content-Type", "application/json"}}, .body = writeGoodBody(request)};
    return spoiling ? spoiling(good, request) : good;
}

void GoodService::spoil(const RequestRow* row, Spoiling spoiling) {
    const std::scoped_lock lock(m_mutex);
    m_row = row;
    m_spoiling = std::move(spoiling);
    m_spoiledCount = 0;
}

std::size_t GoodService::countSpoiled() const {
    const std::scoped_lock lock(m_mutex);
    return m_spoiledCount;
}

void GoodService::expectQuestion(const std::string& question) {
    const std::scoped_lock lock(m_mutex);
    m_expectedQuestion = question;
}

std::string GoodService::writeGoodBody(const LoopbackRequest& request) {
    const std::string& path = request.path;
    if (request.method == "DELETE") {
        return R"({"deleted":true})";
    }
    if (path.ends_with("/models") || path == "/api/tags") {
        return writeModels(path);
    }
    if (path.starts_with("/v1/assistants")) {
        return R"({"id":"asst_1"})";
    }
    if (path == "/v1/threads") {
        return R"({"id":"thread_1"})";
    }
    if (path.find("/runs") != std::string::npos) {
        return R"({"id":"run_1","status":"completed"})";
    }
    if (path.starts_with("/v1/threads/")) {
        const std::scoped_lock lock(m_mutex);
        if (request.method == "POST") {
            const std::string question = readLastText(request.body);
            if (m_expectedQuestion.empty() || question == m_expectedQuestion) {
                m_threadQuestion = question;
            }
            return R"({"id":"msg_1"})";
        }
        return writeThreadMessages(answerTo(m_threadQuestion));
    }
    return writeChatReply(request, answerTo(readLastText(request.body)));
}
