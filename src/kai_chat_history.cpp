#include "kai_chat_history.h"

#include <algorithm>

#include "cf/assertion.h"
#include "kai_message.h"

namespace kai {

namespace {

// A session's text is the same for every provider.
constexpr ChatFrame kSessionUser{R"({"role":"user","content":)", "}"};
constexpr ChatFrame kSessionAssistant{R"({"role":"assistant","content":)", "}"};
constexpr ChatFrame kSessionUnknown{R"({"role":"","content":)", "}"};

const ChatFrame& obtainSessionFrame(ChatHistory::Role role) {
    return role == ChatHistory::Role::User        ? kSessionUser
           : role == ChatHistory::Role::Assistant ? kSessionAssistant
                                                  : kSessionUnknown;
}

/// Room for more than is asked for, in proportion to what there is: a conversation of any length takes few blocks and
/// leaves little of them unused.
constexpr std::size_t growBy(std::size_t size, std::size_t least, std::size_t most) {
    return std::clamp(size / 8, least, most);
}

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

void ChatHistory::appendMessage(std::int32_t role, std::string_view text, std::string& buffer) {
    const Role kind = classifyRole(role);
    buffer.clear();
    appendFramed(buffer, obtainFrame(kind), text);
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

void ChatHistory::makeRoom(std::size_t messages, std::size_t size) {
    constexpr std::size_t kLeastPlaces = 4;
    constexpr std::size_t kMostPlaces = 4096;
    constexpr std::size_t kLeastBlock = 2048;
    constexpr std::size_t kMostBlock = 64 * 1024;
    if (m_places.capacity() - m_places.size() < messages) {
        m_places.reserve(m_places.size() + messages + growBy(m_places.size(), kLeastPlaces, kMostPlaces));
    }
    if (m_blocks.empty() || m_blocks.back().capacity() - m_blocks.back().size() < size) {
        std::string block;
        block.reserve(std::max(size, growBy(std::max(m_size, m_expectedSize), kLeastBlock, kMostBlock)));
        m_blocks.push_back(std::move(block));
    }
}

void ChatHistory::add(Role role, std::string_view framed) noexcept {
    std::string& block = m_blocks.back();
    block += framed;
    block += ',';
    m_places.push_back({.size = framed.size() + 1, .role = static_cast<std::uint64_t>(role)});
    m_size += framed.size() + 1;
    m_hasUnknownRole = m_hasUnknownRole || role == Role::Unknown;
}

void ChatHistory::appendReframed(std::string& text, SourcePlace rolePlace) const {
    auto block = m_blocks.begin();
    std::string_view left = *block;
    for (const Place& place : m_places) {
        if (left.empty()) {
            left = *++block;
        }
        const auto role = static_cast<Role>(place.role);
        const ChatFrame& sent = obtainFrame(role);
        const std::size_t quoted = place.size - sent.start.size() - sent.end.size() - 1;
        const ChatFrame& kept = obtainSessionFrame(role);
        CF_ASSERT_AT(role != Role::Unknown, "false", rolePlace.sourceFile, rolePlace.line);
        text.append(kept.start).append(left, sent.start.size(), quoted).append(kept.end).append(",");
        left.remove_prefix(place.size);
    }
}

void ChatHistory::appendSessionText(std::string& text, SourcePlace rolePlace) const {
    if (m_places.empty()) {
        return;
    }
    // Room for what the caller appends, too: growing again would copy all of it.
    constexpr std::size_t kRoomBehind = 64;
    text.reserve(text.size() + m_size + kRoomBehind);
    if (!m_hasUnknownRole && m_protocol.userMessage == kSessionUser &&
        m_protocol.assistantMessage == kSessionAssistant) {
        for (const std::string& block : m_blocks) {
            text += block;
        }
    } else {
        appendReframed(text, rolePlace);
    }
    text.pop_back();  // the comma behind the last message
}

}  // namespace kai
