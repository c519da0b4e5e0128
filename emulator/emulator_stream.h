#ifndef KAI_EMULATOR_STREAM_H
#define KAI_EMULATOR_STREAM_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_turn.h"

/// A streamed answer in the service's form: complete events, with their line ends.
struct KAIStreamedEvents {
    std::vector<std::string> opening{};  ///< before the answer's text
    std::vector<std::string> texts{};    ///< the answer's pieces
    std::vector<std::string> ending{};   ///< after the text: finish reason, usage, end mark
    std::string keepAlive{};             ///< shows that the service is alive; empty: the service has no such event
    std::function<std::string(const KAIRefusal&)> writeFailure{};  ///< an error between the pieces
};

/// The reply that sends these events as the stream's settings say.
[[nodiscard]] LoopbackReply writeStreamedReply(const KAIEmulatedStream& stream, const KAIStreamedEvents& events,
                                               LoopbackFields headers);

/// A choice's text in pieces. A choice with several parts keeps them, unless the stream sets a length of pieces.
[[nodiscard]] std::vector<std::string> splitChoice(const KAIEmulatedChoice& choice, const KAIEmulatedStream& stream);
/// A text in pieces of at most this many characters; 0: each a word with the blanks before it. UTF-8 characters are not
/// cut.
[[nodiscard]] std::vector<std::string> splitText(std::string_view text, std::size_t pieceCharacters);

/// A server-sent event: "data: " and the data, with a line end and an empty line.
[[nodiscard]] std::string writeServerSentEvent(std::string_view data, std::string_view lineEnd = "\n");

#endif
