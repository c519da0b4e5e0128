#ifndef KAI_CHAT_TURN_H
#define KAI_CHAT_TURN_H

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cf/json.h"
#include "kai_chat_history.h"
#include "kai_chat_protocol.h"

namespace kai {

/// The body of a turn's request. Only what is new in the turn is written. The instructions and the history are sent
/// without copying; the body and its pieces keep them alive.
class ChatBody : public ICOJsonValue {
public:
    /// @param text        the user's new message
    /// @param isStreamed  whether a streamed answer is requested
    ChatBody(const ChatProtocol& protocol, const KAIAssistantProperties& properties,
             std::shared_ptr<const ChatHistory> history, std::string_view text, bool isStreamed = false);

    /// Parses the pieces and writes them again: slow, and not used for requests.
    void writeJson(COJsonWriter& writer) const override;
    [[nodiscard]] std::vector<COJsonPiece> obtainJsonPieces() const override;

    /// The user's message with its frame, as in the body; valid as long as the body.
    [[nodiscard]] std::string_view obtainUserMessage() const noexcept {
        return std::string_view(*m_written).substr(m_userStart, m_userEnd - m_userStart);
    }

private:
    enum class Part : std::uint8_t { Instructions, History };

    /// Where in m_written a part is inserted.
    struct Insertion {
        std::size_t place;
        Part part;
    };

    void appendMember(const ChatMember& member, const ChatProtocol& protocol, const AssistantSettings& settings,
                      std::string_view text);
    void appendMessages(const ChatProtocol& protocol, std::string_view text);
    void insert(Part part) noexcept;

    std::shared_ptr<const std::string> m_instructions;
    std::shared_ptr<const ChatHistory> m_history;
    // The body without the instructions and the history.
    std::shared_ptr<std::string> m_written = std::make_shared<std::string>();
    std::array<Insertion, 2> m_insertions{};
    std::size_t m_insertionCount = 0;
    std::size_t m_userStart = 0;
    std::size_t m_userEnd = 0;
};

}  // namespace kai

#endif
