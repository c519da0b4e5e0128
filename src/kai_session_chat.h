#ifndef KAI_SESSION_CHAT_H
#define KAI_SESSION_CHAT_H

#include <memory>
#include <string>

#include "kai.h"
#include "kai_assistant_properties.h"
#include "kai_chat_history.h"
#include "kai_chat_protocol.h"

namespace kai {

/// A conversation that is stored in the process and sent completely with every turn: the session of every
/// chat-completion provider.
class ChatSession : public IKAISession {
public:
    /// @param properties  the assistant's own, borrowed for the session's life
    /// @param protocol    the assistant's; lives as long as the program
    /// @param rolePlace   the place to report for a message with an unknown role
    ChatSession(KAIAssistantProperties& properties, const ChatProtocol& protocol, SourcePlace rolePlace);

    std::string serializeSession() override;

    /// Restores the session and the assistant's properties from the text of serializeSession. If the host is empty, the
    /// provider's default host is used. Errors in the text other than invalid JSON are ignored.
    /// @return false if the text is not JSON; nothing has changed then
    bool loadSession(std::string serializedSession);

    /// The messages. A running turn keeps them alive, so a host's callback may free the session during the turn.
    [[nodiscard]] const std::shared_ptr<ChatHistory>& obtainHistory() const noexcept { return m_history; }
    [[nodiscard]] const KAIAssistantProperties& obtainProperties() const noexcept { return m_properties; }

private:
    KAIAssistantProperties& m_properties;
    const ChatProtocol& m_protocol;
    std::shared_ptr<ChatHistory> m_history;
    SourcePlace m_rolePlace;
};

/// ChatProtocol::createSession for a provider with a session class of its own.
template <class Session>
std::unique_ptr<ChatSession> createChatSession(KAIAssistantProperties& properties, const ChatProtocol& /*protocol*/) {
    return std::make_unique<Session>(properties);
}

}  // namespace kai

#endif
