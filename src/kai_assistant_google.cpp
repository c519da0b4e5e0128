#include "kai_assistant_google.h"

#include "kai_session_google.h"

namespace {

// Never the raw body: this service reports failures as JSON, but a proxy in front of it may answer with HTML.
std::string readError(CMRestResourceResponse* response) {
    return kai::findErrorMessage(response).value_or(std::string());
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

void appendParts(std::string& reply, const COJsonValue& parts) {
    for (const COJsonValue part : parts.obtainItems()) {
        reply += part.obtainMember("text").obtainString();
    }
}

void appendAnswerParts(std::string& text, const COJsonValue& parts) {
    for (const COJsonValue part : parts.obtainItems()) {
        const auto [partText, thought] = part.obtainMemberValues({"text", "thought"});
        if (!thought.obtainBoolean()) {
            text += partText.obtainString();
        }
    }
}

// Joins all texts; a candidate or a part of another form adds nothing.
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

// Each event is a complete response. The model's thoughts in it are not part of the answer.
kai::ChatPieceKind readPiece(const COJson& event, kai::ChatPieces& pieces) {
    const auto [candidates, error] = event.obtainRoot().obtainMemberValues({"candidates", "error"});
    if (kai::isErrorValue(error)) {
        return kai::ChatPieceKind::Error;
    }
    if (!candidates.isArray()) {
        return candidates.getIsValidJson() && !candidates.isNull() ? kai::ChatPieceKind::Unsupported
                                                                   : kai::ChatPieceKind::Nothing;
    }
    auto kind = kai::ChatPieceKind::Nothing;
    for (const COJsonValue candidate : candidates.obtainItems()) {
        const auto [content, reason] = candidate.obtainMemberValues({"content", "finishReason"});
        const auto [parts, roleValue] = content.obtainMemberValues({"parts", "role"});
        const std::string_view role = roleValue.obtainString();
        if (role.empty() || role == "model") {
            appendAnswerParts(pieces.text, parts);
        }
        const bool isFinished = reason.isString() || kind == kai::ChatPieceKind::Finished;
        kind = isFinished ? kai::ChatPieceKind::Finished : kai::ChatPieceKind::Text;
    }
    return kind;
}

constexpr std::string_view kModelsPath[] = {"v1beta", "models"};
constexpr std::string_view kChatPath[] = {"v1beta", "models", "{model}:generateContent"};

constexpr std::string_view kStreamPath[] = {"v1beta", "models", "{model}:streamGenerateContent"};

constexpr kai::ChatParam kStreamParams[] = {{"alt", "sse"}};
constexpr kai::ChatParam kQueryParams[] = {{"key", "{key}"}};

constexpr kai::ChatMember kBody[] = {
    {kai::ChatValue::Temperature, R"("generationConfig":{"temperature":)", "}"},
    // One object here, but an array in "contents": the service accepts both.
    {kai::ChatValue::Instructions, R"("system_instruction":{"parts":{"text":)", "}}"},
    {kai::ChatValue::Messages, R"("contents":[)", "]"},
};

constexpr kai::ChatProtocol kProtocol{
    .scheme = "https://",
    .defaultHost = "generativelanguage.googleapis.com",
    .queryParams = kQueryParams,
    .modelsPath = kModelsPath,
    .chatPath = kChatPath,
    .modelsSuffix = ": g/v1beta/models",
    // The only error of a turn that names no model, because the model is empty.
    .emptyModelSuffix = ": p/v1beta/models/generateContent",
    .invalidReplySuffix = ": p/v1beta/models/{model}:generateContent",
    .unsupportedReplySuffix = ": p/v1beta/models/{model}:generateContent",
    .body = kBody,
    .userMessage = {R"({"role":"user","parts":[{"text":)", "}]}"},
    .assistantMessage = {R"({"role":"model","parts":[{"text":)", "}]}"},
    .readModelsError = readError,
    .readChatError = readError,
    .readModels = readModels,
    .readReply = readReply,
    .streaming = {.framing = kai::ChatStreamFraming::Events,
                  .path = kStreamPath,
                  .queryParams = kStreamParams,
                  .readPiece = readPiece},
    .createSession = kai::createChatSession<KAISession_GOOGLE>,
};

}  // namespace

const kai::ChatProtocol& kai::obtainGoogleProtocol() {
    return kProtocol;
}

KAIAssistant_GOOGLE::KAIAssistant_GOOGLE(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                                         const std::string& apiKey)
    : kai::ChatAssistant(kai::obtainGoogleProtocol(), std::move(poolCenter), host, apiKey) {}
