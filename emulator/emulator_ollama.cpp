// The Ollama protocol: GET /api/tags and POST /api/chat.

#include <algorithm>
#include <array>
#include <string>

#include "emulator_service.h"

namespace {

// A name without a tag means the tag "latest".
std::string completeName(const std::string& name) {
    return name.find(':') == std::string::npos ? name + ":latest" : name;
}

std::vector<KAIEmulatedModel> offerModels(const KAIEmulatorScript& script) {
    return script.obtainModels().empty() ? std::vector<KAIEmulatedModel>{"llama3.2:latest", "qwen2.5-coder:7b"}
                                         : script.obtainModels();
}

bool isInstalled(const KAIEmulatorScript& script, const std::string& name) {
    return std::ranges::any_of(offerModels(script), [&](const KAIEmulatedModel& model) {
        return completeName(model.name) == completeName(name);
    });
}

KAIEmulatorJson writeModel(const KAIEmulatedModel& model) {
    KAIEmulatorJson entry{{"name", model.name},
                          {"model", model.name},
                          {"modified_at", "2025-01-31T09:14:03.251968212+01:00"},
                          {"size", 2019393189},
                          {"digest", "a80c4f17acd55265feec403c7aef86be0c25983ab279d83f3bcd3abbcb5b8b72"},
                          {"details",
                           {{"parent_model", ""},
                            {"format", "gguf"},
                            {"family", "llama"},
                            {"families", KAIEmulatorJson::array({"llama"})},
                            {"parameter_size", "3.2B"},
                            {"quantization_level", "Q4_K_M"}}}};
    entry.update(model.members);
    return entry;
}

KAIRefusal refuseType(const std::string& member, const KAIEmulatorJson& value, const char* wanted) {
    return {.status = 400,
            .message = std::string("json: cannot unmarshal ") + value.type_name() +
                       " into Go struct field ChatRequest." + member + " of type " + wanted};
}

std::string readText(const KAIEmulatorJson& object, const char* name, const std::string& place) {
    const auto* member = findMember(object, name);
    if (member == nullptr || member->is_null()) {
        return {};
    }
    if (!member->is_string()) {
        throw refuseType(place + name, *member, "string");
    }
    return member->get<std::string>();
}

void checkOptions(const KAIEmulatorJson& body) {
    const auto* options = findMember(body, "options");
    if (options == nullptr || options->is_null()) {
        return;
    }
    if (!options->is_object()) {
        throw refuseType("options", *options, "map[string]interface {}");
    }
    if (const auto* temperature = findMember(*options, "temperature");
        temperature != nullptr && !temperature->is_number()) {
        throw KAIRefusal{.status = 400, .message = "option \"temperature\" must be of type float32"};
    }
}

void readMessages(const KAIEmulatorJson& body, KAIEmulatedTurn& turn) {
    const auto* messages = findMember(body, "messages");
    if (messages == nullptr || messages->is_null()) {
        return;
    }
    if (!messages->is_array()) {
        throw refuseType("messages", *messages, "[]api.Message");
    }
    for (const auto& message : *messages) {
        if (!message.is_object()) {
            throw refuseType("messages", message, "api.Message");
        }
        const std::string role = readText(message, "role", "messages.");
        const std::string content = readText(message, "content", "messages.");
        if (role == "system") {
            turn.instructions += content;
        } else if (role == "user" || role == "assistant") {
            turn.messages.push_back({role, content});
        } else {
            throw KAIRefusal{
                .status = 400,
                .message = "invalid role: \"" + role + "\", role must be one of [system, user, assistant, tool]"};
        }
    }
}

bool readStream(const KAIEmulatorJson& body) {
    const auto* stream = findMember(body, "stream");
    if (stream != nullptr && !stream->is_boolean() && !stream->is_null()) {
        throw refuseType("stream", *stream, "bool");
    }
    return stream == nullptr || *stream != false;
}

KAIEmulatorJson readBody(const LoopbackRequest& request) {
    if (request.body.empty()) {
        throw KAIRefusal{.status = 400, .message = "missing request body"};
    }
    auto body = parseBody(request);
    if (!body) {
        throw KAIRefusal{.status = 400, .message = "invalid character in the request body"};
    }
    if (!body->is_object()) {
        throw refuseType("", *body, "api.ChatRequest");
    }
    return *std::move(body);
}

KAIEmulatorJson writeMessage(const std::string& text, const std::string& reasoning) {
    KAIEmulatorJson message{{"role", "assistant"}, {"content", text}};
    if (!reasoning.empty()) {
        message["thinking"] = reasoning;
    }
    return message;
}

void addFigures(KAIEmulatorJson& response, const KAIEmulatedTurn& turn, std::size_t answerTokens) {
    constexpr std::int64_t kNanosecondsToLoad = 41'873'500;
    constexpr std::int64_t kNanosecondsAToken = 13'500'000;
    const auto promptTokens = estimateTokens(turn);
    const auto promptTime = static_cast<std::int64_t>(promptTokens) * kNanosecondsAToken / 10;
    const auto answerTime = static_cast<std::int64_t>(answerTokens) * kNanosecondsAToken;
    response["total_duration"] = kNanosecondsToLoad + promptTime + answerTime;
    response["load_duration"] = kNanosecondsToLoad;
    response["prompt_eval_count"] = promptTokens;
    response["prompt_eval_duration"] = promptTime;
    response["eval_count"] = answerTokens;
    response["eval_duration"] = answerTime;
}

KAIEmulatorJson writeResponse(const KAIEmulatedTurn& turn, const KAIEmulatorJson& message, const std::string& reason) {
    KAIEmulatorJson response{{"model", turn.model}, {"created_at", obtainTimestamp()}, {"message", message}};
    if (!reason.empty()) {
        response["done_reason"] = reason;
    }
    response["done"] = !reason.empty();
    return response;
}

KAIEmulatorJson writeWhole(const KAIEmulatedTurn& turn, const KAIEmulatedChoice& choice) {
    const auto message = writeMessage(choice.join(), choice.reasoning);
    auto response = writeResponse(turn, message, choice.finishReason.empty() ? "stop" : choice.finishReason);
    addFigures(response, turn, estimateTokens(choice.join()));
    return response;
}

// One object a line, as this service answers a request that does not ask for a whole one.
LoopbackReply writeStream(const KAIEmulatedTurn& turn, const KAIEmulatedChoice& choice) {
    LoopbackReply reply{.headers = {{"Content-Type", "application/x-ndjson"}}, .framing = LoopbackFraming::Chunked};
    for (const auto& part : choice.parts) {
        reply.body += writeJson(writeResponse(turn, writeMessage(part, ""), "")) + "\n";
    }
    auto last = writeResponse(turn, writeMessage("", ""), "stop");
    addFigures(last, turn, estimateTokens(choice.join()));
    reply.body += writeJson(last) + "\n";
    return reply;
}

LoopbackReply writeText(int status, std::string text) {
    return {.status = status, .headers = {{"Content-Type", "text/plain; charset=utf-8"}}, .body = std::move(text)};
}

class OllamaService : public KAIEmulatedService {
protected:
    LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) override {
        const std::string route = request.method + " " + request.path;
        if (route == "GET /api/tags") {
            return listModels(script);
        }
        if (route == "POST /api/chat") {
            return chat(request, script);
        }
        if (route == "GET /api/version") {
            return writeJsonReply(200, {{"version", "0.6.2"}});
        }
        if (route == "GET /") {
            return writeText(200, "Ollama is running");
        }
        const bool isKnown = request.path == "/api/tags" || request.path == "/api/chat";
        return isKnown ? writeText(405, "405 method not allowed") : writeText(404, "404 page not found");
    }

