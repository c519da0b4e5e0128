#include "kai_assistant_google.h"

#include "kai_session_google.h"

namespace {

// Never the raw body: this service's failures come as JSON, and what stands before it may answer in HTML.
std::string readError(CMRestResourceResponse* response) {
    return findErrorMessage(response).value_or(std::string());
}

bool hasMethod(const COJsonValue& methods, std::string_view wanted) {
    for (const COJsonValue method : methods.obtainItems()) {
        if (method.obtainString() == wanted) {
            return true;
        }
    }
    return false;
}

std::string_view removeModelsPrefix(std::string_view name) {
    constexpr std::string_view kPrefix = "models/";
    return name.substr(0, kPrefix.size()) == kPrefix ? name.substr(kPrefix.size()) : name;
}

std::optional<std::vector<std::string>> readModels(const COJson& response) {
    const COJsonValue list = response.obtainMember("models");
    if (!list.isArray()) {
        return std::nullopt;
    }
    std::vector<std::string> models;
    for (const COJsonValue item : list.obtainItems()) {
        const COJsonValue name = item.obtainMember("name");
        if (name.isString() && hasMethod(item.obtainMember("supportedGenerationMethods"), "generateContent")) {
            models.emplace_back(removeModelsPrefix(name.obtainString()));
        }
    }
    return models;
}

void writeText(COJsonWriter& writer, std::string_view text) {
    writer.beginObject();
    writer.writeMember("text", text);
    writer.endObject();
}

// What stands around the text of a message, written as it is: a conversation has it once a message.
constexpr std::string_view kUserStart = R"({"role":"user","parts":[{"text":)";
constexpr std::string_view kModelStart = R"({"role":"model","parts":[{"text":)";
constexpr std::string_view kContentEnd = "}]}";

void writeContents(COJsonWriter& writer, const KAIChatTurn& turn) {
    writer.writeKey("contents");
    writer.beginArray();
    for (const std::unique_ptr<KAIMessage>& message : turn.history) {
        const bool isAssistant = message->obtainRole() == KAI_ROLE_ASSISTANT;
        writer.writeFramed(isAssistant ? kModelStart : kUserStart, obtainFirstText(*message), kContentEnd);
    }
    writer.writeFramed(kUserStart, turn.text, kContentEnd);
    writer.endArray();
}

void writeChatBody(COJsonWriter& writer, const KAIChatTurn& turn) {
    writer.beginObject();
    if (turn.hasTemperature) {
        writer.writeKey("generationConfig");
        writer.beginObject();
        writeTemperature(writer, turn);
        writer.endObject();
    }
    if (!turn.instructions.empty()) {
        writer.writeKey("system_instruction");
        writer.beginObject();
        // One object here, where "contents" have an array: the service takes both.
        writer.writeKey("parts");
        writeText(writer, turn.instructions);
        writer.endObject();
    }
    writeContents(writer, turn);
    writer.endObject();
}

void appendParts(std::string& reply, const COJsonValue& parts) {
    for (const COJsonValue part : parts.obtainItems()) {
        reply += part.obtainMember("text").obtainString();
    }
}

// All texts follow one another; a candidate or a part of another form adds nothing.
std::optional<std::string> readReply(const COJson& response) {
    const COJsonValue candidates = response.obtainMember("candidates");
    if (!candidates.isArray()) {
        return std::nullopt;
    }
    std::string reply;
    for (const COJsonValue candidate : candidates.obtainItems()) {
        const COJsonValue content = candidate.obtainMember("content");
        if (content.obtainMember("role").obtainString() == "model") {
            appendParts(reply, content.obtainMember("parts"));
        }
    }
    return reply;
}

constexpr std::string_view kModelsPath[] = {"v1beta", "models"};
constexpr std::string_view kChatPath[] = {"v1beta", "models", "{model}:generateContent"};

constexpr KAIChatProtocol kProtocol{
    .scheme = "https://",
    .defaultHost = "generativelanguage.googleapis.com",
    .authentication = KAIChatAuthentication::KeyParameter,
    .modelsPath = kModelsPath,
    .chatPath = kChatPath,
    .modelsSuffix = ": g/v1beta/models",
    // The one error of a turn that names no model: there is none to name.
    .emptyModelSuffix = ": p/v1beta/models/generateContent",
    .invalidReplySuffix = ": p/v1beta/models/{model}:generateContent",
    .unsupportedReplySuffix = ": p/v1beta/models/{model}:generateContent",
    .readModelsError = readError,
    .readChatError = readError,
    .readModels = readModels,
    .writeChatBody = writeChatBody,
    .readReply = readReply,
    .createSession = createChatSession<KAISession_GOOGLE>,
    .castSession = castChatSession<KAISession_GOOGLE>,
};

}  // namespace

const KAIChatProtocol& obtainGoogleProtocol() {
    return kProtocol;
}

KAIAssistant_GOOGLE::KAIAssistant_GOOGLE(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                                         const std::string& apiKey)
    : KAIAssistantChat(obtainGoogleProtocol(), std::move(poolCenter), host, apiKey) {}
