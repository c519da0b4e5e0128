#ifndef KAI_ASSISTANT_CHAT_H
#define KAI_ASSISTANT_CHAT_H

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kai.h"
#include "kai_assistant_properties.h"
#include "kai_chat_protocol.h"
#include "kai_chat_stream.h"
#include "kai_chat_turn.h"
#include "kai_http.h"
#include "kai_session_chat.h"

namespace kai {

/// An assistant whose conversations are stored in the process: the common flow of all chat-completion providers.
class ChatAssistant : public IKAIAssistant {
public:
    /// @param protocol  lives as long as the program
    ChatAssistant(const ChatProtocol& protocol, std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                  const std::string& apiKey);
    ChatAssistant(const ChatAssistant&) = delete;
    ChatAssistant& operator=(const ChatAssistant&) = delete;

    std::pair<std::vector<std::string>, std::string> obtainAvailableModels() override;
    std::string setAssistantProperties(std::function<void(IKAIProperties*)> fill) override;
    IKAIProperties* obtainAssistantProperties() override;
    std::pair<IKAISession*, std::string> createSession() override;
    std::pair<IKAISession*, std::string> restoreSession(std::string serializedSession) override;
    std::string destroySession(IKAISession* session) override;
    std::pair<IKAIMessage*, std::string> addMessage(IKAISession* session, std::string text) override;

private:
    /// A URL and its parts.
    struct BuiltURL {
        std::span<const std::string_view> path{};
        std::string host{};
        std::string model{};
        std::string url{};
    };

    ChatAnswer askForPieces(ChatBody& body, const std::string& model, const CMTextStream& stream);
    ChatAnswer askForWhole(ChatBody& body, const std::string& model);
    const COJson* parseReply(CMRestResourceResponse& response);
    [[nodiscard]] ChatSession* castSession(IKAISession* session) const;
    [[nodiscard]] std::string obtainURL(std::span<const std::string_view> path, const std::string& model);
    void ensureHost(AssistantSettings& settings) const;

    const ChatProtocol& m_protocol;
    HTTP::Params m_queryParams;
    HTTP::Params m_streamParams;
    COJson m_reply;  // its memory is reused for each reply
    BuiltURL m_url;  // the last one: most turns need the same
    // Destroyed in reverse order: the pool, the REST session, the properties.
    std::unique_ptr<KAIAssistantProperties> m_properties;
    std::unique_ptr<CMRestSession> m_restSession;
    std::unique_ptr<ICSHTTPPoolCenter> m_poolCenter;
};

}  // namespace kai

#endif
