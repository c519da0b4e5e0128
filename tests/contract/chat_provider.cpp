#include "chat_provider.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <nlohmann/json.hpp>

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
    const std::string stream = turn.isStreamed ? "\"stream\":true," : "";
    return "{" + writeMember("model", turn.model) + "," + stream + temperature + writeMessages(turn) + "}";
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

std::string writeDeepSeekPiece(const std::string& jsonText) {
    return R"(data: {"id":"1","object":"chat.completion.chunk","choices":[{"index":0,"delta":{"content":)" + jsonText +
           R"(},"finish_reason":null}]})" + "\n\n";
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

std::string obtainGoogleStreamTarget(const std::string& model) {
    return "/v1beta/models/" + model + ":streamGenerateContent?alt=sse&key=secret";
}

std::string writeGooglePiece(const std::string& jsonText) {
    return R"(data: {"candidates":[{"content":{"parts":[{"text":)" + jsonText +
           R"(}],"role":"model"},"index":0}],"modelVersion":"m"})" + "\r\n\r\n";
}

std::string obtainGoogleSuffix(const std::string& model) {
    return ": p" + obtainGooglePath(model);
}

std::string writeOllamaBody(const ExpectedTurn& turn) {
    const std::string options =
        turn.temperature.empty() ? "" : R"("options":{"temperature":)" + turn.temperature + "},";
    const std::string stream = turn.isStreamed ? "true" : "false";
    return "{" + writeMember("model", turn.model) + ",\"stream\":" + stream + "," + options + writeMessages(turn) + "}";
}

std::string writeOllamaReply(const std::string& jsonText) {
    return R"({"model":"m","message":{"role":"assistant","content":)" + jsonText +
           R"(},"done_reason":"stop","done":true,"total_duration":12345678901})";
}

std::string writeOllamaPiece(const std::string& jsonText) {
    return R"({"model":"m","created_at":"t","message":{"role":"assistant","content":)" + jsonText +
           R"(},"done":false})" + "\n";
}

std::string writeOllamaModels(const std::vector<std::string>& names) {
    std::vector<std::string> items;
    for (const std::string& name : names) {
        items.push_back("{" + writeMember("name", name) + R"(,"size":4661224676,"details":{}})");
    }
    return R"({"models":[)" + join(items) + "]}";
}

/// Outside letters, digits and - . _ ~.
std::string percentEncode(const std::string& text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0 || c == '-' || c == '.' || c == '_' || c == '~') {
            encoded += c;
        } else {
            encoded += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
    }
    return encoded;
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
        .emulatedService = "deepseek",
        .tls = LoopbackTLS::Valid,
        .defaultHost = "api.deepseek.com",
        .keyHeader = "Authorization",
        .beforeKey = "Bearer ",
        .modelsPath = "/models",
        .modelsSuffix = ": g/models",
        .modelsErrors = ErrorReading::MessageOrBody,
        .modelShapes = {R"({"data":[{"id":"a","object":"model"},{"id":"b","object":"model"}]})",
                        {{"/data", "array", nullptr, ""},
                         {"/data/0", "object", "b,", "b,"},
                         {"/data/0/id", "string", "b,", "other,b,"},
                         {"/data/0/object", "string", "b,", "b,"}}},
        .writeModels = writeDeepSeekModels,
        .chatPath = obtainFixed<kDeepseekPath>,
        .emptyModelSuffix = ": p/chat/completions",
        .invalidSuffix = obtainFixed<kDeepseekSuffix>,
        .unsupportedSuffix = obtainFixed<kDeepseekSuffix>,
        .chatErrors = ErrorReading::MessageOrBody,
        .writeBody = writeDeepSeekBody,
        .writeReply = [](const std::string& jsonText) { return writeDeepSeekReplyOfPieces(1, jsonText); },
        .writeReplyOfPieces = writeDeepSeekReplyOfPieces,
        .replyShapes = {R"({"choices":[{"message":{"role":"assistant","content":"A"}},)"
                        R"({"message":{"role":"assistant","content":"B"}}]})",
                        {{"/choices", "array", nullptr, ""},
                         {"/choices/0", "object", "B", "B"},
                         {"/choices/0/message", "object", "B", "B"},
                         {"/choices/0/message/role", "string", "B", "B"},
                         {"/choices/0/message/content", "string", "B", "otherB"},
                         {"/choices/1/message/content", "string", "A", "Aother"}}},
        .stream = {.target = obtainFixed<kDeepseekPath>,
                   .writePiece = writeDeepSeekPiece,
                   .end = "data: [DONE]\n\n",
                   .noise = {": keep-alive\n\n", "\r\n",
                             "data: {\"choices\":[{\"delta\":{\"role\":\"assistant\",\"content\":null}}]}\n\n",
                             "data: {\"choices\":[{\"delta\":{\"reasoning_content\":\"hm\"}}]}\n\n",
                             "data: {\"choices\":[],\"usage\":{\"total_tokens\":3}}\n\n",
                             "data: {\"choices\":null}\n\n"},
                   .error = "data: {\"error\":{\"message\":\"overloaded\"}}\n\n",
                   .errorText = "overloaded"},
    };
}

