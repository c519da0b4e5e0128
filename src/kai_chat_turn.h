#ifndef KAI_CHAT_TURN_H
#define KAI_CHAT_TURN_H

#include <string>
#include <string_view>

#include "cf/json.h"
#include "kai_assistant_properties.h"
#include "kai_session_chat.h"

/// What a request of a chat-completion provider is made from. Refers to its parts, which outlive it.
struct KAIChatTurn {
    const KAIAssistantSettings& settings;
    /// Whether the host chose the temperature; it is sent only then.
    bool hasTemperature;
    /// The combined instructions; empty: none are sent.
    const std::string& instructions;
    const KAIChatHistory& history;
    /// What the user says now.
    std::string_view text;
};

/// A turn as the body of a request, written by a provider's function straight from the conversation.
class KAIChatBody : public ICOJsonValue {
public:
    using Write = void (*)(COJsonWriter& writer, const KAIChatTurn& turn);

    KAIChatBody(const KAIChatTurn& turn, Write write) : m_turn(turn), m_write(write) {}

    void writeJson(COJsonWriter& writer) const override;

private:
    const KAIChatTurn& m_turn;
    Write m_write;
};

/// Writes "messages": the instructions as the system's message, the history, and the user's text, each an object with
/// "role" and "content".
void writeChatMessages(COJsonWriter& writer, const KAIChatTurn& turn);

/// Writes the temperature as a member of the open object.
void writeTemperature(COJsonWriter& writer, const KAIChatTurn& turn);

#endif
