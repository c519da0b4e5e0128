#include "kai_chat_turn.h"

#include <algorithm>

namespace kai {

namespace {

/// Whether the member is part of this turn's body.
bool isNeeded(ChatValue value, const KAIAssistantProperties& properties, bool hasInstructions, bool isStreamed) {
    switch (value) {
        case ChatValue::Temperature:
            return properties.isAssigned("temperature");
        case ChatValue::Instructions:
            return hasInstructions;
        case ChatValue::WhenWhole:
            return !isStreamed;
        case ChatValue::WhenStreamed:
            return isStreamed;
        default:
            return true;
    }
}

}  // namespace

ChatBody::ChatBody(const ChatProtocol& protocol, const KAIAssistantProperties& properties,
                   std::shared_ptr<const ChatHistory> history, std::string_view text, bool isStreamed)
    : m_instructions(properties.obtainWrittenInstructions()), m_history(std::move(history)) {
    constexpr std::size_t kUsualSizeAroundTheText = 512;
    m_written->reserve(text.size() + kUsualSizeAroundTheText);
    for (const ChatMember& member : protocol.body) {
        if (isNeeded(member.value, properties, m_instructions != nullptr, isStreamed)) {
            *m_written += m_written->empty() ? '{' : ',';
            appendMember(member, protocol, properties.obtainSettings(), text);
        }
    }
    *m_written += '}';
}

void ChatBody::appendMember(const ChatMember& member, const ChatProtocol& protocol, const AssistantSettings& settings,
                            std::string_view text) {
    *m_written += member.start;
    switch (member.value) {
        case ChatValue::None:
        case ChatValue::WhenWhole:
        case ChatValue::WhenStreamed:
            break;
        case ChatValue::Model:
            appendFramed(*m_written, {}, settings.model);
            break;
        case ChatValue::Temperature:
            COJsonWriter(*m_written).writeDouble(settings.temperature);
            break;
        case ChatValue::Instructions:
            insert(Part::Instructions);
            break;
        case ChatValue::Messages:
            appendMessages(protocol, text);
            break;
    }
    *m_written += member.end;
}

void ChatBody::appendMessages(const ChatProtocol& protocol, std::string_view text) {
    if (m_instructions != nullptr && protocol.systemMessage != ChatFrame()) {
        *m_written += protocol.systemMessage.start;
        insert(Part::Instructions);
        m_written->append(protocol.systemMessage.end).append(",");
    }
    insert(Part::History);
    m_userStart = m_written->size();
    appendFramed(*m_written, protocol.userMessage, text);
    m_userEnd = m_written->size();
}

void ChatBody::insert(Part part) noexcept {
    m_insertions[m_insertionCount++] = {m_written->size(), part};
}

std::vector<COJsonPiece> ChatBody::obtainJsonPieces() const {
    std::vector<COJsonPiece> pieces;
    pieces.reserve(2 * m_insertionCount + m_history->obtainBlocks().size());
    const std::string_view written = *m_written;
    std::size_t done = 0;
    for (std::size_t i = 0; i < m_insertionCount; ++i) {
        const auto [place, part] = m_insertions[i];
        pieces.push_back({written.substr(done, place - done), m_written});
        done = place;
        if (part == Part::Instructions) {
            pieces.push_back({*m_instructions, m_instructions});
            continue;
        }
        for (const std::string& block : m_history->obtainBlocks()) {
            pieces.push_back({block, m_history});
        }
    }
    pieces.push_back({written.substr(done), m_written});
    return pieces;
}

void ChatBody::writeJson(COJsonWriter& writer) const {
    std::string text;
    for (const COJsonPiece& piece : obtainJsonPieces()) {
        text += piece.text;
    }
    COJson(text).writeJson(writer);
}

}  // namespace kai
