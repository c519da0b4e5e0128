#ifndef TESTS_CHAT_TEXT_H
#define TESTS_CHAT_TEXT_H

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "kai_assistant_chat.h"

/// A history of messages of one section each, made from (role, text).
inline KAIChatHistory makeHistory(std::initializer_list<std::pair<std::int32_t, std::string>> messages) {
    KAIChatHistory history;
    for (const auto& [role, text] : messages) {
        history.push_back(createTextMessage(role, 0, text));
    }
    return history;
}

/// The body of a chat request, as a provider writes it.
inline std::string writeBody(const KAIChatProtocol& protocol, const KAIAssistantProperties& properties,
                             const KAIChatHistory& history, const std::string& text) {
    const std::string instructions = properties.obtainCombinedInstructions();
    const KAIChatTurn turn{properties.obtainSettings(), properties.isAssigned("temperature"), instructions, history,
                           text};
    return KAIChatBody(turn, protocol.writeChatBody).obtainJsonString();
}

/// What a provider reads as the reply's text in a response; "<unsupported>" for one of another form.
inline std::string readReply(const KAIChatProtocol& protocol, const std::string& response) {
    const COJson json(response);
    return json.getIsValidJson() ? protocol.readReply(json).value_or("<unsupported>") : "<not JSON>";
}

/// The identifiers that a provider reads in a model list; one "<unsupported>" for a response of another form.
inline std::vector<std::string> readModels(const KAIChatProtocol& protocol, const std::string& response) {
    const COJson json(response);
    if (!json.getIsValidJson()) {
        return {"<not JSON>"};
    }
    return protocol.readModels(json).value_or(std::vector<std::string>{"<unsupported>"});
}

/// What a reader of failed responses gives for a body.
inline std::string readError(std::string (*reader)(CMRestResourceResponse*), const std::string& body) {
    CMRestResourceResponse response(400, body);
    return reader(&response);
}

#endif
