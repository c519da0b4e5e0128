#include "kai_chat_history.h"

#include <algorithm>

#include "cf/assertion.h"
#include "kai_message.h"

namespace kai {

namespace {

// Session texts have the same form for every provider.
constexpr ChatFrame kSessionUser{R"({"role":"user","content":)", "}"};
constexpr ChatFrame kSessionAssistant{R"({"role":"assistant","content":)", "}"};
constexpr ChatFrame kSessionUnknown{R"({"role":"","content":)", "}"};

const ChatFrame& obtainSessionFrame(ChatHistory::Role role) {
    return role == ChatHistory::Role::User        ? kSessionUser
           : role == ChatHistory::Role::Assistant ? kSessionAssistant
                                                  : kSessionUnknown;
}

std::size_t countFree(const std::string& block) noexcept {
    return block.capacity() - block.size();
}

/// Reads messages from blocks, one after another.
class MessageReader {
public:
    explicit MessageReader(const std::vector<std::string>& blocks) : m_block(blocks.begin()), m_left(*m_block) {}

    /// The bytes of the next message, valid until the next call.
    std::string_view take(std::size_t size) {
        if (m_left.empty()) {
            m_left = *++m_block;
        }
        if (m_left.size() < size) {
            m_joined.assign(m_left);
            m_left = *++m_block;
            size -= m_joined.size();
            m_joined.append(m_left, 0, size);
            m_left.remove_prefix(size);
            return m_joined;
        }
        const std::string_view message = m_left.substr(0, size);
        m_left.remove_prefix(size);
        return message;
    }

private:
    std::vector<std::string>::const_iterator m_block;
    std::string_view m_left;
    std::string m_joined;
};

}  // namespace

void appendFramed(std::string& target, const ChatFrame& frame, std::string_view text) {
    COJsonWriter writer(target);
    writer.writeFramed(frame.start, text, frame.end);
}

ChatHistory::Role ChatHistory::classifyRole(std::int32_t role) noexcept {
    return role == KAI_ROLE_USER ? Role::User : role == KAI_ROLE_ASSISTANT ? Role::Assistant : Role::Unknown;
}

const ChatFrame& ChatHistory::obtainFrame(Role role) const noexcept {
    return role == Role::Assistant ? m_protocol.assistantMessage : m_protocol.userMessage;
}

void ChatHistory::appendMessage(IKAIMessage& message) {
    appendMessage(message.obtainRole(), obtainFirstText(message));
}

void ChatHistory::appendMessage(std::int32_t role, std::string_view text) {
    std::string buffer;
    appendMessage(role, text, buffer);
}

inline void ChatHistory::note(Role role, std::size_t size) noexcept {
    m_places.push_back({.size = size, .role = static_cast<std::uint64_t>(role)});
    m_size += size;
    m_hasUnknownRole |= role == Role::Unknown;
}

void ChatHistory::appendMessage(std::int32_t role, std::string_view text, std::string& buffer) {
    const Role kind = classifyRole(role);
    const ChatFrame& frame = obtainFrame(kind);
    if (!m_blocks.empty() && countFree(m_blocks.back()) > COJsonWriter::countMostFramed(frame.start, text, frame.end)) {
        makePlaces(1);
        std::string& block = m_blocks.back();
        const std::size_t before = block.size();
        appendFramed(block, frame, text);
        block += ',';
        note(kind, block.size() - before);
        return;
    }
    buffer.clear();
    appendFramed(buffer, frame, text);
    makeRoom(1, buffer.size() + 1);
    add(kind, buffer);
}

void ChatHistory::appendTurn(std::string_view framedUserMessage, IKAIMessage& answer) {
    const Role kind = classifyRole(answer.obtainRole());
    std::string framed;
    appendFramed(framed, obtainFrame(kind), obtainFirstText(answer));
    makeRoom(2, framedUserMessage.size() + framed.size() + 2);
    add(Role::User, framedUserMessage);
    add(kind, framed);
}

// makePlaces() and makeRoom() reserve more than requested, in proportion to the current size: a conversation of any
// length then takes few blocks and leaves little of them unused.

void ChatHistory::makePlaces(std::size_t messages) {
    constexpr std::size_t kLeastPlaces = 4;
    constexpr std::size_t kMostPlaces = 4096;
    if (m_places.capacity() - m_places.size() < messages) {
        m_places.reserve(m_places.size() + messages + std::clamp(m_places.size() / 16, kLeastPlaces, kMostPlaces));
    }
}

void ChatHistory::makeRoom(std::size_t messages, std::size_t size) {
    constexpr std::size_t kLeastBlock = std::size_t{4} * 1024;
    constexpr std::size_t kMostBlock = std::size_t{64} * 1024;
    makePlaces(messages);
    if (m_blocks.empty() || countFree(m_blocks.back()) < size) {
        const std::size_t share = m_size < m_expectedSize ? m_expectedSize / 8 : m_size / 16;
        std::string block;
        block.reserve(std::max(size, std::clamp(share, kLeastBlock, kMostBlock)));
        m_blocks.push_back(std::move(block));
    }
}

void ChatHistory::add(Role role, std::string_view framed) noexcept {
    appendBytes(framed);
    appendBytes(",");
    note(role, framed.size() + 1);
}

// While the last block is empty, the one before it may have free space.
void ChatHistory::appendBytes(std::string_view bytes) noexcept {
    if (m_blocks.back().empty() && m_blocks.size() > 1) {
        std::string& former = m_blocks[m_blocks.size() - 2];
        const std::string_view fitting = bytes.substr(0, countFree(former));
        former += fitting;
        bytes.remove_prefix(fitting.size());
    }
    m_blocks.back() += bytes;
}

void ChatHistory::appendReframed(std::string& text, SourcePlace rolePlace) const {
    MessageReader reader(m_blocks);
    for (const Place& place : m_places) {
        const auto role = static_cast<Role>(place.role);
        const ChatFrame& sent = obtainFrame(role);
        const std::size_t quoted = place.size - sent.start.size() - sent.end.size() - 1;
        const ChatFrame& kept = obtainSessionFrame(role);
        CF_ASSERT_AT(role != Role::Unknown, "false", rolePlace.sourceFile, rolePlace.line);
        text.append(kept.start)
            .append(reader.take(place.size).substr(sent.start.size(), quoted))
            .append(kept.end)
            .append(",");
    }
}

void ChatHistory::appendSessionText(std::string& text, SourcePlace rolePlace) const {
    if (m_places.empty()) {
        return;
    }
    // Includes space for what the caller appends, since growing again would copy the whole text, and for a parser that
    // reads the text in place.
    constexpr std::size_t kRoomBehind = 128;
    text.reserve(text.size() + m_size + kRoomBehind);
    if (!m_hasUnknownRole && m_protocol.userMessage == kSessionUser &&
        m_protocol.assistantMessage == kSessionAssistant) {
        for (const std::string& block : m_blocks) {
            text += block;
        }
    } else {
        appendReframed(text, rolePlace);
    }
    text.pop_back();  // the comma after the last message
}

}  // namespace kai
