#include "kai_session_chat.h"

#include <optional>

#include "cf/assertion.h"
#include "cf/json.h"
#include "kai_session_settings.h"

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

KAIChatHistory readHistory(const COJson& json) {
    KAIChatHistory history;
    for (const COJsonValue item : json.obtainMember("messages").obtainItems()) {
        const auto [roleWord, content] = item.obtainMemberValues({"role", "content"});
        const std::optional<KAIRole> role = readRole(roleWord);
        const std::string_view text = content.obtainString();
        if (role && text.data() != nullptr) {
            history.push_back(createTextMessage(*role, 0, std::string(text)));
        }
    }
    return history;
}

}  // namespace

KAISessionChat::KAISessionChat(KAIAssistantProperties& properties, KAISourcePlace rolePlace)
    : m_properties(properties), m_rolePlace(rolePlace) {}

std::string KAISessionChat::serializeSession() {
    const KAIAssistantSettings& settings = m_properties.obtainSettings();
    std::string text;
    COJsonWriter writer(text);
    writer.reserve(estimateSessionSettings(settings) + estimateHistory(m_history));
    writer.beginObject();
    writeSessionSettings(writer, settings);
    writer.writeKey("messages");
    writer.beginArray();
    for (const std::unique_ptr<KAIMessage>& message : m_history) {
        writer.writeFramed(obtainMessageStart(*message), obtainFirstText(*message), kChatMessageEnd);
    }
    writer.endArray();
    writer.endObject();
    writer.finish();
    return text;
}

std::string_view KAISessionChat::obtainMessageStart(KAIMessage& message) const {
    switch (message.obtainRole()) {
        case KAI_ROLE_USER:
            return kChatUserStart;
        case KAI_ROLE_ASSISTANT:
            return kChatAssistantStart;
        default:
            CF_ASSERT_AT(false, "false", m_rolePlace.sourceFile, m_rolePlace.line);
            return kChatNobodyStart;
    }
}

bool KAISessionChat::loadSession(const std::string& serializedSession, std::string_view defaultHost) {
    const COJson json(serializedSession);
    if (!json.getIsValidJson()) {
        return false;
    }
    KAIChatHistory history = readHistory(json);
    KAIAssistantProperties restored(m_properties);
    readSessionSettings(json, restored);
    if (restored.obtainSettings().apiHost.empty()) {
        restored.changeSettings().apiHost = defaultHost;
    }
    m_properties.changeSettings() = std::move(restored.changeSettings());
    m_history = std::move(history);
    return true;
}

void KAISessionChat::appendTurn(std::string userText, std::string assistantText) {
    auto userMessage = createTextMessage(KAI_ROLE_USER, 0, std::move(userText));
    auto assistantMessage = createTextMessage(KAI_ROLE_ASSISTANT, 0, std::move(assistantText));
    if (m_history.capacity() < m_history.size() + 2) {
        m_history.reserve(2 * (m_history.size() + 1));
    }
    m_history.push_back(std::move(userMessage));
    m_history.push_back(std::move(assistantMessage));
}

void KAISessionChat::appendMessage(std::unique_ptr<KAIMessage> message) {
    m_history.push_back(std::move(message));
}

std::size_t estimateHistory(const KAIChatHistory& history) {
    constexpr std::size_t kBytesAroundAText = 48;
    std::size_t size = 0;
    for (const std::unique_ptr<KAIMessage>& message : history) {
        const std::size_t textSize = obtainFirstText(*message).size();
        // Line breaks and quotation marks take two bytes: about one byte in thirty-two of a usual text.
        size += kBytesAroundAText + textSize + textSize / 32;
    }
    return size;
}
