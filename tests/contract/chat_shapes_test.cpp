#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

#include "chat_fixture.h"

// Every member of every answer is left out, and replaced by a value of each type in turn. What the host then gets is
// told by a table of the places in which an answer of another form is refused, or passed over.

using Json = nlohmann::ordered_json;

namespace {

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

/// Calls check(answer, expected text) for the answer with each place wrong in each way; none: to be refused.
void forEachShape(const AnswerShapes& shapes,
                  const std::function<void(const std::string&, const std::optional<std::string>&)>& check) {
    const Json right = Json::parse(shapes.answer);
    for (const AnswerPlace& place : shapes.places) {
        const Json::json_pointer pointer(place.pointer);
        check(removeAt(right, pointer).dump(), toOptional(place.textWhenWrong));
        for (const Json& value : obtainValues()) {
            Json answer = right;
            answer.at(pointer) = value;
            const bool isRight = value.type_name() == std::string(place.rightType);
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
    forEachShape(GetParam().replyShapes, [&](const std::string& body, const auto& expected) {
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
    forEachShape(GetParam().modelShapes, [&](const std::string& body, const auto& expected) {
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
