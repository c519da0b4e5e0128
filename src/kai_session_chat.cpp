#include "kai_session_chat.h"

#include <optional>

#include "cf/json.h"
#include "kai_message.h"
#include "kai_session_settings.h"

namespace kai {

namespace {

std::optional<KAIRole> readRole(const COJsonValue& role) {
    const std::string_view word = role.obtainString();
    if (word == "user") {
        return KAI_ROLE_USER;
    }
    if (word == "assistant") {
        return KAI_ROLE_ASSISTANT;
    }
    return std::nullopt;
}

void readHistory(const COJson& json, ChatHistory& history) {
    std::string buffer;
    const COJsonValue messages = json.obtainMember("messages");
    history.makePlaces(messages.obtainSize());
    for (const COJsonValue item : messages.obtainItems()) {
        const auto [roleWord, content] = item.obtainMemberValues({"role", "content"});
        const std::optional<KAIRole> role = readRole(roleWord);
        const std::string_view text = content.obtainString();
        if (role && text.data() != nullptr) {
            history.appendMessage(*role, text, buffer);
        }
    }
}

}  // namespace

std::unique_ptr<ChatSession> createPlainChatSession(KAIAssistantProperties& properties, const ChatProtocol& protocol) {
    return std::make_unique<ChatSession>(properties, protocol, SourcePlace{__FILE__, __LINE__});
}

ChatSession::ChatSession(KAIAssistantProperties& properties, const ChatProtocol& protocol, SourcePlace rolePlace)
    : m_properties(properties),
      m_protocol(protocol),
      m_history(std::make_shared<ChatHistory>(protocol)),
      m_rolePlace(rolePlace) {}

std::string ChatSession::serializeSession() {
    std::string text = "{";
    {
        COJsonWriter writer(text);
        writer.reserve(estimateSessionSettings(m_properties.obtainSettings()));
        writeSessionSettings(writer, m_properties);
    }
    text += R"(,"messages":[)";
    m_history->appendSessionText(text, m_rolePlace);
    text += "]}";
    return text;
}

bool ChatSession::loadSession(std::string serializedSession) {
    std::shared_ptr<ChatHistory> history;
    SavedSettings saved;
    {
        const COJson json = COJson::readInPlace(serializedSession);
        if (!json.getIsValidJson()) {
            return false;
        }
        history = std::make_shared<ChatHistory>(m_protocol, serializedSession.size());
        readHistory(json, *history);
        saved = readSessionSettings(json, m_properties);
    }
    AssistantSettings restored = restoreSettings(m_properties.obtainSettings(), std::move(saved));
    if (restored.apiHost.empty()) {
        restored.apiHost = m_protocol.defaultHost;
    }
    m_properties.replaceSettings(std::move(restored));
    m_history = std::move(history);
    return true;
}

}  // namespace kai
