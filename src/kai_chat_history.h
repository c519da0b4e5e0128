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

/// A place in the sources, as assertions name it.
struct SourcePlace {
    const char* sourceFile;
    int line;
};

/// Appends a text as a JSON string between the two parts of a frame.
void appendFramed(std::string& target, const ChatFrame& frame, std::string_view text);

/// The messages of a conversation, oldest first, kept as they stand in a request: framed, escaped, and each followed by
/// a comma. A request sends these bytes from where they lie.
///
/// What was appended is never moved or changed, so views of it are valid as long as the history lives. One thread at a
/// time.
class ChatHistory {
public:
    /// @param expectedSize  the size that all messages will come to, as far as it is known; a hint
    explicit ChatHistory(const ChatProtocol& protocol, std::size_t expectedSize = 0)
        : m_protocol(protocol), m_expectedSize(expectedSize) {}

    /// Appends the text of the message's first section. Throws std::out_of_range ("invalid vector subscript") when it
    /// has none. All or nothing.
    void appendMessage(IKAIMessage& message);
    void appendMessage(std::int32_t role, std::string_view text);
    /// @param buffer  for the message while it is written; one for many messages saves allocations
    void appendMessage(std::int32_t role, std::string_view text, std::string& buffer);

    /// Appends what the user said, framed already, and the answer to it, as appendMessage() does. All or nothing.
    void appendTurn(std::string_view framedUserMessage, IKAIMessage& answer);

    /// The bytes in their order, as few views as there are.
    [[nodiscard]] const std::vector<std::string>& obtainBlocks() const noexcept { return m_blocks; }

    /// Appends the messages, separated by commas, as they stand in a session's text.
    /// @param rolePlace  the place that a report of a message with an unknown role names
    void appendSessionText(std::string& text, SourcePlace rolePlace) const;

    /// Who speaks in a message, as far as it matters here.
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
    void appendBytes(std::string_view bytes) noexcept;
    void appendReframed(std::string& text, SourcePlace rolePlace) const;

    const ChatProtocol& m_protocol;
    // A block is filled up to the capacity that it was made with, so its bytes stay where they are. A message may begin
    // in one block and end in the next.
    std::vector<std::string> m_blocks;
    std::vector<Place> m_places;
    std::size_t m_size = 0;
    std::size_t m_expectedSize;
    bool m_hasUnknownRole = false;
};

}  // namespace kai

#endif
