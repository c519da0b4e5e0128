#ifndef KAI_CHAT_HISTORY_H
#define KAI_CHAT_HISTORY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kai.h"
#include "kai_chat_protocol.h"

namespace kai {

/// A source file and line, as an assertion reports them.
struct SourcePlace {
    const char* sourceFile;
    int line;
};

/// Appends a text as a JSON string between the two parts of a frame.
void appendFramed(std::string& target, const ChatFrame& frame, std::string_view text);

/// The messages of a conversation, oldest first, in the form in which a request contains them: framed, escaped, and
/// each followed by a comma. A request sends these bytes without copying them.
///
/// Appended bytes are never moved or changed, so views of them are valid as long as the history lives. One thread at a
/// time.
class ChatHistory {
public:
    /// @param expectedSize  the expected size of all messages together, in bytes; a hint
    explicit ChatHistory(const ChatProtocol& protocol, std::size_t expectedSize = 0)
        : m_protocol(protocol), m_expectedSize(expectedSize) {}

    /// Reserves memory for this number of messages, but not for their texts.
    void makePlaces(std::size_t messages);
    /// Appends a message with the text of its first section. Throws std::out_of_range ("invalid vector subscript") if
    /// it has no section. An exception leaves the history unchanged.
    void appendMessage(IKAIMessage& message);
    void appendMessage(std::int32_t role, std::string_view text);
    /// @param buffer  a work buffer; reusing one for many messages saves allocations
    void appendMessage(std::int32_t role, std::string_view text, std::string& buffer);

    /// Appends the user's message, which is already framed, and its answer. An exception leaves the history unchanged.
    void appendTurn(std::string_view framedUserMessage, IKAIMessage& answer);

    /// The bytes of all messages, in order.
    [[nodiscard]] const std::vector<std::string>& obtainBlocks() const noexcept { return m_blocks; }

    /// Appends the messages in the form of a session's text, separated by commas.
    /// @param rolePlace  the place to report for a message with an unknown role
    void appendSessionText(std::string& text, SourcePlace rolePlace) const;

    /// The role of a message.
    enum class Role : std::uint8_t { User, Assistant, Unknown };

private:
    /// A message in the bytes: its size, frame and comma included.
    struct Place {
        std::uint64_t size : 62;
        std::uint64_t role : 2;
    };

    [[nodiscard]] static Role classifyRole(std::int32_t role) noexcept;
    [[nodiscard]] const ChatFrame& obtainFrame(Role role) const noexcept;
    void makeRoom(std::size_t messages, std::size_t size);
    void add(Role role, std::string_view framed) noexcept;
    void note(Role role, std::size_t size) noexcept;
    void appendBytes(std::string_view bytes) noexcept;
    void appendReframed(std::string& text, SourcePlace rolePlace) const;

    const ChatProtocol& m_protocol;
    // A block never grows beyond its first capacity, so its bytes never move. A message may begin in one block and end
    // in the next.
    std::vector<std::string> m_blocks;
    std::vector<Place> m_places;
    std::size_t m_size = 0;
    std::size_t m_expectedSize;
    bool m_hasUnknownRole = false;
};

}  // namespace kai

#endif
