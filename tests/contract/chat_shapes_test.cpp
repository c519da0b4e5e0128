#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

#include "chat_fixture.h"

// Every member of every answer is left out, and replaced by a value of each type in turn. What the host then gets is
// told by a table of the places in which an answer of another form is refused, or passed over.

using Json = nlohmann::ordered_json;

namespace {

/// A member of an answer, as a JSON pointer, and what becomes of the answer when it is not what it should be.
struct Place {
    const char* pointer;
    Json::value_t rightType;
    const char* textWhenWrong;  ///< null: the answer is refused
    const char* textWhenOther;  ///< when it is of the right type, yet another value ("other", or empty)
};

struct Shapes {
    Json answer;
    std::vector<Place> places;
};

using Type = Json::value_t;

const Shapes& obtainReplyShapes(KAIAssistantType type) {
    static const Shapes deepSeek{Json::parse(R"({"choices":[{"message":{"role":"assistant","content":"A"}},)"
                                             R"({"message":{"role":"assistant","content":"B"}}]})"),
                                 {{"/choices", Type::array, nullptr, ""},
                                  {"/choices/0", Type::object, "B", "B"},
                                  {"/choices/0/message", Type::object, "B", "B"},
                                  {"/choices/0/message/role", Type::string, "B", "B"},
                                  {"/choices/0/message/content", Type::string, "B", "otherB"},
                                  {"/choices/1/message/content", Type::string, "A", "Aother"}}};
    static const Shapes google{
        Json::parse(R"({"candidates":[{"content":{"parts":[{"text":"A"},{"text":"B"}],"role":"model"}},)"
                    R"({"content":{"role":"model","parts":[{"text":"C"}]}}]})"),
        {{"/candidates", Type::array, nullptr, ""},
         {"/candidates/0", Type::object, "C", "C"},
         {"/candidates/0/content", Type::object, "C", "C"},
         {"/candidates/0/content/role", Type::string, "C", "C"},
         {"/candidates/0/content/parts", Type::array, "C", "C"},
         {"/candidates/0/content/parts/0", Type::object, "BC", "BC"},
         {"/candidates/0/content/parts/0/text", Type::string, "BC", "otherBC"},
         {"/candidates/1/content/parts/0/text", Type::string, "AB", "ABother"}}};
    static const Shapes ollama{Json::parse(R"({"message":{"role":"assistant","content":"A"},"done":true})"),
                               {{"/message", Type::object, nullptr, nullptr},
                                {"/message/role", Type::string, nullptr, nullptr},
                                {"/message/content", Type::string, nullptr, "other"},
                                {"/done", Type::boolean, "A", "A"}}};
    return type == KAIAssistantType::DEEPSEEK ? deepSeek : type == KAIAssistantType::GOOGLE ? google : ollama;
}

/// The names of the models are joined by commas.
const Shapes& obtainModelShapes(KAIAssistantType type) {
    static const Shapes deepSeek{Json::parse(R"({"data":[{"id":"a","object":"model"},{"id":"b","object":"model"}]})"),
                                 {{"/data", Type::array, nullptr, ""},
                                  {"/data/0", Type::object, "b,", "b,"},
                                  {"/data/0/id", Type::string, "b,", "other,b,"},
                                  {"/data/0/object", Type::string, "b,", "b,"}}};
    static const Shapes google{
        Json::parse(R"({"models":[{"name":"models/a","supportedGenerationMethods":["x","generateContent"]},)"
                    R"({"name":"models/b","supportedGenerationMethods":["generateContent"]}]})"),
        {{"/models", Type::array, nullptr, ""},
         {"/models/0", Type::object, "b,", "b,"},
         {"/models/0/name", Type::string, "b,", "other,b,"},
         {"/models/0/supportedGenerationMethods", Type::array, "b,", "b,"},
         {"/models/0/supportedGenerationMethods/0", Type::string, "a,b,", "a,b,"},
         {"/models/0/supportedGenerationMethods/1", Type::string, "b,", "b,"}}};
    static const Shapes ollama{Json::parse(R"({"models":[{"name":"a"},{"name":"b"}]})"),
                               {{"/models", Type::array, nullptr, ""},
                                {"/models/0", Type::object, "b,", "b,"},
                                {"/models/0/name", Type::string, "b,", "other,b,"}}};
    return type == KAIAssistantType::DEEPSEEK ? deepSeek : type == KAIAssistantType::GOOGLE ? google : ollama;
}

/// A value of each type; the string is "other", arrays and objects are empty or hold something of no use.
const std::vector<Json>& obtainValues() {
    static const std::vector<Json> values{nullptr,
                                          true,
                                          0,
                                          -1.5,
                                          1e300,
                                          "other",
                                          Json::array(),
                                          Json::object(),
                                          Json::parse(R"([[],{},null])"),
                                          Json::parse(R"({"x":{"role":"assistant"}})")};
    return values;
}

Json removeAt(Json answer, const Json::json_pointer& pointer) {
    Json& parent = answer.at(pointer.parent_pointer());
    if (parent.is_array()) {
        parent.erase(static_cast<std::size_t>(std::stoul(pointer.back())));
    } else {
        parent.erase(pointer.back());
    }
    return answer;
}

std::optional<std::string> toOptional(const char* text) {
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

bool isOfType(const Json& value, Type type) {
    return value.type() == type;
}

/// Calls check(answer, expected text) for the answer with each place wrong in each way; none: to be refused.
void forEachShape(const Shapes& shapes,
                  const std::function<void(const std::string&, const std::optional<std::string>&)>& check) {
    for (const Place& place : shapes.places) {
        const Json::json_pointer pointer(place.pointer);
        check(removeAt(shapes.answer, pointer).dump(), toOptional(place.textWhenWrong));
        for (const Json& value : obtainValues()) {
            Json answer = shapes.answer;
            answer.at(pointer) = value;
            const bool isRight = isOfType(value, place.rightType);
            check(answer.dump(), toOptional(isRight ? place.textWhenOther : place.textWhenWrong));
        }
    }
}

using ChatShapes = ChatContract;
INSTANTIATE_FOR_CHAT_PROVIDERS(ChatShapes);

}  // namespace

TEST_P(ChatShapes, OfAReplyAreReadPassedOverOrRefusedWithTheHistoryUntouched) {
    const SessionHandle session = createSession();
    ExpectedTurn history;
    int count = 0;
    forEachShape(obtainReplyShapes(GetParam().type), [&](const std::string& body, const auto& expected) {
        ++count;
        answerBody(body);
        const ChatAnswer result = say(*session, "q");
        ExpectedTurn turn = history;
        turn.messages.emplace_back(0, "q");
        EXPECT_EQ(obtainLastRequest().body, writeBody(turn)) << body;
        EXPECT_EQ(result.error, expected ? "" : "Unsupported data format" + GetParam().unsupportedSuffix("m")) << body;
        EXPECT_EQ(result.text, expected.value_or("")) << body;
        if (result.error.empty()) {
            turn.messages.emplace_back(1, result.text);
            history = turn;
        }
    });
    EXPECT_GE(count, 44);
}

TEST_P(ChatShapes, OfAModelListAreReadPassedOverOrRefused) {
    forEachShape(obtainModelShapes(GetParam().type), [&](const std::string& body, const auto& expected) {
        answerBody(body);
        const auto [models, error] = m_assistant->obtainAvailableModels();
        std::string joined;
        for (const std::string& model : models) {
            joined += model + ",";
        }
        EXPECT_EQ(error, expected ? "" : "Unsupported data format" + GetParam().modelsSuffix) << body;
        EXPECT_EQ(joined, expected.value_or("")) << body;
    });
}

TEST_P(ChatShapes, OfAFailedResponseNeverBecomeAReply) {
    const SessionHandle session = createSession();
    for (const Json& error : obtainValues()) {
        for (const Json& message : obtainValues()) {
            Json body{{"error", error}};
            if (error.is_object()) {
                body["error"]["message"] = message;
            }
            const std::string text = body.dump();
            const bool hasMessage = error.is_object() && message.is_string();
            const bool readsBody = GetParam().chatErrors == ErrorReading::MessageOrBody;
            answer(LoopbackReply{.status = 400, .body = text});
            EXPECT_EQ(say(*session, "q").error, hasMessage ? "other" : readsBody ? text : "HTTP 400 Bad Request");
        }
    }
    converse(*session, "q", "a");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q"}}}));
}
