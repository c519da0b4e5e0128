#ifndef KAI_SESSION_CHAT_H
#define KAI_SESSION_CHAT_H

#include <memory>
#include <string>

#include "kai.h"
#include "kai_assistant_properties.h"
#include "kai_chat_history.h"
#include "kai_chat_protocol.h"

namespace kai {

/// A conversation that is kept here and sent whole with every turn: the session of every chat-completion provider.
class ChatSession : public IKAISession {
public:
    /// @param properties  the assistant's own, borrowed for the session's life
    /// @param protocol    the assistant's; lives as long as the program
    /// @param rolePlace   the place that a report of a message with an unknown role names
    ChatSession(KAIAssistantProperties& properties, const ChatProtocol& protocol, SourcePlace rolePlace);

    std::string serializeSession() override;

    /// Fills the session, and the assistant's properties, from the text of serializeSession. The provider's default
    /// host stands in for a blank one.
    /// @return false, with nothing changed, when the text is not JSON; whatever else is wrong in it is passed over
    bool loadSession(const std::string& serializedSession);

    /// The messages. A turn that runs keeps them alive, so that a host's callback may free the session meanwhile.
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
