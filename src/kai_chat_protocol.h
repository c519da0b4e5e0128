#ifndef KAI_CHAT_PROTOCOL_H
#define KAI_CHAT_PROTOCOL_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cf/json.h"
#include "cf/rest.h"
#include "kai_assistant_properties.h"

namespace kai {

class ChatSession;

/// A header or a query parameter. "{key}" in the value stands for the API key.
struct ChatParam {
    std::string_view name;
    std::string_view value;
};

/// The JSON text before and after a string. The string is written between the two as a JSON string.
struct ChatFrame {
    std::string_view start;
    std::string_view end;

    bool operator==(const ChatFrame&) const = default;
};

/// What stands between `start` and `end` in a member of a request's body.
enum class ChatValue : std::uint8_t {
    None,          ///< nothing
    WhenWhole,     ///< nothing; the member is only in requests for a whole answer
    WhenStreamed,  ///< nothing; the member is only in requests for a streamed answer
    Model,         ///< the model's name as a string
    Temperature,   ///< a number; the member is only there if the host assigned the temperature
    Instructions,  ///< the combined instructions as a string; the member is only there if there are any
    Messages,      ///< the messages, separated by commas: the history and the user's text
};

/// A member of a request's body, key included: `{ChatValue::Messages, R"("messages":[)", "]"}`.
struct ChatMember {
    ChatValue value;
    std::string_view start;
    std::string_view end = {};
};

/// How a response's body contains the pieces of a streamed answer.
enum class ChatStreamFraming : std::uint8_t {
    None,    ///< the service sends whole answers only
    Events,  ///< server-sent events with JSON as data
    Lines,   ///< one JSON document per line
};

/// The kind of an event in a streamed answer.
enum class ChatPieceKind : std::uint8_t {
    Nothing,      ///< no part of the answer
    Text,         ///< a part of the answer, which may be empty
    Finished,     ///< has the reason why the model stopped: the answer is complete when the body ends
    Last,         ///< is marked as the last event: the answer is complete
    Error,        ///< the service reports a failure
    Unsupported,  ///< has an unexpected form
};

/// The pieces of an answer received so far.
struct ChatPieces {
    std::string text;
    /// The indexes of the choices whose role is not the assistant's.
    std::vector<std::int64_t> foreignChoices;
};

/// How a streamed answer is requested and read. The body's WhenStreamed members belong to it.
struct ChatStreaming {
    ChatStreamFraming framing = ChatStreamFraming::None;
    /// Empty: the path of a whole answer.
    std::span<const std::string_view> path = {};
    /// Sent before the parameters of every request.
    std::span<const ChatParam> queryParams = {};
    /// The data of the event after the last piece; empty: there is no such event.
    std::string_view endMark = {};
    /// Appends an event's part of the answer.
    ChatPieceKind (*readPiece)(const COJson& event, ChatPieces& pieces) = nullptr;
};

/// Whether the value of an "error" member reports a failure.
[[nodiscard]] inline bool isErrorValue(const COJsonValue& error) noexcept {
    return error.getIsValidJson() && !error.isNull();
}

/// The temperatures that a service accepts.
struct ChatTemperatures {
    double lowest;
    double highest;
};

struct ChatProtocol;

/// Creates the session for a provider without a session class of its own.
std::unique_ptr<ChatSession> createPlainChatSession(KAIAssistantProperties& properties, const ChatProtocol& protocol);

/// Everything that is specific to one chat-completion provider: data and a few pure functions, which are tested without
/// a socket. ChatAssistant has the common flow. A protocol is a constant without a destructor: a host may use an
/// assistant while its static objects are destroyed.
///
/// "{model}" in a path or a suffix stands for the model's name.
struct ChatProtocol {
    std::string_view scheme;
    std::string_view defaultHost;

    /// The value of the Authorization header, with "{key}" in it; empty: no such header.
    std::string_view authorization = {};
    /// Sent with every request.
    std::span<const ChatParam> headers = {};
    std::span<const ChatParam> queryParams = {};

    std::span<const std::string_view> modelsPath;
    std::span<const std::string_view> chatPath;

    /// Appended to the localized messages of the library's own errors. ": g/" names a GET, ": p/" a POST.
    std::string_view modelsSuffix;
    std::string_view emptyModelSuffix;
    std::string_view invalidReplySuffix;
    std::string_view unsupportedReplySuffix;

    ChatTemperatures temperatures = {0.0, 2.0};

    /// The members of a chat request's body, in order.
    std::span<const ChatMember> body;
    /// The frames of messages.
    ChatFrame userMessage;
    ChatFrame assistantMessage;
    /// The frame of the instructions as the first message; empty: the instructions are not a message but a member of
    /// the body.
    ChatFrame systemMessage = {};

    /// The service's error text in a failed response; if it is empty, the transport's text is reported.
    std::string (*readModelsError)(CMRestResourceResponse* response);
    std::string (*readChatError)(CMRestResourceResponse* response);

    /// The identifiers in a model list; nothing if the list has an unexpected form.
    std::optional<std::vector<std::string>> (*readModels)(const COJson& response);
    /// The text of a reply; nothing if the reply has an unexpected form.
    std::optional<std::string> (*readReply)(const COJson& response);

    ChatStreaming streaming = {};

    std::unique_ptr<ChatSession> (*createSession)(KAIAssistantProperties& properties,
                                                  const ChatProtocol& protocol) = createPlainChatSession;
};

}  // namespace kai

#endif