ChatProvider describeGoogle() {
    return {
        .name = "GOOGLE",
        .type = KAIAssistantType::GOOGLE,
        .emulatedService = "google",
        .tls = LoopbackTLS::Valid,
        .defaultHost = "generativelanguage.googleapis.com",
        .keyParam = "key",
        .modelsPath = "/v1beta/models",
        .modelsSuffix = ": g/v1beta/models",
        .modelsErrors = ErrorReading::MessageOnly,
        .modelShapes = {R"({"models":[{"name":"models/a","supportedGenerationMethods":["x","generateContent"]},)"
                        R"({"name":"models/b","supportedGenerationMethods":["generateContent"]}]})",
                        {{"/models", "array", nullptr, ""},
                         {"/models/0", "object", "b,", "b,"},
                         {"/models/0/name", "string", "b,", "other,b,"},
                         {"/models/0/supportedGenerationMethods", "array", "b,", "b,"},
                         {"/models/0/supportedGenerationMethods/0", "string", "a,b,", "a,b,"},
                         {"/models/0/supportedGenerationMethods/1", "string", "b,", "b,"}}},
        .writeModels = writeGoogleModels,
        .chatPath = obtainGooglePath,
        .isModelInPath = true,
        .oddTargets = {{"a?b=c", "/v1beta/models/a?b=c:generateContent&key=secret"},
                       {"a#b", "/v1beta/models/a?key=secret"},
                       // The slash between two parts is not doubled.
                       {"//", "/v1beta/models//:generateContent?key=secret"}},
        .emptyModelSuffix = ": p/v1beta/models/generateContent",
        .invalidSuffix = obtainGoogleSuffix,
        .unsupportedSuffix = obtainGoogleSuffix,
        .chatErrors = ErrorReading::MessageOnly,
        .writeBody = writeGoogleBody,
        .writeReply = [](const std::string& jsonText) { return writeGoogleReplyOfPieces(1, jsonText); },
        .writeReplyOfPieces = writeGoogleReplyOfPieces,
        .replyShapes = {R"({"candidates":[{"content":{"parts":[{"text":"A"},{"text":"B"}],"role":"model"}},)"
                        R"({"content":{"role":"model","parts":[{"text":"C"}]}}]})",
                        {{"/candidates", "array", nullptr, ""},
                         {"/candidates/0", "object", "C", "C"},
                         {"/candidates/0/content", "object", "C", "C"},
                         {"/candidates/0/content/role", "string", "C", "C"},
                         {"/candidates/0/content/parts", "array", "C", "C"},
                         {"/candidates/0/content/parts/0", "object", "BC", "BC"},
                         {"/candidates/0/content/parts/0/text", "string", "BC", "otherBC"},
                         {"/candidates/1/content/parts/0/text", "string", "AB", "ABother"}}},
        .stream = {.target = obtainGoogleStreamTarget,
                   .writePiece = writeGooglePiece,
                   .end =
                       "data: {\"candidates\":[{\"finishReason\":\"STOP\",\"index\":0}],\"usageMetadata\":{}}\r\n\r\n",
                   .noise = {": comment\r\n\r\n", "data: {\"usageMetadata\":{\"totalTokenCount\":3}}\r\n\r\n",
                             "data: {\"candidates\":[{\"content\":{\"role\":\"model\",\"parts\":[{\"text\":\"hm\","
                             "\"thought\":true}]}}]}\r\n\r\n"},
                   .error = "data: {\"error\":{\"code\":503,\"message\":\"overloaded\"}}\r\n\r\n",
                   .errorText = "overloaded"},
    };
}

ChatProvider describeOllama() {
    return {
        .name = "OLLAMA",
        .type = KAIAssistantType::OLLAMA,
        .emulatedService = "ollama",
        .tls = LoopbackTLS::Off,
        .defaultHost = "localhost:11434",
        .modelsPath = "/api/tags",
        .modelsSuffix = ": g/api/tags",
        .modelsErrors = ErrorReading::Nothing,
        .modelShapes = {R"({"models":[{"name":"a"},{"name":"b"}]})",
                        {{"/models", "array", nullptr, ""},
                         {"/models/0", "object", "b,", "b,"},
                         {"/models/0/name", "string", "b,", "other,b,"}}},
        .writeModels = writeOllamaModels,
        .chatPath = obtainFixed<kOllamaPath>,
        .emptyModelSuffix = ": p/api/chat",
        .invalidSuffix = obtainFixed<kOllamaInvalidSuffix>,
        .unsupportedSuffix = obtainFixed<kOllamaSuffix>,
        .chatErrors = ErrorReading::MessageOrBody,
        .writeBody = writeOllamaBody,
        .writeReply = writeOllamaReply,
        .writeReplyOfPieces = nullptr,
        .replyShapes = {R"({"message":{"role":"assistant","content":"A"},"done":true})",
                        {{"/message", "object", nullptr, nullptr},
                         {"/message/role", "string", nullptr, nullptr},
                         {"/message/content", "string", nullptr, "other"},
                         {"/done", "boolean", "A", "A"}}},
        .stream = {.target = obtainFixed<kOllamaPath>,
                   .writePiece = writeOllamaPiece,
                   .end = "{\"model\":\"m\",\"message\":{\"role\":\"assistant\",\"content\":\"\"},\"done\":true}\n",
                   .noise = {"\n", "{\"message\":{\"role\":\"assistant\",\"content\":\"\",\"thinking\":\"hm\"}}\n"},
                   .error = "{\"error\":\"overloaded\"}\n",
                   .errorText = "{\"error\":\"overloaded\"}"},
    };
}

}  // namespace

std::string ChatProvider::obtainQuery(const std::string& key) const {
    return keyParam.empty() ? "" : "?" + keyParam + "=" + percentEncode(key);
}

std::optional<std::string> ChatProvider::obtainKeyHeader(const std::string& key) const {
    return keyHeader.empty() ? std::nullopt : std::optional(beforeKey + key);
}

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
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}
