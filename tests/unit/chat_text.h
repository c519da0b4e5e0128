#ifndef TESTS_CHAT_TEXT_H
#define TESTS_CHAT_TEXT_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kai_chat_turn.h"
#include "kai_message.h"
#include "kai_session_chat.h"

/// Messages as (role, text).
using Messages = std::vector<std::pair<std::int32_t, std::string>>;

/// Appends a user's text and an answer to a session's history.
inline void appendTurn(kai::ChatSession& session, std::string_view userText, std::string_view answer) {
    session.obtainHistory()->appendMessage(KAI_ROLE_USER, userText);
    session.obtainHistory()->appendMessage(KAI_ROLE_ASSISTANT, answer);
}

/// The messages of a session, read from its text.
inline Messages readMessages(kai::ChatSession& session) {
    Messages messages;
    const COJson json(session.serializeSession());
    for (const COJsonValue item : json.obtainMember("messages").obtainItems()) {
        messages.emplace_back(item.obtainMember("role").obtainString() == "user" ? KAI_ROLE_USER : KAI_ROLE_ASSISTANT,
                              item.obtainMember("content").obtainString());
    }
    return messages;
}

/// The body of a chat request after these messages, as it is sent.
inline std::string writeBody(const kai::ChatProtocol& protocol, const KAIAssistantProperties& properties,
                             const Messages& messages, const std::string& text) {
    const auto history = std::make_shared<kai::ChatHistory>(protocol);
    for (const auto& [role, content] : messages) {
        history->appendMessage(role, content);
    }
    std::string body;
    for (const COJsonPiece& piece : kai::ChatBody(protocol, properties, history, text).obtainJsonPieces()) {
        body += piece.text;
    }
    return body;
}

/// What a provider reads as the reply's text in a response; "<unsupported>" for one of another form.
inline std::string readReply(const kai::ChatProtocol& protocol, const std::string& response) {
    const COJson json(response);
    return json.getIsValidJson() ? protocol.readReply(json).value_or("<unsupported>") : "<not JSON>";
}

/// The identifiers that a provider reads in a model list; one "<unsupported>" for a response of another form.
inline std::vector<std::string> readModels(const kai::ChatProtocol& protocol, const std::string& response) {
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
