#include "kai_chat_turn.h"

void KAIChatBody::writeJson(COJsonWriter& writer) const {
    constexpr std::size_t kBytesAroundTheTexts = 512;
    const std::size_t newTexts = m_turn.instructions.size() + m_turn.text.size();
    // One buffer for the whole body: growing it on the way would copy the conversation again.
    writer.reserve(estimateHistory(m_turn.history) + newTexts + newTexts / 32 + kBytesAroundTheTexts);
    m_write(writer, m_turn);
}

void writeChatMessages(COJsonWriter& writer, const KAIChatTurn& turn) {
    writer.writeKey("messages");
    writer.beginArray();
    if (!turn.instructions.empty()) {
        writer.writeFramed(kChatSystemStart, turn.instructions, kChatMessageEnd);
    }
    for (const std::unique_ptr<KAIMessage>& message : turn.history) {
        const bool isAssistant = message->obtainRole() == KAI_ROLE_ASSISTANT;
        writer.writeFramed(isAssistant ? kChatAssistantStart : kChatUserStart, obtainFirstText(*message),
                           kChatMessageEnd);
    }
    writer.writeFramed(kChatUserStart, turn.text, kChatMessageEnd);
    writer.endArray();
}

void writeTemperature(COJsonWriter& writer, const KAIChatTurn& turn) {
    writer.writeKey("temperature");
    writer.writeDouble(turn.settings.temperature);
}
