// The Gemini protocol: the list of models, one model, and its methods generateContent, streamGenerateContent and
// countTokens, all below /v1beta/models.

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "emulator_service.h"
#include "emulator_stream.h"

namespace {

constexpr std::string_view kModelsPath = "/v1beta/models";

KAIRefusal refuseArgument(std::string message) {
    return {.status = 400, .message = std::move(message)};
}

KAIRefusal refuseName(std::string_view name, const std::string& place) {
    return refuseArgument("Invalid JSON payload received. Unknown name \"" + std::string(name) + "\"" +
                          (place.empty() ? "" : " at '" + place + "'") + ": Cannot find field.");
}

// The protocol's name for an error, by its HTTP status.
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
    KAIEmulatedModel flash("gemini-3.5-flash", {{"displayName", "Gemini 3.5 Flash"}});
    KAIEmulatedModel pro("gemini-3.1-pro-preview",
                         {{"displayName", "Gemini 3.1 Pro Preview"}, {"outputTokenLimit", 65536}});
    return {pro, flash, describeModel("gemini-embedding-2", "Gemini Embedding 2", "embedContent"),
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

// Members have two spellings, and a single value is accepted instead of an array of one.
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
                "max_output_tokens", "stopSequences", "stop_sequences", "seed", "thinkingConfig", "thinking_config",
                "responseMimeType", "response_mime_type", "responseSchema", "response_schema"});
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
    // A candidate that stopped before its first word has a role and no parts.
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

