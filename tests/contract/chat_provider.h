#ifndef TESTS_CHAT_PROVIDER_H
#define TESTS_CHAT_PROVIDER_H

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "kai.h"
#include "loopback_server.h"

/// What a request for a turn should say.
struct ExpectedTurn {
    std::string model = "m";
    std::string temperature{};  ///< as it stands in the body; empty: none
    std::string instructions{};
    std::vector<std::pair<std::int32_t, std::string>> messages{};  ///< role and text, the new one last
    bool isStreamed = false;                                       ///< whether the answer is asked for in pieces
};

/// Which part of a failed response becomes the error text.
enum class ErrorReading : std::uint8_t { MessageOrBody, MessageOnly, Nothing };

/// A member of an answer, as a JSON pointer, and what becomes of the answer when it is not what it should be.
struct AnswerPlace {
    const char* pointer;
    const char* rightType;      ///< "array", "boolean", "object" or "string"
    const char* textWhenWrong;  ///< null: the answer is refused
    const char* textWhenOther;  ///< when it is of the right type, yet another value ("other", or empty)
};

/// An answer and its members. A text is what a reply says, or the names of the models with a comma behind each.
struct AnswerShapes {
    std::string answer;
    std::vector<AnswerPlace> places;
};

/// How a provider answers in pieces.
struct ChatStream {
    /// The target of the request, when the key is "secret".
    std::string (*target)(const std::string& model);
    /// An event with a piece of the answer, as a JSON string.
    std::string (*writePiece)(const std::string& jsonText);
    /// What makes the answer complete.
    std::string end;
    /// Events that may stand between two pieces and say nothing of the answer.
    std::vector<std::string> noise;
    /// An event that says "overloaded", and what is reported then.
    std::string error;
    std::string errorText;
};

/// How one chat-completion provider differs from the others, written down from the services' side.
struct ChatProvider {
    std::string name;
    KAIAssistantType type;
    std::string emulatedService;  ///< its name in the emulator
    LoopbackTLS tls;
    std::string defaultHost;
    std::string keyHeader{};        ///< the header that holds the key; empty: none
    std::string beforeKey{};        ///< what stands before the key in that header
    std::string keyParam{};         ///< the query parameter that holds the key; empty: none
    LoopbackFields extraHeaders{};  ///< sent with every request

    std::string modelsPath;
    std::string modelsSuffix;
    ErrorReading modelsErrors;
    AnswerShapes modelShapes;
    /// A model list of these names.
    std::string (*writeModels)(const std::vector<std::string>& names);

    std::string (*chatPath)(const std::string& model);
    bool isModelInPath = false;
    /// Models whose characters mean something in a URL, and the target that the server then sees.
    std::vector<std::pair<std::string, std::string>> oddTargets{};
    std::string emptyModelSuffix;
    std::string (*invalidSuffix)(const std::string& model);
    std::string (*unsupportedSuffix)(const std::string& model);
    ErrorReading chatErrors;
    /// The body of a request for a turn, byte for byte.
    std::string (*writeBody)(const ExpectedTurn& turn);
    /// A reply whose text is the given JSON string (quotation marks included).
    std::string (*writeReply)(const std::string& jsonText);
    /// A reply made of many pieces, where the protocol has such; null otherwise.
    std::string (*writeReplyOfPieces)(std::size_t count, const std::string& jsonText);
    AnswerShapes replyShapes;
    ChatStream stream;

    std::string highestTemperature = "2";  ///< the lowest is 0 everywhere

    /// What follows the path when the key is this.
    [[nodiscard]] std::string obtainQuery(const std::string& key = "secret") const;
    /// The value of the key's header; absent where there is none.
    [[nodiscard]] std::optional<std::string> obtainKeyHeader(const std::string& key = "secret") const;
};

/// All of them.
const std::vector<ChatProvider>& obtainChatProviders();

/// Those for which the function holds.
std::vector<ChatProvider> selectChatProviders(bool (*isWanted)(const ChatProvider& provider));

/// How a provider is named by a failing test.
void PrintTo(const ChatProvider& provider, std::ostream* out);

/// A JSON string of a text. Each ill-formed byte is U+FFFD.
std::string quote(const std::string& text);

#endif
