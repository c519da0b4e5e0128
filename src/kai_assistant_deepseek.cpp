#include "kai_assistant_deepseek.h"

#include "kai_session_deepseek.h"

namespace {

std::optional<std::vector<std::string>> readModels(const COJson& response) {
    const COJsonValue data = response.obtainMember("data");
    if (!data.isArray()) {
        return std::nullopt;
    }
    std::vector<std::string> models;
    for (const COJsonValue item : data.obtainItems()) {
        const COJsonValue id = item.obtainMember("id");
        if (id.isString() && item.obtainMember("object").obtainString() == "model") {
            models.emplace_back(id.obtainString());
        }
    }
    return models;
}

void writeChatBody(COJsonWriter& writer, const KAIChatTurn& turn) {
    writer.beginObject();
    writer.writeMember("model", turn.settings.model);
    if (turn.hasTemperature) {
        writeTemperature(writer, turn);
    }
    writeChatMessages(writer, turn);
    writer.endObject();
}

// The contents of several choices follow one another; a choice of another form adds nothing.
std::optional<std::string> readReply(const COJson& response) {
    const COJsonValue choices = response.obtainMember("choices");
    if (!choices.isArray()) {
        return std::nullopt;
    }
    std::string reply;
    for (const COJsonValue choice : choices.obtainItems()) {
        const COJsonValue message = choice.obtainMember("message");
        if (message.obtainMember("role").obtainString() == "assistant") {
            reply += message.obtainMember("content").obtainString();
        }
    }
    return reply;
}

constexpr std::string_view kModelsPath[] = {"models"};
constexpr std::string_view kChatPath[] = {"chat", "completions"};

constexpr KAIChatProtocol kProtocol{
    .scheme = "https://",
    .defaultHost = "api.deepseek.com",
    .authentication = KAIChatAuthentication::BearerHeader,
    .modelsPath = kModelsPath,
    .chatPath = kChatPath,
    .modelsSuffix = ": g/models",
    .emptyModelSuffix = ": p/chat/completions",
    .invalidReplySuffix = ": p/chat/completions",
    .unsupportedReplySuffix = ": p/chat/completions",
    .readModelsError = readErrorBody,
    .readChatError = readErrorBody,
    .readModels = readModels,
    .writeChatBody = writeChatBody,
    .readReply = readReply,
    .createSession = createChatSession<KAISession_DEEPSEEK>,
    .castSession = castChatSession<KAISession_DEEPSEEK>,
};

}  // namespace

const KAIChatProtocol& obtainDeepSeekProtocol() {
    return kProtocol;
}

KAIAssistant_DEEPSEEK::KAIAssistant_DEEPSEEK(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                                             const std::string& apiKey)
    : KAIAssistantChat(obtainDeepSeekProtocol(), std::move(poolCenter), host, apiKey) {}