    // Everything that may be wrong is told in one string here.
    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override {
        return writeJsonReply(refusal.status, {{"error", refusal.message}});
    }

private:
    static LoopbackReply listModels(const KAIEmulatorScript& script) {
        auto list = KAIEmulatorJson::array();
        for (const auto& model : offerModels(script)) {
            list.push_back(writeModel(model));
        }
        return writeJsonReply(200, {{"models", list}});
    }

    LoopbackReply chat(const LoopbackRequest& request, KAIEmulatorScript& script) const {
        const KAIEmulatorJson body = readBody(request);
        KAIEmulatedTurn turn;
        turn.model = readText(body, "model", "");
        if (turn.model.empty()) {
            throw KAIRefusal{.status = 400, .message = "model is required"};
        }
        const bool isStreamed = readStream(body);
        readMessages(body, turn);
        checkOptions(body);
        if (!isInstalled(script, turn.model)) {
            throw KAIRefusal{.status = 404, .message = "model \"" + turn.model + "\" not found, try pulling it first"};
        }
        if (turn.messages.empty()) {
            return writeJsonReply(200, writeResponse(turn, writeMessage("", ""), "load"));
        }
        const KAIEmulatedAnswer answer = script.decide(turn);
        const KAIEmulatedChoice choice = answer.choices.empty() ? KAIEmulatedChoice{} : answer.choices.front();
        return deliver(answer, [&] {
            return isStreamed ? writeStream(turn, choice) : writeJsonReply(200, writeWhole(turn, choice));
        });
    }
};

}  // namespace

std::unique_ptr<KAIEmulatedService> makeOllamaService(const KAIEmulatorOptions&) {
    return std::make_unique<OllamaService>();
}
