#include "kai_assistant_ollama.h"

#include "kai_session_ollama.h"

namespace {

// A failed model list is reported in the transport's words alone: the server is usually not running then, and what
// answers in its place has nothing to say about models.
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

void writeChatBody(COJsonWriter& writer, const KAIChatTurn& turn) {
    writer.beginObject();
    writer.writeMember("model", turn.settings.model);
    writer.writeKey("stream");
    writer.writeBoolean(false);
    if (turn.hasTemperature) {
        writer.writeKey("options");
        writer.beginObject();
        writeTemperature(writer, turn);
        writer.endObject();
    }
    writeChatMessages(writer, turn);
    writer.endObject();
}

std::optional<std::string> readReply(const COJson& response) {
    const COJsonValue message = response.obtainMember("message");
    const COJsonValue content = message.obtainMember("content");
    if (message.obtainMember("role").obtainString() != "assistant" || !content.isString()) {
        return std::nullopt;
    }
    return std::string(content.obtainString());
}

constexpr std::string_view kModelsPath[] = {"api", "tags"};
constexpr std::string_view kChatPath[] = {"api", "chat"};

constexpr KAIChatProtocol kProtocol{
    .scheme = "http://",
    .defaultHost = "localhost:11434",
    .authentication = KAIChatAuthentication::None,
    .modelsPath = kModelsPath,
    .chatPath = kChatPath,
    .modelsSuffix = ": g/api/tags",
    .emptyModelSuffix = ": p/api/chat",
    // Named as a GET although the request is a POST: hosts know the text as it is.
    .invalidReplySuffix = ": g/api/chat",
    .unsupportedReplySuffix = ": p/api/chat",
    .readModelsError = readNoError,
    .readChatError = readErrorBody,
    .readModels = readModels,
    .writeChatBody = writeChatBody,
    .readReply = readReply,
    .createSession = createChatSession<KAISession_OLLAMA>,
    .castSession = castChatSession<KAISession_OLLAMA>,
};

}  // namespace

const KAIChatProtocol& obtainOllamaProtocol() {
    return kProtocol;
}

KAIAssistant_OLLAMA::KAIAssistant_OLLAMA(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host)
    : KAIAssistantChat(obtainOllamaProtocol(), std::move(poolCenter), host, {}) {}
