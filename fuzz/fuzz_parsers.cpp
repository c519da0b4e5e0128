#include <algorithm>
#include <string>

#include "fuzz_require.h"
#include "fuzz_targets.h"
#include "kai_assistant_deepseek.h"
#include "kai_assistant_google.h"
#include "kai_assistant_ollama.h"
#include "kai_assistant_openai.h"
#include "kai_chat_stream.h"
#include "kai_chat_turn.h"
#include "kai_message.h"
#include "kai_run_poll.h"

namespace {

std::size_t countValues(const COJsonValue& value) {
    std::size_t count = 1;
    for (const COJsonValue item : value.obtainItems()) {
        count += countValues(item);
    }
    for (const COJsonMember member : value.obtainMembers()) {
        require(value.obtainMember(member.key).getIsValidJson(), "a member is found by its key");
        count += countValues(member.value);
    }
    return count;
}

/// A negative zero is written as "-0", which is read as an integer: it loses its sign.
bool holdsNegativeZero(const std::string& text) {
    for (std::size_t place = text.find("-0"); place != std::string::npos; place = text.find("-0", place + 1)) {
        if (place + 2 == text.size() || text.find_first_of(",]}", place) == place + 2) {
            return true;
        }
    }
    return false;
}

void readJson(std::string_view input) {
    const COJson json(input);
    if (!json.getIsValidJson()) {
        require(json.obtainType() == COJsonValue::Type::Undefined, "an invalid document has no root");
        return;
    }
    const std::string written = json.obtainJsonString();
    const COJson again(written);
    require(again.getIsValidJson(), "what is written can be read");
    require(again.obtainJsonString() == written || holdsNegativeZero(written),
            "what is read again is written the same");
    require(countValues(json.obtainRoot()) == countValues(again.obtainRoot()), "no value is lost on the way");
}

void readSession(std::string_view input) {
    KAIAssistantProperties properties;
    const std::unique_ptr<kai::ChatSession> session =
        kai::obtainDeepSeekProtocol().createSession(properties, kai::obtainDeepSeekProtocol());
    if (!session->loadSession(std::string(input))) {
        require(properties.obtainSettings().assignedKeys.empty(), "a failed load changes nothing");
        return;
    }
    const std::string text = session->serializeSession();
    KAIAssistantProperties others;
    const std::unique_ptr<kai::ChatSession> other =
        kai::obtainOllamaProtocol().createSession(others, kai::obtainOllamaProtocol());
    require(other->loadSession(text), "a session's text can be loaded");
    require(other->serializeSession() == text, "a loaded session writes the same text");
    require(others.obtainCombinedInstructions() == properties.obtainCombinedInstructions(),
            "a loaded session has the same instructions");
}

void readOpenAISession(std::string_view input) {
    KAIAssistantProperties_OPENAI properties;
    KAISession_OPENAI session(properties, {});
    std::string assistantID;
    if (!session.loadSession(std::string(input), "default", assistantID)) {
        require(properties.obtainSettings().assignedKeys.empty() && assistantID.empty(),
                "a failed load changes nothing");
        return;
    }
    require(session.obtainAssistantID() == assistantID, "session and assistant have the same id");
    const std::string text = session.serializeSession();
    KAIAssistantProperties_OPENAI others;
    KAISession_OPENAI other(others, {});
    require(other.loadSession(text, "default", assistantID), "a session's text can be loaded");
    require(other.serializeSession() == text, "a loaded session writes the same text");
}

/// What a host sees of an assistant's settings.
std::string describeSettings(IKAIAssistant& assistant, KAIAssistantType type) {
    IKAIProperties* const properties = assistant.obtainAssistantProperties();
    // An OpenAI assistant's properties stay its own.
    const KAIPtr<IKAIProperties> owned(type == KAIAssistantType::OPENAI ? nullptr : properties);
    std::string text;
    for (const char* key : {"api_host", "model", "user_instructions", "combined_instructions"}) {
        text += properties->obtainProperty(key).stringValue() + '\n';
    }
    return text;
}

/// Restores a text as a host does, and what is serialized then once more with another assistant.
void restoreSession(KAIAssistantType type, const std::string& given) {
    const KAIPtr<IKAIAssistant> first(KAICreateAssistant(type, nullptr, "key", ""));
    const std::string before = describeSettings(*first, type);
    auto [session, error] = first->restoreSession(given);
    const KAIPtr<IKAISession> restored(session);
    require((restored == nullptr) == !error.empty(), "there is either a session or an error");
    if (!restored) {
        require(describeSettings(*first, type) == before, "a text that is refused changes no setting");
        return;
    }
    const std::string text = restored->serializeSession();
    const KAIPtr<IKAIAssistant> second(KAICreateAssistant(type, nullptr, "key", ""));
    const KAIPtr<IKAISession> again(second->restoreSession(text).first);
    require(again != nullptr, "what is serialized can be restored");
    require(again->serializeSession() == text, "what is restored is serialized byte for byte the same");
    require(describeSettings(*second, type) == describeSettings(*first, type), "a text restores all settings");
}

void restoreSessions(std::string_view input) {
    for (const KAIAssistantType type :
         {KAIAssistantType::OPENAI, KAIAssistantType::GOOGLE, KAIAssistantType::DEEPSEEK, KAIAssistantType::OLLAMA}) {
        restoreSession(type, std::string(input));
    }
}

std::string joinInstructions(const CMVariant& instructions) {
    std::string text;
    for (const CMVariant& line : instructions.listValue()) {
        text += line.stringValue() + "\n";
    }
    return text;
}

void readStructure(std::string_view input) {
    KAIAssistantProperties properties;
    const std::string given(input);
    if (!properties.setProperty("db_structure", given)) {
        require(properties.obtainSettings().databaseStructure->empty(), "a refused structure is not stored");
    }
    std::string text;
    const CMVariant list = properties.obtainProperty("db_structure");
    for (const CMVariant& catalog : list.listValue()) {
        text += joinInstructions(catalog.mapValue().at("instructions"));
        for (const CMVariant& schema : catalog.mapValue().at("schemas").listValue()) {
            text += joinInstructions(schema.mapValue().at("instructions"));
        }
    }
    require(properties.obtainDatabaseStructureText() == text, "list and text hold the same statements");
}

/// The pieces of a body that arrives in chunks of this size, and what came of it behind them.
std::string readPieces(const kai::ChatProtocol& protocol, std::string_view body, std::size_t chunkSize) {
    std::string told;
    const CMTextStream stream([&told](std::string_view piece) {
        require(!piece.empty(), "no piece is empty");
        told += piece;
        told += '\0';
    });
    kai::ChatStreamReader reader(protocol, stream);
    bool isWhole = true;
    try {
        for (; !body.empty(); body.remove_prefix(std::min(chunkSize, body.size()))) {
            reader.read(body.substr(0, chunkSize));
        }
    } catch (const kai::ChatStreamReader::Ended&) {
        isWhole = false;
    }
    const kai::ChatAnswer answer = reader.takeAnswer(isWhole);
    return told + std::to_string(static_cast<int>(answer.outcome)) + answer.text;
}

void readAnswers(const kai::ChatProtocol& protocol, std::string_view input) {
    require(readPieces(protocol, input, 1) == readPieces(protocol, input, input.size() + 1),
            "it does not matter how the bytes of an answer are cut");
    CMRestResourceResponse response(200, std::string(input));
    protocol.readModelsError(&response);
    protocol.readChatError(&response);
    if (const COJson* json = response.getJson()) {
        protocol.readModels(*json);
        if (const std::optional<std::string> reply = protocol.readReply(*json)) {
            // A reply goes into the next request and the session's text.
            KAIAssistantProperties properties;
            const std::unique_ptr<kai::ChatSession> session = protocol.createSession(properties, protocol);
            session->obtainHistory()->appendMessage(KAI_ROLE_USER, input);
            session->obtainHistory()->appendMessage(KAI_ROLE_ASSISTANT, *reply);
            require(COJson(session->serializeSession()).getIsValidJson(), "a session's text is valid JSON");
            const std::string body =
                kai::ChatBody(protocol, properties, session->obtainHistory(), input).obtainJsonString();
            require(COJson(body).getIsValidJson(), "a request's body is valid JSON");
        }
    }
}

void readOpenAIAnswers(std::string_view input) {
    const COJson json(input);
    if (json.getIsValidJson()) {
        const kai::RunState state = kai::readRunState(json);
        require((state.kind == kai::RunState::Kind::Failed) == !state.errorText.empty(), "a failure has a text");
        kai::readModelsNewestFirst(json.obtainMember("data"));
        kai::readModelsNewestFirst(json.obtainRoot());
    }
}

template <void (*Read)(std::string_view)>
void runQuietly(std::string_view input) {
    const QuietAssertions quiet;
    Read(input);
}

void readDeepSeekAnswers(std::string_view input) {
    readAnswers(kai::obtainDeepSeekProtocol(), input);
}

void readGoogleAnswers(std::string_view input) {
    readAnswers(kai::obtainGoogleProtocol(), input);
}

void readOllamaAnswers(std::string_view input) {
    readAnswers(kai::obtainOllamaProtocol(), input);
}

}  // namespace

std::vector<FuzzTarget> listParserTargets() {
    constexpr int kMutationCount = 10'000;
    return {
        {"json", runQuietly<readJson>, kMutationCount},
        {"session", runQuietly<readSession>, kMutationCount},
        {"session_openai", runQuietly<readOpenAISession>, kMutationCount},
        {"restore", runQuietly<restoreSessions>, kMutationCount},
        {"structure", runQuietly<readStructure>, kMutationCount},
        {"deepseek", runQuietly<readDeepSeekAnswers>, kMutationCount},
        {"google", runQuietly<readGoogleAnswers>, kMutationCount},
        {"ollama", runQuietly<readOllamaAnswers>, kMutationCount},
        {"openai", runQuietly<readOpenAIAnswers>, kMutationCount},
    };
}
