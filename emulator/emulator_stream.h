#ifndef KAI_EMULATOR_STREAM_H
#define KAI_EMULATOR_STREAM_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_turn.h"

/// A streamed answer as the service writes it: every event complete, with its line ends.
struct KAIStreamedEvents {
    std::vector<std::string> opening{};  ///< before the answer's text
    std::vector<std::string> texts{};    ///< the answer's pieces
    std::vector<std::string> ending{};   ///< after the text: finish reason, usage, end mark
    std::string keepAlive{};             ///< says that the service is still there; empty: the service has no such event
    std::function<std::string(const KAIRefusal&)> writeFailure{};  ///< an error between the pieces
};

/// The reply that sends these events in the way the stream wants it.
[[nodiscard]] LoopbackReply writeStreamedReply(const KAIEmulatedStream& stream, const KAIStreamedEvents& events,
                                               LoopbackFields headers);

/// A choice's text in pieces. One of several parts keeps them, unless the stream says how long pieces are.
[[nodiscard]] std::vector<std::string> splitChoice(const KAIEmulatedChoice& choice, const KAIEmulatedStream& stream);
/// A text in pieces of at most so many characters; 0: of a word with the blanks before it. UTF-8 is not cut.
[[nodiscard]] std::vector<std::string> splitText(std::string_view text, std::size_t pieceCharacters);

/// A server-sent event: "data: " and this, with a line end and an empty line.
[[nodiscard]] std::string writeServerSentEvent(std::string_view data, std::string_view lineEnd = "\n");

#endif
