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

/// Members stay in the order in which they are written, as the services send them.
using KAIEmulatorJson = nlohmann::ordered_json;

/// A model that the service offers.
struct KAIEmulatedModel {
    KAIEmulatedModel(std::string modelName, KAIEmulatorJson modelMembers = KAIEmulatorJson::object())
        : name(std::move(modelName)), members(std::move(modelMembers)) {}
    KAIEmulatedModel(const char* modelName) : KAIEmulatedModel(std::string(modelName)) {}

    std::string name;         ///< as a client names it in a request
    KAIEmulatorJson members;  ///< replace or extend those of the service's list entry
};

struct KAIEmulatedMessage {
    std::string role;  ///< "user" or "assistant", whatever the service calls them
    std::string text;
};

/// A user message that waits for an answer, with what came along.
struct KAIEmulatedTurn {
    std::string model{};
    std::string instructions{};                  ///< the system message; empty: none
    std::vector<KAIEmulatedMessage> messages{};  ///< the conversation, oldest first, the waiting message last
    std::size_t number = 0;                      ///< from 1, in the order in which the service was asked

    /// The waiting message's text.
    [[nodiscard]] const std::string& obtainQuestion() const;
    /// The first user message's text.
    [[nodiscard]] const std::string& obtainFirstQuestion() const;
    /// How many messages stand before the waiting one.
    [[nodiscard]] std::size_t countHistory() const { return messages.empty() ? 0 : messages.size() - 1; }
};

/// A refusal, to be worded in the service's own error body.
struct KAIRefusal {
    int status = 500;
    std::string message{};
    std::string type{};   ///< empty: what the service says with this status
    std::string code{};   ///< empty: as above
    std::string param{};  ///< the member at fault, where the service names it
};

/// One of the model's alternatives.
struct KAIEmulatedChoice {
    std::vector<std::string> parts{};  ///< several where the service divides a text (Gemini, OpenAI); others join them
    std::string reasoning{};           ///< what the model thought; empty: nothing is sent of it
    std::string finishReason{};        ///< in the service's own words; empty: the usual end
    [[nodiscard]] std::string join() const;
};

/// How an answer is sent to a client that asks for it in pieces. Pieces are counted from the first that holds text.
struct KAIEmulatedStream {
    std::size_t pieceCharacters = 0;        ///< the longest piece; 0: a word, or the parts of a choice that has several
    std::chrono::milliseconds interval{0};  ///< pause between two events
    std::size_t keepAlives = 0;           ///< events without content before the first piece, where the service has any
    std::optional<KAIRefusal> failure{};  ///< an error in place of the rest of the answer, in the service's own shape
    std::size_t failAfter = 0;            ///< pieces before it
    LoopbackFault fault = LoopbackFault::None;  ///< what happens to the connection: one of the faults in a body
    std::size_t faultAfter = 0;                 ///< pieces before it
    std::chrono::milliseconds stallLimit{0};    ///< as LoopbackReply has it
    bool isEndLeftOut = false;                  ///< nothing is sent after the last piece: no finish reason, no end mark
};

/// What the service answers to a user message.
struct KAIEmulatedAnswer {
    std::vector<KAIEmulatedChoice> choices{};
    /// For a client that asks for pieces. Absent: as the emulator was told.
    std::optional<KAIEmulatedStream> stream{};
    /// In place of the choices: the request fails.
    std::optional<KAIRefusal> refusal{};
    /// OpenAI: the states that the polls of the run see one after the other; the last one stays. Empty: "in_progress",
    /// then "completed". The choices are the run's messages, once it is completed.
    std::vector<std::string> runStates{};
    /// OpenAI: code and message of a run's failure.
    std::pair<std::string, std::string> runError{"server_error", "Sorry, something went wrong."};
    /// Changes the finished reply: a fault, a framing, another body.
    std::function<void(LoopbackReply&)> change{};

    [[nodiscard]] static KAIEmulatedAnswer say(std::string text);
    [[nodiscard]] static KAIEmulatedAnswer refuse(int status, std::string message);
};

#endif
