#ifndef KAI_SESSION_CHAT_H
#define KAI_SESSION_CHAT_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kai.h"
#include "kai_assistant_properties.h"
#include "kai_message.h"

/// A place in the sources, as assertions name it.
struct KAISourcePlace {
    const char* sourceFile;
    int line;
};

/// The messages of a conversation, oldest first.
using KAIChatHistory = std::vector<std::unique_ptr<KAIMessage>>;

// What stands around the text of a message in a request's "messages" and in a session's text. Written as it is: a
// conversation has it once a message.
inline constexpr std::string_view kChatSystemStart = R"({"role":"system","content":)";
inline constexpr std::string_view kChatUserStart = R"({"role":"user","content":)";
inline constexpr std::string_view kChatAssistantStart = R"({"role":"assistant","content":)";
inline constexpr std::string_view kChatNobodyStart = R"({"role":"","content":)";
inline constexpr std::string_view kChatMessageEnd = "}";

/// A conversation that is kept here and sent whole with every turn: what the sessions of the chat-completion providers
/// share. Each provider derives its own class, so that sessions of different providers can be told apart.
class KAISessionChat : public IKAISession {
public:
    std::string serializeSession() override;

    /// Fills the session, and the assistant's properties, from the text of serializeSession.
    /// @param defaultHost  stands in for a blank host
    /// @return false, with nothing changed, when the text is not JSON; whatever else is wrong in it is passed over
    bool loadSession(const std::string& serializedSession, std::string_view defaultHost = {});

    /// Appends a turn: what the user said and what was answered. All or nothing.
    void appendTurn(std::string userText, std::string assistantText);

    /// Appends one message as it is.
    void appendMessage(std::unique_ptr<KAIMessage> message);

    [[nodiscard]] const KAIChatHistory& obtainHistory() const noexcept { return m_history; }
    [[nodiscard]] const KAIAssistantProperties& obtainProperties() const noexcept { return m_properties; }

protected:
    /// @param properties  the assistant's own, borrowed for the session's life
    /// @param rolePlace   the place that a report of a message with an unknown role names
    KAISessionChat(KAIAssistantProperties& properties, KAISourcePlace rolePlace);

private:
    std::string_view obtainMessageStart(KAIMessage& message) const;

    KAIAssistantProperties& m_properties;
    KAIChatHistory m_history;
    KAISourcePlace m_rolePlace;
};

/// The bytes that the history's texts and what stands around them will about need when written as JSON.
std::size_t estimateHistory(const KAIChatHistory& history);

#endif
