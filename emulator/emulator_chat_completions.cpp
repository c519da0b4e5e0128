// The chat-completions protocol of DeepSeek, OpenAI and many others.

#include "emulator_chat_completions.h"

#include "emulator_service.h"

namespace {

// The checks of one request, with the service's error texts.
class ChatReader {
public:
    explicit ChatReader(const KAIChatDialect& dialect) : m_dialect(dialect) {}

    [[nodiscard]] KAIRefusal refuseShape(const std::string& what) const {
        return {.status = m_dialect.malformedStatus,
                .message = "Failed to deserialize the JSON body into the target type: " + what};
    }

    [[nodiscard]] KAIEmulatorJson readBody(const LoopbackRequest& request) const {
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

    [[nodiscard]] std::string readText(const KAIEmulatorJson& object, const char* name,
                                       const std::string& place) const {
        const auto& member = readMember(object, name, place);
        if (!member.is_string()) {
            throw refuseType(place + name, member, "a string");
        }
        return member.get<std::string>();
    }

    [[nodiscard]] bool readFlag(const KAIEmulatorJson& object, const char* name) const {
        const auto* member = findMember(object, name);
        if (member == nullptr || member->is_null()) {
            return false;
        }
        if (!member->is_boolean()) {
            throw refuseType(name, *member, "a boolean");
        }
        return member->get<bool>();
    }

    void readMessages(const KAIEmulatorJson& body, KAIEmulatedTurn& turn) const {
        const auto& messages = readMember(body, "messages", "");
        if (!messages.is_array()) {
            throw refuseShape("messages: expected a sequence");
        }
        for (std::size_t i = 0; i < messages.size(); ++i) {
            readMessage(messages[i], "messages[" + std::to_string(i) + "]: ", turn);
        }
    }

    void checkTemperature(const KAIEmulatorJson& body) const {
        const auto* temperature = findMember(body, "temperature");
        if (temperature == nullptr || temperature->is_null()) {
            return;
        }
        if (!temperature->is_number()) {
            throw refuseType("temperature", *temperature, "a number");
        }
        if (const double value = temperature->get<double>(); value < 0 || value > 2) {
            throw KAIRefusal{.status = 400,
                             .message = "Invalid temperature value, the valid range of temperature is [0, 2.0]"};
        }
    }

    void readStream(const KAIEmulatorJson& body, KAIChatRequest& request) const {
        request.isStreamed = readFlag(body, "stream");
        const auto* options = findMember(body, "stream_options");
        if (options == nullptr || options->is_null()) {
            return;
        }
        if (!options->is_object()) {
            throw refuseType("stream_options", *options, "an object");
        }
        if (!request.isStreamed) {
            throw KAIRefusal{.status = 400,
                             .message = "The 'stream_options' parameter is only allowed when 'stream' is enabled."};
        }
        request.isUsageStreamed = readFlag(*options, "include_usage");
    }

private:
    [[nodiscard]] KAIRefusal refuseType(const std::string& place, const KAIEmulatorJson& value,
                                        const char* wanted) const {
        return refuseShape(place + ": invalid type: " + value.type_name() + ", expected " + wanted);
    }

    [[nodiscard]] const KAIEmulatorJson& readMember(const KAIEmulatorJson& object, const char* name,
                                                    const std::string& place) const {
        const auto* member = findMember(object, name);
        if (member == nullptr) {
            throw refuseShape(place + "missing field `" + name + "`");
        }
        return *member;
    }

    // A text, or an array of text parts.
    [[nodiscard]] std::string readContent(const KAIEmulatorJson& message, const std::string& place) const {
        const auto& content = readMember(message, "content", place);
        if (!content.is_array()) {
            return readText(message, "content", place);
        }
        std::string text;
        for (const auto& part : content) {
            text += readText(part, "text", place + "content: ");
        }
        return text;
    }

    void readMessage(const KAIEmulatorJson& message, const std::string& place, KAIEmulatedTurn& turn) const {
        const std::string role = readText(message, "role", place);
        const std::string content = readContent(message, place);
        if (role == "system") {
            turn.instructions += content;
        } else if (role == "user" || role == "assistant") {
            turn.messages.push_back({role, content});
        } else {
            throw refuseShape(place + "unknown variant `" + role +
                              "`, expected one of `system`, `user`, `assistant`, `tool`");
        }
    }

    const KAIChatDialect& m_dialect;
};

std::string obtainFinishReason(const KAIEmulatedChoice& choice) {
    return choice.finishReason.empty() ? "stop" : choice.finishReason;
}

KAIEmulatorJson writeChoice(const KAIEmulatedChoice& choice, std::size_t index, const KAIChatDialect& dialect) {
    KAIEmulatorJson message{{"role", "assistant"}, {"content", choice.join()}};
    if (!choice.reasoning.empty()) {
        message["reasoning_content"] = choice.reasoning;
    }
    if (dialect.hasRefusalMember) {
        message["refusal"] = nullptr;
    }
    return {
        {"index", index}, {"message", message}, {"logprobs", nullptr}, {"finish_reason", obtainFinishReason(choice)}};
}

KAIEmulatorJson writeUsage(const KAIEmulatedTurn& turn, const KAIEmulatedAnswer& answer,
                           const KAIChatDialect& dialect) {
    std::size_t answerTokens = 0;
    std::size_t reasoningTokens = 0;
    for (const auto& choice : answer.choices) {
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
    if (dialect.hasCacheFigures) {
        usage["prompt_cache_hit_tokens"] = 0;
        usage["prompt_cache_miss_tokens"] = promptTokens;
    }
    return usage;
}

// The first members of a completion and of each piece of a streamed one.
KAIEmulatorJson writeHead(const KAIEmulatedTurn& turn, const char* object) {
    return {{"id", makeIdentifier("", 32)},
            {"object", object},
            {"created", obtainNow()},
            {"model", turn.model},
            {"system_fingerprint", "fp_emulator"}};
}

// Writes the events of one streamed completion.
class ChatEventWriter {
public:
    explicit ChatEventWriter(const KAIChatRequest& request)
        : m_head(writeHead(request.turn, "chat.completion.chunk")), m_isUsageStreamed(request.isUsageStreamed) {}

    [[nodiscard]] std::string writeChunk(const KAIEmulatorJson& choices, const KAIEmulatorJson& usage = nullptr) const {
        KAIEmulatorJson chunk = m_head;
        chunk["choices"] = choices;
        if (m_isUsageStreamed) {
            chunk["usage"] = usage;
        }
        return writeServerSentEvent(writeJson(chunk));
    }

    [[nodiscard]] std::string writeDelta(std::size_t index, const KAIEmulatorJson& delta,
                                         const KAIEmulatorJson& finishReason = nullptr) const {
        return writeChunk(KAIEmulatorJson::array(
            {{{"index", index}, {"delta", delta}, {"logprobs", nullptr}, {"finish_reason", finishReason}}}));
    }

    void addChoice(const KAIEmulatedChoice& choice, std::size_t index, const KAIEmulatedStream& stream,
                   KAIStreamedEvents& events) const {
        events.opening.push_back(writeDelta(index, {{"role", "assistant"}, {"content", ""}}));
        for (const std::string& piece : splitText(choice.reasoning, stream.pieceCharacters)) {
            events.opening.push_back(writeDelta(index, {{"content", nullptr}, {"reasoning_content", piece}}));
        }
        for (const std::string& piece : splitChoice(choice, stream)) {
            events.texts.push_back(writeDelta(index, {{"content", piece}}));
        }
        events.ending.push_back(writeDelta(index, KAIEmulatorJson::object(), obtainFinishReason(choice)));
    }

private:
    KAIEmulatorJson m_head;
    bool m_isUsageStreamed;
};

}  // namespace

KAIChatRequest readChatRequest(const LoopbackRequest& request, const KAIChatDialect& dialect,
                               const std::vector<KAIEmulatedModel>& models) {
    const ChatReader reader(dialect);
    const KAIEmulatorJson body = reader.readBody(request);
    KAIChatRequest read;
    read.turn.model = reader.readText(body, "model", "");
    reader.readMessages(body, read.turn);
    reader.checkTemperature(body);
    reader.readStream(body, read);
    if (!isOffered(models, read.turn.model)) {
        throw dialect.refuseModel(read.turn.model);
    }
    if (read.turn.messages.empty()) {
        throw KAIRefusal{.status = 400, .message = "Empty input messages"};
    }
    if (read.turn.messages.back().role != "user") {
        throw KAIRefusal{.status = 400, .message = "The last message must have role `user`"};
    }
    return read;
}

KAIEmulatorJson writeChatCompletion(const KAIEmulatedTurn& turn, const KAIEmulatedAnswer& answer,
                                    const KAIChatDialect& dialect) {
    auto choices = KAIEmulatorJson::array();
    for (const auto& choice : answer.choices) {
        choices.push_back(writeChoice(choice, choices.size(), dialect));
    }
    KAIEmulatorJson completion = writeHead(turn, "chat.completion");
    completion["choices"] = choices;
    completion["usage"] = writeUsage(turn, answer, dialect);
    return completion;
}

KAIStreamedEvents writeChatEvents(const KAIChatRequest& request, const KAIEmulatedAnswer& answer,
                                  const KAIChatDialect& dialect,
                                  std::function<KAIEmulatorJson(const KAIRefusal&)> writeFailure) {
    const ChatEventWriter writer(request);
    KAIStreamedEvents events;
    for (std::size_t i = 0; i < answer.choices.size(); ++i) {
        writer.addChoice(answer.choices[i], i, *answer.stream, events);
    }
    if (request.isUsageStreamed) {
        events.ending.push_back(writer.writeChunk(KAIEmulatorJson::array(), writeUsage(request.turn, answer, dialect)));
    }
    events.ending.push_back(writeServerSentEvent("[DONE]"));
    events.keepAlive = dialect.keepAlive;
    events.writeFailure = [write = std::move(writeFailure)](const KAIRefusal& refusal) {
        return writeServerSentEvent(writeJson(write(refusal)));
    };
    return events;
}
