// The Ollama protocol: the models (tags, show, ps), chat and generate, all below /api.

#include <algorithm>
#include <array>
#include <string>

#include "emulator_service.h"
#include "emulator_stream.h"

namespace {

// A name without a tag means the tag "latest".
std::string completeName(const std::string& name) {
    return name.find(':') == std::string::npos ? name + ":latest" : name;
}

std::vector<KAIEmulatedModel> offerModels(const KAIEmulatorScript& script) {
    return script.obtainModels().empty() ? std::vector<KAIEmulatedModel>{"llama3.2:latest", "qwen2.5-coder:7b"}
                                         : script.obtainModels();
}

// Throws KAIRefusal if it is not installed.
KAIEmulatedModel findModel(const KAIEmulatorScript& script, const std::string& name) {
    for (const KAIEmulatedModel& model : offerModels(script)) {
        if (completeName(model.name) == completeName(name)) {
            return model;
        }
    }
    throw KAIRefusal{.status = 404, .message = "model '" + name + "' not found"};
}

KAIEmulatorJson writeDetails() {
    return {{"parent_model", ""},       {"format", "gguf"},
            {"family", "llama"},        {"families", KAIEmulatorJson::array({"llama"})},
            {"parameter_size", "3.2B"}, {"quantization_level", "Q4_K_M"}};
}

KAIEmulatorJson writeModel(const KAIEmulatedModel& model) {
    KAIEmulatorJson entry{{"name", model.name},
                          {"model", model.name},
                          {"modified_at", "2025-01-31T09:14:03.251968212+01:00"},
                          {"size", 2019393189},
                          {"digest", "a80c4f17acd55265feec403c7aef86be0c25983ab279d83f3bcd3abbcb5b8b72"},
                          {"details", writeDetails()}};
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

// The two requests for a text: their answers contain the text in different places.
struct TextForm {
    KAIEmulatorJson (*write)(const std::string& text, const std::string& thinking);
};

KAIEmulatorJson writeMessage(const std::string& text, const std::string& thinking) {
    KAIEmulatorJson message{{"role", "assistant"}, {"content", text}};
    if (!thinking.empty()) {
        message["thinking"] = thinking;
    }
    return {{"message", message}};
}

KAIEmulatorJson writeGenerated(const std::string& text, const std::string& thinking) {
    KAIEmulatorJson members{{"response", text}};
    if (!thinking.empty()) {
        members["thinking"] = thinking;
    }
    return members;
}

constexpr TextForm kChatForm{writeMessage};
constexpr TextForm kGenerateForm{writeGenerated};

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

KAIEmulatorJson writeResponse(const KAIEmulatedTurn& turn, const KAIEmulatorJson& members, const std::string& reason) {
    KAIEmulatorJson response{{"model", turn.model}, {"created_at", obtainTimestamp()}};
    response.update(members);
    if (!reason.empty()) {
        response["done_reason"] = reason;
    }
    response["done"] = !reason.empty();
    return response;
}

KAIEmulatorJson writeLast(const KAIEmulatedTurn& turn, const KAIEmulatedChoice& choice,
                          const KAIEmulatorJson& members) {
    auto response = writeResponse(turn, members, choice.finishReason.empty() ? "stop" : choice.finishReason);
    addFigures(response, turn, estimateTokens(choice.join()));
    return response;
}

// One object per line, as this service answers a request that does not ask for a whole answer.
LoopbackReply writeStream(const KAIEmulatedTurn& turn, const KAIEmulatedChoice& choice, const KAIEmulatedStream& stream,
                          TextForm form) {
    const auto writeLine = [](const KAIEmulatorJson& response) { return writeJson(response) + "\n"; };
    KAIStreamedEvents events;
    for (const auto& piece : splitText(choice.reasoning, stream.pieceCharacters)) {
        events.opening.push_back(writeLine(writeResponse(turn, form.write("", piece), "")));
    }
    for (const auto& piece : splitChoice(choice, stream)) {
        events.texts.push_back(writeLine(writeResponse(turn, form.write(piece, ""), "")));
    }
    events.ending.push_back(writeLine(writeLast(turn, choice, form.write("", ""))));
    events.writeFailure = [&](const KAIRefusal& refusal) { return writeLine({{"error", refusal.message}}); };
    return writeStreamedReply(stream, events, {{"Content-Type", "application/x-ndjson"}});
}

LoopbackReply writeText(int status, std::string text) {
    return {.status = status, .headers = {{"Content-Type", "text/plain; charset=utf-8"}}, .body = std::move(text)};
}

class OllamaService : public KAIEmulatedService {
protected:
    LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) override {
        const auto route = std::ranges::find(kRoutes, request.path, &Route::path);
        if (route == kRoutes.end()) {
            return writeText(404, "404 page not found");
        }
        if (request.method != route->method) {
            return writeText(405, "405 method not allowed");
        }
        return (this->*route->serve)(request, script);
    }

    // This service reports every error as one string.
    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override {
        return writeJsonReply(refusal.status, {{"error", refusal.message}});
    }

private:
    using Serve = LoopbackReply (OllamaService::*)(const LoopbackRequest&, KAIEmulatorScript&) const;
    struct Route {
        std::string_view method;
        std::string_view path;
        Serve serve;
    };
    static const std::array<Route, 7> kRoutes;

    static std::string readModel(const KAIEmulatorJson& body) {
        std::string model = readText(body, "model", "");
        if (model.empty()) {
            throw KAIRefusal{.status = 400, .message = "model is required"};
        }
        return model;
    }

    // NOLINTBEGIN(readability-convert-member-functions-to-static): entries of the table of routes
    LoopbackReply listModels(const LoopbackRequest& /*request*/, KAIEmulatorScript& script) const {
        auto list = KAIEmulatorJson::array();
        for (const auto& model : offerModels(script)) {
            list.push_back(writeModel(model));
        }
        return writeJsonReply(200, {{"models", list}});
    }

    // The models in memory: here, all.
    LoopbackReply listRunning(const LoopbackRequest& /*request*/, KAIEmulatorScript& script) const {
        auto list = KAIEmulatorJson::array();
        for (const auto& model : offerModels(script)) {
            KAIEmulatorJson entry = writeModel(model);
            entry.erase("modified_at");
            entry["expires_at"] = obtainTimestamp();
            entry["size_vram"] = entry["size"];
            entry["context_length"] = 4096;
            list.push_back(entry);
        }
        return writeJsonReply(200, {{"models", list}});
    }

    LoopbackReply show(const LoopbackRequest& request, KAIEmulatorScript& script) const {
        const KAIEmulatedModel model = findModel(script, readModel(readBody(request)));
        return writeJsonReply(200, {{"license", "LLAMA COMMUNITY LICENSE"},
                                    {"modelfile", "FROM " + model.name},
                                    {"parameters", "temperature 0.7"},
                                    {"template", "{{ .Prompt }}"},
                                    {"details", writeDetails()},
                                    {"model_info", {{"general.architecture", "llama"}}},
                                    {"capabilities", KAIEmulatorJson::array({"completion"})},
                                    {"modified_at", obtainTimestamp()}});
    }

    LoopbackReply tellVersion(const LoopbackRequest& /*request*/, KAIEmulatorScript& /*script*/) const {
        return writeJsonReply(200, {{"version", "0.40.12"}});
    }

    LoopbackReply tellLife(const LoopbackRequest& /*request*/, KAIEmulatorScript& /*script*/) const {
        return writeText(200, "Ollama is running");
    }
    // NOLINTEND(readability-convert-member-functions-to-static)

    LoopbackReply chat(const LoopbackRequest& request, KAIEmulatorScript& script) const {
        const KAIEmulatorJson body = readBody(request);
        KAIEmulatedTurn turn{.model = readModel(body)};
        readMessages(body, turn);
        return say(body, turn, script, kChatForm);
    }

    LoopbackReply generate(const LoopbackRequest& request, KAIEmulatorScript& script) const {
        const KAIEmulatorJson body = readBody(request);
        KAIEmulatedTurn turn{.model = readModel(body), .instructions = readText(body, "system", "")};
        if (const std::string prompt = readText(body, "prompt", ""); !prompt.empty()) {
            turn.messages.push_back({"user", prompt});
        }
        return say(body, turn, script, kGenerateForm);
    }

    LoopbackReply say(const KAIEmulatorJson& body, const KAIEmulatedTurn& turn, KAIEmulatorScript& script,
                      TextForm form) const {
        const bool isStreamed = readStream(body);
        checkOptions(body);
        static_cast<void>(findModel(script, turn.model));
        if (turn.messages.empty()) {
            return writeJsonReply(200, writeResponse(turn, form.write("", ""), "load"));
        }
        const KAIEmulatedAnswer answer = script.decide(turn);
        const KAIEmulatedChoice choice = answer.choices.empty() ? KAIEmulatedChoice{} : answer.choices.front();
        return deliver(answer, [&] {
            return isStreamed
                       ? writeStream(turn, choice, *answer.stream, form)
                       : writeJsonReply(200, writeLast(turn, choice, form.write(choice.join(), choice.reasoning)));
        });
    }
};

const std::array<OllamaService::Route, 7> OllamaService::kRoutes{{
    {"GET", "/", &OllamaService::tellLife},
    {"GET", "/api/version", &OllamaService::tellVersion},
    {"GET", "/api/tags", &OllamaService::listModels},
    {"GET", "/api/ps", &OllamaService::listRunning},
    {"POST", "/api/show", &OllamaService::show},
    {"POST", "/api/chat", &OllamaService::chat},
    {"POST", "/api/generate", &OllamaService::generate},
}};

}  // namespace

std::unique_ptr<KAIEmulatedService> makeOllamaService(const KAIEmulatorOptions&) {
    return std::make_unique<OllamaService>();
}
