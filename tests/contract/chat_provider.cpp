#include "chat_provider.h"

#include <algorithm>
#include <iterator>

namespace {

std::string writeMember(const std::string& key, const std::string& text) {
    return quote(key) + ":" + quote(text);
}

std::string join(const std::vector<std::string>& items) {
    std::string joined;
    for (const std::string& item : items) {
        joined += (joined.empty() ? "" : ",") + item;
    }
    return joined;
}

/// "messages" of the providers that know roles and contents.
std::string writeMessages(const ExpectedTurn& turn) {
    std::vector<std::string> messages;
    const auto add = [&messages](const std::string& role, const std::string& text) {
        messages.push_back("{" + writeMember("role", role) + "," + writeMember("content", text) + "}");
    };
    if (!turn.instructions.empty()) {
        add("system", turn.instructions);
    }
    for (const auto& [role, text] : turn.messages) {
        add(role == 1 ? "assistant" : "user", text);
    }
    return "\"messages\":[" + join(messages) + "]";
}

std::string writeDeepSeekBody(const ExpectedTurn& turn) {
    const std::string temperature = turn.temperature.empty() ? "" : "\"temperature\":" + turn.temperature + ",";
    return "{" + writeMember("model", turn.model) + "," + temperature + writeMessages(turn) + "}";
}

std::string writeDeepSeekReplyOfPieces(std::size_t count, const std::string& jsonText) {
    const std::string choice = R"({"index":0,"message":{"role":"assistant","content":)" + jsonText + "}}";
    return R"({"id":"1","object":"chat.completion","choices":[)" + join(std::vector(count, choice)) +
           R"(],"usage":{"total_tokens":3}})";
}

std::string writeDeepSeekModels(const std::vector<std::string>& names) {
    std::vector<std::string> items;
    for (const std::string& name : names) {
        items.push_back("{" + writeMember("id", name) + R"(,"object":"model","owned_by":"x"})");
    }
    return R"({"object":"list","data":[)" + join(items) + "]}";
}

std::string writeGoogleContent(const std::string& role, const std::string& text) {
    return "{" + writeMember("role", role) + R"(,"parts":[{)" + writeMember("text", text) + "}]}";
}

std::string writeGoogleBody(const ExpectedTurn& turn) {
    std::vector<std::string> members;
    if (!turn.temperature.empty()) {
        members.push_back(R"("generationConfig":{"temperature":)" + turn.temperature + "}");
    }
    if (!turn.instructions.empty()) {
        members.push_back(R"("system_instruction":{"parts":{)" + writeMember("text", turn.instructions) + "}}");
    }
    std::vector<std::string> contents;
    for (const auto& [role, text] : turn.messages) {
        contents.push_back(writeGoogleContent(role == 1 ? "model" : "user", text));
    }
    members.push_back("\"contents\":[" + join(contents) + "]");
    return "{" + join(members) + "}";
}

std::string writeGoogleReplyOfPieces(std::size_t count, const std::string& jsonText) {
    return R"({"candidates":[{"content":{"parts":[)" + join(std::vector(count, R"({"text":)" + jsonText + "}")) +
           R"(],"role":"model"},"finishReason":"STOP","index":0,"safetyRatings":[]}],"usageMetadata":{}})";
}

std::string writeGoogleModels(const std::vector<std::string>& names) {
    std::vector<std::string> items;
    for (const std::string& name : names) {
        items.push_back("{" + writeMember("name", "models/" + name) +
                        R"(,"supportedGenerationMethods":["generateContent","countTokens"]})");
    }
    return R"({"models":[)" + join(items) + R"(],"nextPageToken":"t"})";
}

std::string obtainGooglePath(const std::string& model) {
    return "/v1beta/models/" + model + ":generateContent";
}

std::string obtainGoogleSuffix(const std::string& model) {
    return ": p" + obtainGooglePath(model);
}

std::string writeOllamaBody(const ExpectedTurn& turn) {
    const std::string options =
        turn.temperature.empty() ? "" : R"("options":{"temperature":)" + turn.temperature + "},";
    return "{" + writeMember("model", turn.model) + R"(,"stream":false,)" + options + writeMessages(turn) + "}";
}

std::string writeOllamaReply(const std::string& jsonText) {
    return R"({"model":"m","message":{"role":"assistant","content":)" + jsonText +
           R"(},"done_reason":"stop","done":true,"total_duration":12345678901})";
}

std::string writeOllamaModels(const std::vector<std::string>& names) {
    std::vector<std::string> items;
    for (const std::string& name : names) {
        items.push_back("{" + writeMember("name", name) + R"(,"size":4661224676,"details":{}})");
    }
    return R"({"models":[)" + join(items) + "]}";
}

template <const char* Text>
std::string obtainFixed(const std::string& /*model*/) {
    return Text;
}

constexpr char kDeepseekPath[] = "/chat/completions";
constexpr char kDeepseekSuffix[] = ": p/chat/completions";
constexpr char kOllamaPath[] = "/api/chat";
constexpr char kOllamaSuffix[] = ": p/api/chat";
constexpr char kOllamaInvalidSuffix[] = ": g/api/chat";

ChatProvider describeDeepSeek() {
    return {
        .name = "DEEPSEEK",
        .type = KAIAssistantType::DEEPSEEK,
        .tls = LoopbackTLS::Valid,
        .defaultHost = "api.deepseek.com",
        .authorization = "Bearer secret",
        .query = "",
        .modelsPath = "/models",
        .modelsSuffix = ": g/models",
        .modelsErrors = ErrorReading::MessageOrBody,
        .writeModels = writeDeepSeekModels,
        .chatPath = obtainFixed<kDeepseekPath>,
        .emptyModelSuffix = ": p/chat/completions",
        .invalidSuffix = obtainFixed<kDeepseekSuffix>,
        .unsupportedSuffix = obtainFixed<kDeepseekSuffix>,
        .chatErrors = ErrorReading::MessageOrBody,
        .writeBody = writeDeepSeekBody,
        .writeReply = [](const std::string& jsonText) { return writeDeepSeekReplyOfPieces(1, jsonText); },
        .writeReplyOfPieces = writeDeepSeekReplyOfPieces,
    };
}

ChatProvider describeGoogle() {
    return {
        .name = "GOOGLE",
        .type = KAIAssistantType::GOOGLE,
        .tls = LoopbackTLS::Valid,
        .defaultHost = "generativelanguage.googleapis.com",
        .authorization = "",
        .query = "?key=secret",
        .modelsPath = "/v1beta/models",
        .modelsSuffix = ": g/v1beta/models",
        .modelsErrors = ErrorReading::MessageOnly,
        .writeModels = writeGoogleModels,
        .chatPath = obtainGooglePath,
        .emptyModelSuffix = ": p/v1beta/models/generateContent",
        .invalidSuffix = obtainGoogleSuffix,
        .unsupportedSuffix = obtainGoogleSuffix,
        .chatErrors = ErrorReading::MessageOnly,
        .writeBody = writeGoogleBody,
        .writeReply = [](const std::string& jsonText) { return writeGoogleReplyOfPieces(1, jsonText); },
        .writeReplyOfPieces = writeGoogleReplyOfPieces,
    };
}

ChatProvider describeOllama() {
    return {
        .name = "OLLAMA",
        .type = KAIAssistantType::OLLAMA,
        .tls = LoopbackTLS::Off,
        .defaultHost = "localhost:11434",
        .authorization = "",
        .query = "",
        .modelsPath = "/api/tags",
        .modelsSuffix = ": g/api/tags",
        .modelsErrors = ErrorReading::Nothing,
        .writeModels = writeOllamaModels,
        .chatPath = obtainFixed<kOllamaPath>,
        .emptyModelSuffix = ": p/api/chat",
        .invalidSuffix = obtainFixed<kOllamaInvalidSuffix>,
        .unsupportedSuffix = obtainFixed<kOllamaSuffix>,
        .chatErrors = ErrorReading::MessageOrBody,
        .writeBody = writeOllamaBody,
        .writeReply = writeOllamaReply,
        .writeReplyOfPieces = nullptr,
    };
}

}  // namespace

const std::vector<ChatProvider>& obtainChatProviders() {
    static const std::vector<ChatProvider> providers{describeDeepSeek(), describeGoogle(), describeOllama()};
    return providers;
}

std::vector<ChatProvider> selectChatProviders(bool (*isWanted)(const ChatProvider& provider)) {
    std::vector<ChatProvider> selected;
    std::copy_if(obtainChatProviders().begin(), obtainChatProviders().end(), std::back_inserter(selected), isWanted);
    return selected;
}

void PrintTo(const ChatProvider& provider, std::ostream* out) {
    *out << provider.name;
}

std::string quote(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        switch (c) {
            case '"':
                quoted += "\\\"";
                break;
            case '\\':
                quoted += "\\\\";
                break;
            case '\n':
                quoted += "\\n";
                break;
            default:
                quoted += c;
        }
    }
    return quoted + "\"";
}
