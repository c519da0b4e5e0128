// The Gemini protocol: GET /v1beta/models and POST /v1beta/models/MODEL:generateContent.

#include <algorithm>
#include <array>
#include <string>

#include "emulator_service.h"

namespace {

constexpr std::string_view kModelsPath = "/v1beta/models";
constexpr std::string_view kGenerateMethod = ":generateContent";

KAIRefusal refuseArgument(std::string message) {
    return {.status = 400, .message = std::move(message)};
}

KAIRefusal refuseName(std::string_view name, const std::string& place) {
    return refuseArgument("Invalid JSON payload received. Unknown name \"" + std::string(name) + "\"" +
                          (place.empty() ? "" : " at '" + place + "'") + ": Cannot find field.");
}

// What this protocol calls the kind of an error, by its HTTP status.
const char* describeStatus(int status) {
    switch (status) {
        case 400:
            return "INVALID_ARGUMENT";
        case 401:
            return "UNAUTHENTICATED";
        case 403:
            return "PERMISSION_DENIED";
        case 404:
            return "NOT_FOUND";
        case 429:
            return "RESOURCE_EXHAUSTED";
        case 499:
            return "CANCELLED";
        case 503:
            return "UNAVAILABLE";
        case 504:
            return "DEADLINE_EXCEEDED";
        default:
            return status < 500 ? "FAILED_PRECONDITION" : "INTERNAL";
    }
}

KAIEmulatedModel describeModel(const char* name, const char* title, const char* method) {
    return {name, {{"displayName", title}, {"supportedGenerationMethods", KAIEmulatorJson::array({method})}}};
}

std::vector<KAIEmulatedModel> offerModels(const KAIEmulatorScript& script) {
    if (!script.obtainModels().empty()) {
        return script.obtainModels();
    }
    KAIEmulatedModel flash("gemini-2.0-flash", {{"displayName", "Gemini 2.0 Flash"}});
    KAIEmulatedModel pro("gemini-1.5-pro", {{"displayName", "Gemini 1.5 Pro"}, {"outputTokenLimit", 8192}});
    return {pro, flash, describeModel("text-embedding-004", "Text Embedding 004", "embedContent"),
            describeModel("aqa", "Model that performs Attributed Question Answering.", "generateAnswer")};
}

KAIEmulatorJson writeModel(const KAIEmulatedModel& model) {
    KAIEmulatorJson entry{{"name", "models/" + model.name},
                          {"version", "001"},
                          {"displayName", model.name},
                          {"description", "A model of the emulator"},
                          {"inputTokenLimit", 1048576},
                          {"outputTokenLimit", 8192},
                          {"supportedGenerationMethods", {"generateContent", "countTokens"}},
                          {"temperature", 1},
                          {"topP", 0.95},
                          {"topK", 40},
                          {"maxTemperature", 2}};
    entry.update(model.members);
    return entry;
}

void checkNames(const KAIEmulatorJson& object, const std::string& place,
                std::initializer_list<std::string_view> known) {
    if (!object.is_object()) {
        throw refuseArgument("Invalid value at '" + place + "' (an object is expected)");
    }
    for (const auto& [name, value] : object.items()) {
        if (std::ranges::find(known, name) == known.end()) {
            throw refuseName(name, place);
        }
    }
}

// Members have two spellings, and a single value may stand for an array of one.
const KAIEmulatorJson* findEither(const KAIEmulatorJson& object, const char* name, const char* otherName) {
    const auto* member = findMember(object, name);
    return member != nullptr ? member : findMember(object, otherName);
}

std::string readPart(const KAIEmulatorJson& part, const std::string& place) {
    checkNames(part, place, {"text", "thought", "thoughtSignature", "thought_signature"});
    const auto* text = findMember(part, "text");
    if (text == nullptr) {
        throw refuseArgument("* GenerateContentRequest." + place + ".data: required oneof field 'data' must have one " +
                             "initialized field");
    }
    if (!text->is_string()) {
        throw refuseArgument("Invalid value at '" + place + ".text' (TYPE_STRING), " + text->dump());
    }
    return text->get<std::string>();
}

std::string readParts(const KAIEmulatorJson& content, const std::string& place) {
    const auto* parts = findMember(content, "parts");
    if (parts == nullptr || (parts->is_array() && parts->empty())) {
        throw refuseArgument("* GenerateContentRequest." + place + ".parts: contents.parts must not be empty.");
    }
    if (!parts->is_array()) {
        return readPart(*parts, place + ".parts");
    }
    std::string text;
    for (std::size_t i = 0; i < parts->size(); ++i) {
        text += readPart((*parts)[i], place + ".parts[" + std::to_string(i) + "]");
    }
    return text;
}

KAIEmulatedMessage readContent(const KAIEmulatorJson& content, const std::string& place) {
    checkNames(content, place, {"role", "parts"});
    const auto* role = findMember(content, "role");
    const std::string name = role == nullptr ? "user" : role->is_string() ? role->get<std::string>() : role->dump();
    if (name != "user" && name != "model") {
        throw refuseArgument("Please use a valid role: user, model.");
    }
    return {name == "model" ? "assistant" : "user", readParts(content, place)};
}

void readContents(const KAIEmulatorJson& body, KAIEmulatedTurn& turn) {
    const auto* contents = findMember(body, "contents");
    if (contents == nullptr || (contents->is_array() && contents->empty())) {
        throw refuseArgument("* GenerateContentRequest.contents: contents is not specified");
    }
    if (!contents->is_array()) {
        turn.messages.push_back(readContent(*contents, "contents"));
        return;
    }
    for (std::size_t i = 0; i < contents->size(); ++i) {
        turn.messages.push_back(readContent((*contents)[i], "contents[" + std::to_string(i) + "]"));
    }
}

void checkConfiguration(const KAIEmulatorJson& body) {
    const auto* configuration = findEither(body, "generationConfig", "generation_config");
    if (configuration == nullptr) {
        return;
    }
    checkNames(*configuration, "generation_config",
               {"temperature", "topP", "top_p", "topK", "top_k", "candidateCount", "candidate_count", "maxOutputTokens",
                "max_output_tokens", "stopSequences", "stop_sequences", "seed", "thinkingConfig"});
    const auto* temperature = findMember(*configuration, "temperature");
    if (temperature == nullptr) {
        return;
    }
    if (!temperature->is_number()) {
        throw refuseArgument("Invalid value at 'generation_config.temperature' (TYPE_FLOAT), " + temperature->dump());
    }
    if (const double value = temperature->get<double>(); value < 0 || value > 2) {
        throw refuseArgument("* GenerateContentRequest.generation_config.temperature: temperature must be in the " +
                             std::string("range [0.0, 2.0]."));
    }
}

KAIEmulatedTurn readTurn(const LoopbackRequest& request, const std::string& model) {
    const auto body = parseBody(request);
    if (!body) {
        throw refuseArgument("Invalid JSON payload received. The body cannot be parsed.");
    }
    checkNames(*body, "",
               {"contents", "systemInstruction", "system_instruction", "generationConfig", "generation_config",
                "safetySettings", "safety_settings", "tools", "toolConfig", "tool_config", "cachedContent",
                "cached_content", "model"});
    KAIEmulatedTurn turn{.model = model};
    if (const auto* instruction = findEither(*body, "systemInstruction", "system_instruction")) {
        turn.instructions = readContent(*instruction, "system_instruction").text;
    }
    checkConfiguration(*body);
    readContents(*body, turn);
    if (turn.messages.back().role != "user") {
        throw refuseArgument("Please ensure that the last content has the role user.");
    }
    return turn;
}

KAIEmulatorJson writeSafetyRatings() {
    auto ratings = KAIEmulatorJson::array();
    for (const auto* category : {"HARM_CATEGORY_HATE_SPEECH", "HARM_CATEGORY_DANGEROUS_CONTENT",
                                 "HARM_CATEGORY_HARASSMENT", "HARM_CATEGORY_SEXUALLY_EXPLICIT"}) {
        ratings.push_back({{"category", category}, {"probability", "NEGLIGIBLE"}});
    }
    return ratings;
}

KAIEmulatorJson writeCandidate(const KAIEmulatedChoice& choice, std::size_t index) {
    KAIEmulatorJson content = KAIEmulatorJson::object();
    auto parts = KAIEmulatorJson::array();
    if (!choice.reasoning.empty()) {
        parts.push_back({{"text", choice.reasoning}, {"thought", true}});
    }
    for (const auto& part : choice.parts) {
        parts.push_back({{"text", part}});
    }
    if (!choice.reasoning.empty() && !choice.parts.empty()) {
        parts.back()["thoughtSignature"] = "ZW11bGF0b3I=";
    }
    // A candidate that was stopped before its first word has a role and no parts.
    if (!parts.empty()) {
        content["parts"] = parts;
    }
    content["role"] = "model";
    return {{"content", content},
            {"finishReason", choice.finishReason.empty() ? "STOP" : choice.finishReason},
            {"index", index},
            {"safetyRatings", writeSafetyRatings()},
            {"avgLogprobs", -0.12}};
}

KAIEmulatorJson countTokens(std::size_t tokens) {
    return KAIEmulatorJson::array({{{"modality", "TEXT"}, {"tokenCount", tokens}}});
}

KAIEmulatorJson writeUsage(const KAIEmulatedTurn& turn, const KAIEmulatedAnswer& answer) {
    const std::size_t promptTokens = estimateTokens(turn);
    std::size_t answerTokens = 0;
    std::size_t thoughtTokens = 0;
    for (const auto& choice : answer.choices) {
        answerTokens += estimateTokens(choice.join());
        thoughtTokens += estimateTokens(choice.reasoning);
    }
    KAIEmulatorJson usage{{"promptTokenCount", promptTokens}};
    if (!answer.choices.empty()) {
        usage["candidatesTokenCount"] = answerTokens;
    }
    usage["totalTokenCount"] = promptTokens + answerTokens + thoughtTokens;
    usage["promptTokensDetails"] = countTokens(promptTokens);
    if (!answer.choices.empty()) {
        usage["candidatesTokensDetails"] = countTokens(answerTokens);
    }
    if (thoughtTokens > 0) {
        usage["thoughtsTokenCount"] = thoughtTokens;
    }
    return usage;
}

// Without a candidate the prompt was blocked: then the member "candidates" is absent.
KAIEmulatorJson writeResponse(const KAIEmulatedTurn& turn, const KAIEmulatedAnswer& answer) {
    KAIEmulatorJson response = KAIEmulatorJson::object();
    for (const auto& choice : answer.choices) {
        auto& candidates = response["candidates"];
        candidates.push_back(writeCandidate(choice, candidates.size()));
    }
    if (answer.choices.empty()) {
        response["promptFeedback"] = {{"blockReason", "SAFETY"}, {"safetyRatings", writeSafetyRatings()}};
    }
    response["usageMetadata"] = writeUsage(turn, answer);
    response["modelVersion"] = turn.model;
    response["responseId"] = makeIdentifier("", 20);
    return response;
}

// This service indents what it sends.
LoopbackReply writeReply(int status, const KAIEmulatorJson& body) {
    LoopbackReply reply{.status = status,
                        .headers = {{"Content-Type", "application/json; charset=UTF-8"},
                                    {"Vary", "Origin"},
                                    {"X-Content-Type-Options", "nosniff"}}};
    reply.body = writeJson(body, 2) + "\n";
    return reply;
}

LoopbackReply writeNotFoundPage() {
    return {.status = 404,
            .headers = {{"Content-Type", "text/html; charset=UTF-8"}},
            .body =
                "<!DOCTYPE html>\n<html lang=en>\n<title>Error 404 (Not Found)</title>\n"
                "<p>The requested URL was not found on this server.\n"};
}

class GoogleService : public KAIEmulatedService {
public:
    explicit GoogleService(const KAIEmulatorOptions& options) : m_key(options.key) {}

protected:
    LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) override {
        const std::string_view path = request.path;
        if (path == kModelsPath && request.method == "GET") {
            checkKey(request);
            return listModels(script);
        }
        const bool isModel = path.starts_with(std::string(kModelsPath) + "/") && path.ends_with(kGenerateMethod);
        if (!isModel || request.method != "POST") {
            return writeNotFoundPage();
        }
        checkKey(request);
        const auto model =
            path.substr(kModelsPath.size() + 1, path.size() - kModelsPath.size() - 1 - kGenerateMethod.size());
        return generate(request, decodePathText(model), script);
    }

    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override {
        KAIEmulatorJson error{{"code", refusal.status},
                              {"message", refusal.message},
                              {"status", refusal.type.empty() ? describeStatus(refusal.status) : refusal.type}};
        if (!refusal.code.empty()) {
            error["details"] = KAIEmulatorJson::array({{{"@type", "type.googleapis.com/google.rpc.ErrorInfo"},
                                                        {"reason", refusal.code},
                                                        {"domain", "googleapis.com"}}});
        }
        return writeReply(refusal.status, {{"error", error}});
    }

private:
    void checkKey(const LoopbackRequest& request) const {
        const auto* key = request.findQueryParam("key");
        if (key == nullptr) {
            key = request.findHeader("x-goog-api-key");
        }
        if (key == nullptr || key->empty()) {
            throw KAIRefusal{.status = 403,
                             .message =
                                 "Method doesn't allow unregistered callers (callers without established "
                                 "identity). Please use API Key or other form of API consumer identity to call "
                                 "this API."};
        }
        if (!isKeyAccepted(*key, m_key)) {
            throw KAIRefusal{
                .status = 400, .message = "API key not valid. Please pass a valid API key.", .code = "API_KEY_INVALID"};
        }
    }

    static LoopbackReply listModels(const KAIEmulatorScript& script) {
        auto list = KAIEmulatorJson::array();
        for (const auto& model : offerModels(script)) {
            list.push_back(writeModel(model));
        }
        return writeReply(200, {{"models", list}});
    }

    LoopbackReply generate(const LoopbackRequest& request, const std::string& model, KAIEmulatorScript& script) const {
        if (!isOffered(offerModels(script), model)) {
            throw KAIRefusal{.status = 404,
                             .message = "models/" + model +
                                        " is not found for API version v1beta, or is not supported for "
                                        "generateContent. Call ListModels to see the list of available models and "
                                        "their supported methods."};
        }
        const KAIEmulatedTurn turn = readTurn(request, model);
        const KAIEmulatedAnswer answer = script.decide(turn);
        return deliver(answer, [&] { return writeReply(200, writeResponse(turn, answer)); });
    }

    std::string m_key;
};

}  // namespace

std::unique_ptr<KAIEmulatedService> makeGoogleService(const KAIEmulatorOptions& options) {
    return std::make_unique<GoogleService>(options);
}
