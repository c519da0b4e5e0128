// The DeepSeek chat-completions protocol: GET /models and POST /chat/completions.

#include <algorithm>
#include <array>
#include <string>

#include "emulator_service.h"

namespace {

constexpr const char* kInvalidRequest = "invalid_request_error";

KAIRefusal refuseShape(const std::string& what) {
    return {.status = 422, .message = "Failed to deserialize the JSON body into the target type: " + what};
}

std::vector<KAIEmulatedModel> offerModels(const KAIEmulatorScript& script) {
    return script.obtainModels().empty() ? std::vector<KAIEmulatedModel>{"deepseek-chat", "deepseek-reasoner"}
                                         : script.obtainModels();
}

std::string readText(const KAIEmulatorJson& object, const char* name, const std::string& place) {
    const auto* member = findMember(object, name);
    if (member == nullptr) {
        throw refuseShape(place + "missing field `" + name + "`");
    }
    if (!member->is_string()) {
        throw refuseShape(place + name + ": invalid type: " + member->type_name() + ", expected a string");
    }
    return member->get<std::string>();
}

KAIEmulatorJson readBody(const LoopbackRequest& request) {
    if (!isJsonAnnounced(request)) {
        throw KAIRefusal{.status = 415, .message = "Expected request with `Content-Type: application/json`"};
    }
    auto body = parseBody(request);
    if (!body) {
        throw KAIRefusal{.status = 400, .message = "Failed to parse the request body as JSON"};
    }
    if (!body->is_object()) {
        throw refuseShape("expected an object");
    }
    return *std::move(body);
}

void readMessage(const KAIEmulatorJson& message, std::size_t index, KAIEmulatedTurn& turn) {
    const std::string place = "messages[" + std::to_string(index) + "]: ";
    const std::string role = readText(message, "role", place);
    const std::string content = readText(message, "content", place);
    if (role == "system") {
        turn.instructions += content;
    } else if (role == "user" || role == "assistant") {
        turn.messages.push_back({role, content});
    } else {
        throw refuseShape(place + "unknown variant `" + role +
                          "`, expected one of `system`, `user`, `assistant`, `tool`");
    }
}

void checkOptions(const KAIEmulatorJson& body) {
    if (const auto* temperature = findMember(body, "temperature"); temperature != nullptr && !temperature->is_null()) {
        if (!temperature->is_number()) {
            throw refuseShape("temperature: invalid type: " + std::string(temperature->type_name()) +
                              ", expected a number");
        }
        if (const double value = temperature->get<double>(); value < 0 || value > 2) {
            throw KAIRefusal{.status = 400,
                             .message = "Invalid temperature value, the valid range of temperature is [0, 2.0]"};
        }
    }
    if (const auto* stream = findMember(body, "stream"); stream != nullptr && *stream == true) {
        throw KAIRefusal{.status = 400, .message = "This emulator does not stream"};
    }
}

KAIEmulatedTurn readTurn(const KAIEmulatorJson& body, const KAIEmulatorScript& script) {
    KAIEmulatedTurn turn;
    turn.model = readText(body, "model", "");
    const auto* messages = findMember(body, "messages");
    if (messages == nullptr || !messages->is_array()) {
        throw refuseShape(messages == nullptr ? "missing field `messages`" : "messages: expected a sequence");
    }
    for (std::size_t i = 0; i < messages->size(); ++i) {
        readMessage((*messages)[i], i, turn);
    }
    checkOptions(body);
    if (!isOffered(offerModels(script), turn.model)) {
        throw KAIRefusal{.status = 400, .message = "Model Not Exist"};
    }
    if (turn.messages.empty()) {
        throw KAIRefusal{.status = 400, .message = "Empty input messages"};
    }
    if (turn.messages.back().role != "user") {
        throw KAIRefusal{.status = 400, .message = "The last message must have role `user`"};
    }
    return turn;
}

KAIEmulatorJson writeChoice(const KAIEmulatedChoice& choice, std::size_t index) {
    KAIEmulatorJson message{{"role", "assistant"}, {"content", choice.join()}};
    if (!choice.reasoning.empty()) {
        message["reasoning_content"] = choice.reasoning;
    }
    return {{"index", index},
            {"message", message},
            {"logprobs", nullptr},
            {"finish_reason", choice.finishReason.empty() ? "stop" : choice.finishReason}};
}

KAIEmulatorJson writeCompletion(const KAIEmulatedTurn& turn, const KAIEmulatedAnswer& answer) {
    auto choices = KAIEmulatorJson::array();
    std::size_t answerTokens = 0;
    std::size_t reasoningTokens = 0;
    for (const auto& choice : answer.choices) {
        choices.push_back(writeChoice(choice, choices.size()));
        answerTokens += estimateTokens(choice.join());
        reasoningTokens += estimateTokens(choice.reasoning);
    }
    const std::size_t promptTokens = estimateTokens(turn);
    KAIEmulatorJson usage{{"prompt_tokens", promptTokens},
                          {"completion_tokens", answerTokens + reasoningTokens},
                          {"total_tokens", promptTokens + answerTokens + reasoningTokens},
                          {"prompt_tokens_details", {{"cached_tokens", 0}}}};
    if (reasoningTokens > 0) {
        usage["completion_tokens_details"] = {{"reasoning_tokens", reasoningTokens}};
    }
    usage["prompt_cache_hit_tokens"] = 0;
    usage["prompt_cache_miss_tokens"] = promptTokens;
    return {{"id", makeIdentifier("", 32)},
            {"object", "chat.completion"},
            {"created", obtainNow()},
            {"model", turn.model},
            {"choices", choices},
            {"usage", usage},
            {"system_fingerprint", "fp_emulator"}};
}

class DeepSeekService : public KAIEmulatedService {
public:
    explicit DeepSeekService(const KAIEmulatorOptions& options) : m_key(options.key) {
        if (options.pathPrefix.empty()) {
            m_prefixes = {"", "/v1"};
        } else {
            m_prefixes = {options.pathPrefix};
        }
    }

protected:
    LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) override {
        const bool isModelList = isRoute(request.path, "/models");
        if (!isModelList && !isRoute(request.path, "/chat/completions")) {
            return writeJsonReply(404, {{"error_msg", "Not Found. Please check the configuration."}});
        }
        if (request.method != (isModelList ? "GET" : "POST")) {
            return writeJsonReply(405, {{"error_msg", "Method Not Allowed."}},
                                  {{"Allow", isModelList ? "GET" : "POST"}});
        }
        if (!isBearerAccepted(request, m_key)) {
            throw KAIRefusal{.status = 401, .message = "Authentication Fails, Your api key: **** is invalid"};
        }
        return isModelList ? listModels(script) : complete(request, script);
    }

    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override {
        const std::string type = refusal.status == 401 ? "authentication_error" : kInvalidRequest;
        return writeJsonReply(
            refusal.status,
            {{"error",
              {{"message", refusal.message},
               {"type", refusal.type.empty() ? type : refusal.type},
               {"param", refusal.param.empty() ? KAIEmulatorJson(nullptr) : KAIEmulatorJson(refusal.param)},
               {"code", refusal.code.empty() ? kInvalidRequest : refusal.code}}}});
    }

private:
    [[nodiscard]] bool isRoute(const std::string& path, const std::string& route) const {
        return std::ranges::any_of(m_prefixes, [&](const std::string& prefix) { return path == prefix + route; });
    }

    static LoopbackReply listModels(const KAIEmulatorScript& script) {
        auto data = KAIEmulatorJson::array();
        for (const auto& model : offerModels(script)) {
            KAIEmulatorJson entry{{"id", model.name}, {"object", "model"}, {"owned_by", "deepseek"}};
            entry.update(model.members);
            data.push_back(entry);
        }
        return writeJsonReply(200, {{"object", "list"}, {"data", data}});
    }

    LoopbackReply complete(const LoopbackRequest& request, KAIEmulatorScript& script) const {
        const KAIEmulatedTurn turn = readTurn(readBody(request), script);
        const KAIEmulatedAnswer answer = script.decide(turn);
        return deliver(answer, [&] {
            return writeJsonReply(200, writeCompletion(turn, answer), {{"x-ds-trace-id", makeIdentifier("", 32)}});
        });
    }

    std::string m_key;
    std::vector<std::string> m_prefixes;
};

}  // namespace

std::unique_ptr<KAIEmulatedService> makeDeepSeekService(const KAIEmulatorOptions& options) {
    return std::make_unique<DeepSeekService>(options);
}
