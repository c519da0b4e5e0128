#include "kai_assistant_ollama.h"

#include "kai_session_ollama.h"

namespace {

// A failed model list is reported with the transport's text only: the server is usually not running then, and another
// server that answers in its place says nothing about models.
std::string readNoError(CMRestResourceResponse* /*response*/) {
    return {};
}

std::optional<std::vector<std::string>> readModels(const COJson& response) {
    const COJsonValue list = response.obtainMember("models");
    if (!list.isArray()) {
        return std::nullopt;
    }
    std::vector<std::string> models;
    for (const COJsonValue item : list.obtainItems()) {
        const COJsonValue name = item.obtainMember("name");
        if (name.isString()) {
            models.emplace_back(name.obtainString());
        }
    }
    return models;
}

std::optional<std::string> readReply(const COJson& response) {
    const COJsonValue message = response.obtainMember("message");
    const COJsonValue content = message.obtainMember("content");
    if (message.obtainMember("role").obtainString() != "assistant" || !content.isString()) {
        return std::nullopt;
    }
    return std::string(content.obtainString());
}

kai::ChatPieceKind readPiece(const COJson& event, kai::ChatPieces& pieces) {
    const auto [message, done, error] = event.obtainRoot().obtainMemberValues({"message", "done", "error"});
    if (kai::isErrorValue(error)) {
        return kai::ChatPieceKind::Error;
    }
    const auto [roleValue, content] = message.obtainMemberValues({"role", "content"});
    const std::string_view role = roleValue.obtainString();
    const bool isLast = done.obtainBoolean();
    const bool hasContent = content.getIsValidJson() && !content.isNull();
    const bool isForeign = !role.empty() && role != "assistant";
    if (isForeign || (hasContent && !content.isString()) || !(message.isObject() || isLast)) {
        return kai::ChatPieceKind::Unsupported;
    }
    pieces.text += content.obtainString();
    return isLast ? kai::ChatPieceKind::Last : kai::ChatPieceKind::Text;
}

constexpr std::string_view kModelsPath[] = {"api", "tags"};
constexpr std::string_view kChatPath[] = {"api", "chat"};

constexpr kai::ChatMember kBody[] = {
    {kai::ChatValue::Model, R"("model":)"},
    {kai::ChatValue::WhenWhole, R"("stream":false)"},
    {kai::ChatValue::WhenStreamed, R"("stream":true)"},
    {kai::ChatValue::Temperature, R"("options":{"temperature":)", "}"},
    {kai::ChatValue::Messages, R"("messages":[)", "]"},
};

constexpr kai::ChatProtocol kProtocol{
    .scheme = "http://",
    .defaultHost = "localhost:11434",
    .modelsPath = kModelsPath,
    .chatPath = kChatPath,
    .modelsSuffix = ": g/api/tags",
    .emptyModelSuffix = ": p/api/chat",
    // Names a GET although the request is a POST: hosts rely on this text.
    .invalidReplySuffix = ": g/api/chat",
    .unsupportedReplySuffix = ": p/api/chat",
    .body = kBody,
    .userMessage = {R"({"role":"user","content":)", "}"},
    .assistantMessage = {R"({"role":"assistant","content":)", "}"},
    .systemMessage = {R"({"role":"system","content":)", "}"},
    .readModelsError = readNoError,
    .readChatError = kai::readErrorBody,
    .readModels = readModels,
    .readReply = readReply,
    .streaming = {.framing = kai::ChatStreamFraming::Lines, .readPiece = readPiece},
    .createSession = kai::createChatSession<KAISession_OLLAMA>,
};

}  // namespace

const kai::ChatProtocol& kai::obtainOllamaProtocol() {
    return kProtocol;
}

KAIAssistant_OLLAMA::KAIAssistant_OLLAMA(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host)
    : kai::ChatAssistant(kai::obtainOllamaProtocol(), std::move(poolCenter), host, {}) {}
