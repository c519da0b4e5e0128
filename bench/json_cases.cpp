#include <simdjson.h>

#include <stdexcept>
#include <utility>

#include "bench_assistant.h"
#include "cases.h"
#include "cf/json.h"
#include "chat_texts.h"
#include "database_texts.h"
#include "json_floor.h"

namespace {

constexpr std::size_t kWarmUps = 1;

PropertiesPtr createProperties(std::size_t tables) {
    const AssistantPtr assistant = createAssistant("ollama", "");
    PropertiesPtr properties(assistant->obtainAssistantProperties());
    properties->setProperty("user_instructions", std::string());
    if (!properties->setProperty("db_structure", buildDatabaseStructure(tables))) {
        throw std::runtime_error("the structure was refused");
    }
    return properties;
}

/// A session text as the library writes it.
std::string buildSerializedSession(std::size_t messages) {
    const AssistantPtr assistant = createAssistant("ollama", "");
    return restoreSession(*assistant, buildSessionText(messages))->serializeSession();
}

/// A text that can be read in place, as sessions are serialized and replies are received.
std::string copyWithRoom(const std::string& text) {
    constexpr std::size_t kRoomBehind = 64;
    std::string copy;
    copy.reserve(text.size() + kRoomBehind);
    copy += text;
    return copy;
}

/// The answer in a reply of the DeepSeek kind, as a text of its own.
std::string readAnswer(const COJson& reply) {
    std::string answer;
    for (const COJsonValue choice : reply.obtainMember("choices").obtainItems()) {
        answer += choice.obtainMember("message").obtainMember("content").obtainString();
    }
    return answer;
}

std::string readAnswer(const simdjson::dom::element& reply) {
    std::string answer;
    for (const simdjson::dom::element choice : reply["choices"].get_array()) {
        answer += choice["message"]["content"].get_string().value();
    }
    return answer;
}

}  // namespace

void measureStatements(Meter& meter, std::size_t tables) {
    const PropertiesPtr properties = createProperties(tables);
    meter.measure(
        kWarmUps, [] { return 0; }, [&](int) { return properties->obtainProperty("combined_instructions"); });
}

void measureStatementsFloor(Meter& meter, std::size_t tables) {
    const simdjson::padded_string json(buildDatabaseStructure(tables));
    simdjson::ondemand::parser parser;
    std::string statements(json.size(), '\0');
    std::size_t size = 0;
    meter.measure(
        kWarmUps, [] { return 0; },
        [&](int) { return size = writeStatementsOnDemand(parser, json, statements.data()); });
    statements.resize(size);
    if (createProperties(tables)->obtainProperty("combined_instructions").stringValue() != statements + "\n") {
        throw std::runtime_error("the floor did not write the same text");
    }
}

void measureSerialization(Meter& meter, std::size_t messages) {
    const AssistantPtr assistant = createAssistant("ollama", "");
    const SessionPtr session = restoreSession(*assistant, buildSessionText(messages));
    meter.measure(
        kWarmUps, [] { return 0; }, [&](int) { return session->serializeSession(); });
}

void measureSerializationFloor(Meter& meter, std::size_t messages) {
    const std::string text = buildSerializedSession(messages);
    meter.measure(
        kWarmUps, [] { return 0; }, [&](int) { return std::string(text); });
    Meter::note("body_bytes", text.size());
}

void measureRestoration(Meter& meter, std::size_t messages) {
    const AssistantPtr assistant = createAssistant("ollama", "");
    const std::string text = buildSerializedSession(messages);
    meter.measure(
        kWarmUps, [&] { return copyWithRoom(text); },
        [&](std::string& given) { return restoreSession(*assistant, std::move(given)); });
    if (restoreSession(*assistant, text)->serializeSession() != text) {
        throw std::runtime_error("the session did not come back");
    }
}

void measureRestorationFloor(Meter& meter, std::size_t messages) {
    const simdjson::padded_string text(buildSerializedSession(messages));
    simdjson::dom::parser parser;
    meter.measure(
        kWarmUps, [] { return 0; }, [&](int) { return parser.parse(text)["messages"].get_array().value().size(); });
}

void measureReply(Meter& meter, std::size_t bytes) {
    const std::string body = buildReplyBody("/chat/completions", buildAnswerText(bytes));
    meter.measure(
        kWarmUps, [&] { return copyWithRoom(body); },
        [](std::string& received) {
            CMRestResourceResponse response(200, std::move(received));
            return readAnswer(*response.getJson());
        });
}

void measureReplyFloor(Meter& meter, std::size_t bytes) {
    const simdjson::padded_string body(buildReplyBody("/chat/completions", buildAnswerText(bytes)));
    simdjson::dom::parser parser;
    meter.measure(
        kWarmUps, [] { return 0; }, [&](int) { return readAnswer(parser.parse(body).value()); });
}
