#ifndef TESTS_CHAT_PROVIDER_H
#define TESTS_CHAT_PROVIDER_H

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "kai.h"
#include "loopback_server.h"

/// What a request for a turn should say. The texts are ASCII.
struct ExpectedTurn {
    std::string model = "m";
    std::string temperature{};  ///< as it stands in the body; empty: none
    std::string instructions{};
    std::vector<std::pair<std::int32_t, std::string>> messages{};  ///< role and text, the new one last
};

/// Which part of a failed response becomes the error text.
enum class ErrorReading : std::uint8_t { MessageOrBody, MessageOnly, Nothing };

/// How one chat-completion provider differs from the others, written down from the services' side.
struct ChatProvider {
    std::string name;
    KAIAssistantType type;
    LoopbackTLS tls;
    std::string defaultHost;
    std::string authorization;  ///< value of the header when the key is "secret"; empty: no such header
    std::string query;          ///< what follows the path when the key is "secret"

    std::string modelsPath;
    std::string modelsSuffix;
    ErrorReading modelsErrors;
    /// A model list of these names.
    std::string (*writeModels)(const std::vector<std::string>& names);

    std::string (*chatPath)(const std::string& model);
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
};

/// All of them.
const std::vector<ChatProvider>& obtainChatProviders();

/// Those for which the function holds.
std::vector<ChatProvider> selectChatProviders(bool (*isWanted)(const ChatProvider& provider));

/// How a provider is named by a failing test.
void PrintTo(const ChatProvider& provider, std::ostream* out);

/// A JSON string of an ASCII text.
std::string quote(const std::string& text);

#endif
