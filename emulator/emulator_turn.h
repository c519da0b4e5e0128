#ifndef KAI_EMULATOR_TURN_H
#define KAI_EMULATOR_TURN_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "loopback_server.h"

/// Members keep the order in which they are written, as in the services' replies.
using KAIEmulatorJson = nlohmann::ordered_json;

/// A model on offer.
struct KAIEmulatedModel {
    KAIEmulatedModel(std::string modelName, KAIEmulatorJson modelMembers = KAIEmulatorJson::object())
        : name(std::move(modelName)), members(std::move(modelMembers)) {}
    KAIEmulatedModel(const char* modelName) : KAIEmulatedModel(std::string(modelName)) {}

    std::string name;         ///< as in a client's request
    KAIEmulatorJson members;  ///< replace or extend the members of the service's list entry
};

struct KAIEmulatedMessage {
    std::string role;  ///< "user" or "assistant", whatever the service calls them
    std::string text;
};

/// A user message that waits for an answer, with its conversation.
struct KAIEmulatedTurn {
    std::string model{};
    std::string instructions{};                  ///< the system message; empty: none
    std::vector<KAIEmulatedMessage> messages{};  ///< the conversation, oldest first, the waiting message last
    std::size_t number = 0;                      ///< from 1, in the order of the questions

    /// The waiting message's text.
    [[nodiscard]] const std::string& obtainQuestion() const;
    /// The first user message's text.
    [[nodiscard]] const std::string& obtainFirstQuestion() const;
    /// The number of messages before the waiting one.
    [[nodiscard]] std::size_t countHistory() const { return messages.empty() ? 0 : messages.size() - 1; }
};

/// A refusal; the service formats it as its own error body.
struct KAIRefusal {
    int status = 500;
    std::string message{};
    std::string type{};   ///< empty: the service's usual one for this status
    std::string code{};   ///< empty: as above
    std::string param{};  ///< the member at fault, where the service names it
};

/// One of the model's alternatives.
struct KAIEmulatedChoice {
    std::vector<std::string> parts{};  ///< several if the service splits texts (Gemini, OpenAI); others join them
    std::string reasoning{};           ///< the model's thoughts; empty: none are sent
    std::string finishReason{};        ///< in the service's own words; empty: the usual end
    [[nodiscard]] std::string join() const;
};

/// How an answer is sent to a client that requests streaming. Pieces are counted from the first one with text.
struct KAIEmulatedStream {
    std::size_t pieceCharacters = 0;        ///< the longest piece; 0: a word, or the parts of a choice with several
    std::chrono::milliseconds interval{0};  ///< pause between two events
    std::size_t keepAlives = 0;             ///< events without content before the first piece, if the service has them
    std::optional<KAIRefusal> failure{};    ///< an error instead of the rest of the answer, in the service's own form
    std::size_t failAfter = 0;              ///< pieces before it
    LoopbackFault fault = LoopbackFault::None;  ///< what happens to the connection: one of the faults in a body
    std::size_t faultAfter = 0;                 ///< pieces before it
    std::chrono::milliseconds stallLimit{0};    ///< as in LoopbackReply
    bool isEndLeftOut = false;                  ///< nothing is sent after the last piece: no finish reason, no end mark
};

/// The service's answer to a user message.
struct KAIEmulatedAnswer {
    std::vector<KAIEmulatedChoice> choices{};
    /// How the answer is streamed. Absent: as the emulator's options say.
    std::optional<KAIEmulatedStream> stream{};
    /// If present, the request fails; the choices are not used.
    std::optional<KAIRefusal> refusal{};
    /// OpenAI: the states that consecutive polls of the run return; the last one stays. Empty: "in_progress", then
    /// "completed". The choices are the run's messages, once it is completed.
    std::vector<std::string> runStates{};
    /// OpenAI: code and message of a run's failure.
    std::pair<std::string, std::string> runError{"server_error", "Sorry, something went wrong."};
    /// Modifies the finished reply, for example with a fault, a framing or another body.
    std::function<void(LoopbackReply&)> change{};

    [[nodiscard]] static KAIEmulatedAnswer say(std::string text);
    [[nodiscard]] static KAIEmulatedAnswer refuse(int status, std::string message);
};

#endif