// A candidate in a stream: one piece of it, the last one if it has a finish reason.
KAIEmulatorJson writeCandidatePiece(const std::string& text, std::size_t index, const std::string& finishReason) {
    KAIEmulatorJson candidate{{"content", {{"parts", KAIEmulatorJson::array({{{"text", text}}})}, {"role", "model"}}}};
    if (!finishReason.empty()) {
        candidate["finishReason"] = finishReason;
    }
    candidate["index"] = index;
    return candidate;
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

// Without a candidate the prompt was blocked; then the member "candidates" is missing.
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

// The responses of a stream; joined, they are the answer. The text's last piece has the finish reason.
class GoogleStream {
public:
    GoogleStream(const KAIEmulatedTurn& turn, const KAIEmulatedAnswer& answer) : m_turn(turn), m_answer(answer) {}

    [[nodiscard]] KAIStreamedEvents write(const std::function<std::string(const KAIEmulatorJson&)>& writeEvent) {
        KAIStreamedEvents events;
        for (std::size_t i = 0; i < m_answer.choices.size(); ++i) {
            addChoice(m_answer.choices[i], i, events, writeEvent);
        }
        if (m_answer.choices.empty()) {
            events.ending.push_back(writeEvent(writeResponse(m_turn, m_answer)));
        }
        return events;
    }

private:
    void addChoice(const KAIEmulatedChoice& choice, std::size_t index, KAIStreamedEvents& events,
                   const std::function<std::string(const KAIEmulatorJson&)>& writeEvent) const {
        for (const std::string& thought : splitText(choice.reasoning, m_answer.stream->pieceCharacters)) {
            KAIEmulatorJson candidate = writeCandidatePiece(thought, index, "");
            candidate["content"]["parts"][0]["thought"] = true;
            events.opening.push_back(writeEvent(writePiece(candidate, false)));
        }
        std::vector<std::string> pieces = splitChoice(choice, *m_answer.stream);
        const std::string last = pieces.empty() ? "" : std::move(pieces.back());
        pieces.resize(pieces.empty() ? 0 : pieces.size() - 1);
        for (const std::string& piece : pieces) {
            events.texts.push_back(writeEvent(writePiece(writeCandidatePiece(piece, index, ""), false)));
        }
        const std::string reason = choice.finishReason.empty() ? "STOP" : choice.finishReason;
        events.ending.push_back(writeEvent(writePiece(writeCandidatePiece(last, index, reason), true)));
    }

    [[nodiscard]] KAIEmulatorJson writePiece(const KAIEmulatorJson& candidate, bool isLast) const {
        KAIEmulatorJson usage = writeUsage(m_turn, m_answer);
        if (!isLast) {
            usage = {{"promptTokenCount", usage["promptTokenCount"]}, {"totalTokenCount", usage["promptTokenCount"]}};
        }
        return {{"candidates", KAIEmulatorJson::array({candidate})},
                {"usageMetadata", usage},
                {"modelVersion", m_turn.model},
                {"responseId", m_responseId}};
    }

    const KAIEmulatedTurn& m_turn;
    const KAIEmulatedAnswer& m_answer;
    std::string m_responseId = makeIdentifier("", 20);
};

// A stream that was not requested as events is one array, with commas between the pieces.
LoopbackReply joinAsArray(LoopbackReply reply) {
    for (std::size_t i = 0; i < reply.pieces.size(); ++i) {
        reply.pieces[i].insert(0, i == 0 ? "[" : ",\r\n");
    }
    reply.pieces.emplace_back("]");
    return reply;
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
        std::string_view path = request.path;
        if (!path.starts_with(kModelsPath)) {
            return writeNotFoundPage();
        }
        path.remove_prefix(kModelsPath.size());
        if (path.empty() && request.method == "GET") {
            checkKey(request);
            return listModels(request, script);
        }
        const std::size_t colon = std::min(path.rfind(':'), path.size());
        const std::string method = request.method + std::string(path.substr(colon));
        const auto route = std::ranges::find(kModelRoutes, method, &ModelRoute::method);
        if (!path.starts_with('/') || route == kModelRoutes.end()) {
            return writeNotFoundPage();
        }
        checkKey(request);
        const std::string model = decodePathText(path.substr(1, colon - 1));
        checkModel(model, route->action, script);
        return (this->*route->serve)(request, model, script);
    }

    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override {
        return writeReply(refusal.status, writeError(refusal));
    }

private:
    using ServeModel = LoopbackReply (GoogleService::*)(const LoopbackRequest&, const std::string&,
                                                        KAIEmulatorScript&) const;
    struct ModelRoute {
        std::string_view method;  // the HTTP method, and the model's method after its colon
        const char* action;       // its name in a refusal
        ServeModel serve;
    };
    static const std::array<ModelRoute, 4> kModelRoutes;

    static KAIEmulatorJson writeError(const KAIRefusal& refusal) {
        KAIEmulatorJson error{{"code", refusal.status},
                              {"message", refusal.message},
                              {"status", refusal.type.empty() ? describeStatus(refusal.status) : refusal.type}};
        if (!refusal.code.empty()) {
            error["details"] = KAIEmulatorJson::array({{{"@type", "type.googleapis.com/google.rpc.ErrorInfo"},
                                                        {"reason", refusal.code},
                                                        {"domain", "googleapis.com"}}});
        }
        return {{"error", error}};
    }

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

    static void checkModel(const std::string& model, const char* action, const KAIEmulatorScript& script) {
        if (!isOffered(offerModels(script), model)) {
            throw KAIRefusal{.status = 404,
                             .message = "models/" + model +
                                        " is not found for API version v1beta, or is not supported for " + action +
                                        ". Call ListModels to see the list of available models and their supported "
                                        "methods."};
        }
    }

    // One page. The token of the next page is the index at which it begins.
    static LoopbackReply listModels(const LoopbackRequest& request, const KAIEmulatorScript& script) {
        const auto models = offerModels(script);
        const std::size_t pageSize = readCount(request, "pageSize", 50);
        std::size_t place = std::min(readCount(request, "pageToken", 0), models.size());
        auto list = KAIEmulatorJson::array();
        for (; place < models.size() && list.size() < pageSize; ++place) {
            list.push_back(writeModel(models[place]));
        }
        KAIEmulatorJson page{{"models", list}};
        if (place < models.size()) {
            page["nextPageToken"] = std::to_string(place);
        }
        return writeReply(200, page);
    }

    // A number in the query; 0 and a missing number mean the service's default.
    static std::size_t readCount(const LoopbackRequest& request, const char* name, std::size_t usual) {
        const auto* text = request.findQueryParam(name);
        if (text == nullptr || text->empty()) {
            return usual;
        }
        std::size_t count = 0;
        const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), count);
        if (error != std::errc{} || end != text->data() + text->size()) {
            throw refuseArgument("Invalid value at '" + std::string(name) + "', \"" + *text + "\"");
        }
        return count == 0 ? usual : count;
    }

    // NOLINTBEGIN(readability-convert-member-functions-to-static): entries of the table of routes
    LoopbackReply describe(const LoopbackRequest& /*request*/, const std::string& name,
                           KAIEmulatorScript& script) const {
        const auto models = offerModels(script);
        return writeReply(200, writeModel(*std::ranges::find(models, name, &KAIEmulatedModel::name)));
    }

    LoopbackReply countPromptTokens(const LoopbackRequest& request, const std::string& model,
                                    KAIEmulatorScript& /*script*/) const {
        const std::size_t tokens = estimateTokens(readTurn(request, model));
        return writeReply(200, {{"totalTokens", tokens}, {"promptTokensDetails", countTokens(tokens)}});
    }
    // NOLINTEND(readability-convert-member-functions-to-static)

    LoopbackReply generate(const LoopbackRequest& request, const std::string& model, KAIEmulatorScript& script) const {
        const KAIEmulatedTurn turn = readTurn(request, model);
        const KAIEmulatedAnswer answer = script.decide(turn);
        return deliver(answer, [&] { return writeReply(200, writeResponse(turn, answer)); });
    }

    LoopbackReply stream(const LoopbackRequest& request, const std::string& model, KAIEmulatorScript& script) const {
        const KAIEmulatedTurn turn = readTurn(request, model);
        const KAIEmulatedAnswer answer = script.decide(turn);
        const auto* form = request.findQueryParam("alt");
        const bool isEvents = form != nullptr && *form == "sse";
        const auto writeEvent = [isEvents](const KAIEmulatorJson& response) {
            return isEvents ? writeServerSentEvent(writeJson(response), "\r\n") : writeJson(response, 2);
        };
        return deliver(answer, [&] {
            KAIStreamedEvents events = GoogleStream(turn, answer).write(writeEvent);
            events.writeFailure = [&](const KAIRefusal& refusal) { return writeEvent(writeError(refusal)); };
            const char* type = isEvents ? "text/event-stream" : "application/json; charset=UTF-8";
            LoopbackReply reply = writeStreamedReply(*answer.stream, events, {{"Content-Type", type}});
            return isEvents ? reply : joinAsArray(std::move(reply));
        });
    }

    std::string m_key;
};

const std::array<GoogleService::ModelRoute, 4> GoogleService::kModelRoutes{{
    {"GET", "get", &GoogleService::describe},
    {"POST:generateContent", "generateContent", &GoogleService::generate},
    {"POST:streamGenerateContent", "streamGenerateContent", &GoogleService::stream},
    {"POST:countTokens", "countTokens", &GoogleService::countPromptTokens},
}};

}  // namespace

std::unique_ptr<KAIEmulatedService> makeGoogleService(const KAIEmulatorOptions& options) {
    return std::make_unique<GoogleService>(options);
}
