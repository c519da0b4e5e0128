#include "kai_assistant_deepseek.h"

#include <algorithm>

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

// Joins the contents of all choices; a choice of another form adds nothing.
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

/// Whether a choice is the assistant's. Only the first piece of a choice has the role.
bool isAssistants(std::int64_t index, std::string_view role, kai::ChatPieces& pieces) {
    std::vector<std::int64_t>& foreign = pieces.foreignChoices;
    if (!role.empty() && role != "assistant") {
        foreign.push_back(index);
    }
    return std::find(foreign.begin(), foreign.end(), index) == foreign.end();
}

kai::ChatPieceKind readPiece(const COJson& event, kai::ChatPieces& pieces) {
    const auto [object, choices, error] = event.obtainRoot().obtainMemberValues({"object", "choices", "error"});
    // Some servers send {"object":"error",...} instead of an "error" member.
    if (kai::isErrorValue(error) || object.obtainString() == "error") {
        return kai::ChatPieceKind::Error;
    }
    if (!choices.isArray()) {
        // The event with the token counts has no choices.
        return choices.getIsValidJson() && !choices.isNull() ? kai::ChatPieceKind::Unsupported
                                                             : kai::ChatPieceKind::Nothing;
    }
    auto kind = kai::ChatPieceKind::Nothing;
    for (const COJsonValue choice : choices.obtainItems()) {
        const auto [index, delta, reason] = choice.obtainMemberValues({"index", "delta", "finish_reason"});
        const auto [role, content] = delta.obtainMemberValues({"role", "content"});
        if (isAssistants(index.obtainInteger(), role.obtainString(), pieces)) {
            pieces.text += content.obtainString();
        }
        const bool isFinished = reason.isString() || kind == kai::ChatPieceKind::Finished;
        kind = isFinished ? kai::ChatPieceKind::Finished : kai::ChatPieceKind::Text;
    }
    return kind;
}

constexpr std::string_view kModelsPath[] = {"models"};
constexpr std::string_view kChatPath[] = {"chat", "completions"};

constexpr kai::ChatMember kBody[] = {
    {kai::ChatValue::Model, R"("model":)"},
    {kai::ChatValue::WhenStreamed, R"("stream":true)"},
    {kai::ChatValue::Temperature, R"("temperature":)"},
    {kai::ChatValue::Messages, R"("messages":[)", "]"},
};

constexpr kai::ChatProtocol kProtocol{
    .scheme = "https://",
    .defaultHost = "api.deepseek.com",
    .authorization = "Bearer {key}",
    .modelsPath = kModelsPath,
    .chatPath = kChatPath,
    .modelsSuffix = ": g/models",
    .emptyModelSuffix = ": p/chat/completions",
    .invalidReplySuffix = ": p/chat/completions",
    .unsupportedReplySuffix = ": p/chat/completions",
    .body = kBody,
    .userMessage = {R"({"role":"user","content":)", "}"},
    .assistantMessage = {R"({"role":"assistant","content":)", "}"},
    .systemMessage = {R"({"role":"system","content":)", "}"},
    .readModelsError = kai::readErrorBody,
    .readChatError = kai::readErrorBody,
    .readModels = readModels,
    .readReply = readReply,
    .streaming = {.framing = kai::ChatStreamFraming::Events, .endMark = "[DONE]", .readPiece = readPiece},
    .createSession = kai::createChatSession<KAISession_DEEPSEEK>,
};

}  // namespace

const kai::ChatProtocol& kai::obtainDeepSeekProtocol() {
    return kProtocol;
}

KAIAssistant_DEEPSEEK::KAIAssistant_DEEPSEEK(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                                             const std::string& apiKey)
    : kai::ChatAssistant(kai::obtainDeepSeekProtocol(), std::move(poolCenter), host, apiKey) {}
