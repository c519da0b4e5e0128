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

/// JSON text around a text, which is written between the two as a JSON string.
struct ChatFrame {
    std::string_view start;
    std::string_view end;

    bool operator==(const ChatFrame&) const = default;
};

/// What a member of a request's body holds between the start and the end of its row.
enum class ChatValue : std::uint8_t {
    None,          ///< nothing: the row says all
    WhenWhole,     ///< nothing; the member is left out of a request for an answer in pieces
    WhenStreamed,  ///< nothing; the member is left out of a request for a whole answer
    Model,         ///< the model's name as a string
    Temperature,   ///< a number; the member is left out unless the host assigned the temperature
    Instructions,  ///< the combined instructions as a string; the member is left out where there are none
    Messages,      ///< the messages, separated by commas: the history and the user's text
};

/// A member of a request's body, key included: `{ChatValue::Messages, R"("messages":[)", "]"}`.
struct ChatMember {
    ChatValue value;
    std::string_view start;
    std::string_view end = {};
};

/// How the pieces of an answer stand in a response's body.
enum class ChatStreamFraming : std::uint8_t {
    None,    ///< answers come whole only
    Events,  ///< server-sent events, each of whose data is JSON
    Lines,   ///< a JSON document a line
};

/// What an event of a streamed answer is.
enum class ChatPieceKind : std::uint8_t {
    Nothing,      ///< no part of the answer
    Text,         ///< a part of the answer, which may be empty
    Finished,     ///< one with the reason for which the model stopped: complete when the body comes to its end
    Last,         ///< one that says that it is the last: complete
    Error,        ///< the service says that it failed
    Unsupported,  ///< of another form than the provider's
};

/// What came of an answer so far.
struct ChatPieces {
    std::string text;
    /// The choices in which somebody else than the assistant speaks.
    std::vector<std::int64_t> foreignChoices;
};

/// How an answer in pieces is asked for and read. The members WhenStreamed of the body belong to it.
struct ChatStreaming {
    ChatStreamFraming framing = ChatStreamFraming::None;
    /// Empty: that of a whole answer.
    std::span<const std::string_view> path = {};
    /// Sent before those of every request.
    std::span<const ChatParam> queryParams = {};
    /// The data of the event behind the last piece; empty: there is none.
    std::string_view endMark = {};
    /// Appends an event's part of the answer.
    ChatPieceKind (*readPiece)(const COJson& event, ChatPieces& pieces) = nullptr;
};

/// Whether a value is the "error" with which a service says that it failed.
[[nodiscard]] inline bool isErrorValue(const COJsonValue& error) noexcept {
    return error.getIsValidJson() && !error.isNull();
}

/// The temperatures that a service takes.
struct ChatTemperatures {
    double lowest;
    double highest;
};

struct ChatProtocol;

/// Makes the session of a provider that has no session class of its own.
std::unique_ptr<ChatSession> createPlainChatSession(KAIAssistantProperties& properties, const ChatProtocol& protocol);

/// Everything that sets one chat-completion provider apart: one row of data and a few pure functions, which are tested
/// without a socket. The flow around it is ChatAssistant's. A constant that needs no destruction: a host may use an
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

    /// What follows the localized message of each error of the library's own, ": g/" naming a GET, ": p/" a POST.
    std::string_view modelsSuffix;
    std::string_view emptyModelSuffix;
    std::string_view invalidReplySuffix;
    std::string_view unsupportedReplySuffix;

    ChatTemperatures temperatures = {0.0, 2.0};

    /// The members of a chat request's body, in order.
    std::span<const ChatMember> body;
    /// The messages in the list of messages.
    ChatFrame userMessage;
    ChatFrame assistantMessage;
    /// The instructions as the first message; empty: they are not a message, but a member of the body.
    ChatFrame systemMessage = {};

    /// What a failed response says for itself; empty: the transport's own text is reported.
    std::string (*readModelsError)(CMRestResourceResponse* response);
    std::string (*readChatError)(CMRestResourceResponse* response);

    /// The identifiers in a model list; nothing when it has another form than the provider's.
    std::optional<std::vector<std::string>> (*readModels)(const COJson& response);
    /// The text of a reply; nothing when it has another form than the provider's.
    std::optional<std::string> (*readReply)(const COJson& response);

    ChatStreaming streaming = {};

    std::unique_ptr<ChatSession> (*createSession)(KAIAssistantProperties& properties,
                                                  const ChatProtocol& protocol) = createPlainChatSession;
};

}  // namespace kai

#endif
