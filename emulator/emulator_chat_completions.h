#ifndef KAI_EMULATOR_CHAT_COMPLETIONS_H
#define KAI_EMULATOR_CHAT_COMPLETIONS_H

#include <functional>
#include <string>
#include <vector>

#include "emulator_stream.h"

/// Where services that speak chat completions differ.
struct KAIChatDialect {
    int malformedStatus;  ///< status for a body with missing members or members of another type
    KAIRefusal (*refuseModel)(const std::string& model);  ///< for a model that is not on offer
    bool hasRefusalMember;                                ///< messages have `"refusal": null`
    bool hasCacheFigures;                                 ///< usage has the tokens that hit and missed the prompt cache
    std::string_view keepAlive;                           ///< comment while a stream waits; empty: none
};

/// A request for a completion.
struct KAIChatRequest {
    KAIEmulatedTurn turn{};
    bool isStreamed = false;
    bool isUsageStreamed = false;
};

/// Throws KAIRefusal for a request that the service does not accept.
[[nodiscard]] KAIChatRequest readChatRequest(const LoopbackRequest& request, const KAIChatDialect& dialect,
                                             const std::vector<KAIEmulatedModel>& models);
[[nodiscard]] KAIEmulatorJson writeChatCompletion(const KAIEmulatedTurn& turn, const KAIEmulatedAnswer& answer,
                                                  const KAIChatDialect& dialect);
/// `writeFailure` writes an error's body.
[[nodiscard]] KAIStreamedEvents writeChatEvents(const KAIChatRequest& request, const KAIEmulatedAnswer& answer,
                                                const KAIChatDialect& dialect,
                                                std::function<KAIEmulatorJson(const KAIRefusal&)> writeFailure);

#endif
