#ifndef KAI_ASSISTANT_CHAT_H
#define KAI_ASSISTANT_CHAT_H

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/json.h"
#include "kai.h"
#include "kai_assistant_properties.h"
#include "kai_chat_turn.h"
#include "kai_http.h"
#include "kai_session_chat.h"

/// How a provider is shown the API key.
enum class KAIChatAuthentication {
    None,
    BearerHeader,  ///< "Authorization: Bearer KEY"
    KeyParameter,  ///< the query parameter "key", also when the key is empty
};

/// Everything that sets one chat-completion provider apart. The flow around it is KAIAssistantChat's; the functions are
/// pure, so that a provider is tested without a socket. A constant that needs no destruction: a host may use an
/// assistant while its static objects are destroyed.
///
/// "{model}" in a path or a suffix stands for the model's name.
struct KAIChatProtocol {
    std::string_view scheme;
    std::string_view defaultHost;
    KAIChatAuthentication authentication;

    std::span<const std::string_view> modelsPath;
    std::span<const std::string_view> chatPath;

    /// What follows the localized message of each error of the library's own, ": g/" naming a GET, ": p/" a POST.
    std::string_view modelsSuffix;
    std::string_view emptyModelSuffix;
    std::string_view invalidReplySuffix;
    std::string_view unsupportedReplySuffix;

    /// What a failed response says for itself; empty: the transport's own text is reported.
    std::string (*readModelsError)(CMRestResourceResponse* response);
    std::string (*readChatError)(CMRestResourceResponse* response);

    /// The identifiers in a model list; nothing when it has another form than the provider's.
    std::optional<std::vector<std::string>> (*readModels)(const COJson& response);
    /// Writes the body of a chat request.
    void (*writeChatBody)(COJsonWriter& writer, const KAIChatTurn& turn);
    /// The text of a reply; nothing when it has another form than the provider's.
    std::optional<std::string> (*readReply)(const COJson& response);

    std::unique_ptr<KAISessionChat> (*createSession)(KAIAssistantProperties& properties);
    /// The session, if it is one of this provider's.
    KAISessionChat* (*castSession)(IKAISession* session);
};

/// An assistant whose conversations are kept here: the one flow of all chat-completion providers. A provider derives a
/// class that hands its protocol over.
class KAIAssistantChat : public IKAIAssistant {
public:
    KAIAssistantChat(const KAIAssistantChat&) = delete;
    KAIAssistantChat& operator=(const KAIAssistantChat&) = delete;

    std::pair<std::vector<std::string>, std::string> obtainAvailableModels() override;
    std::string setAssistantProperties(std::function<void(IKAIProperties*)> fill) override;
    IKAIProperties* obtainAssistantProperties() override;
    std::pair<IKAISession*, std::string> createSession() override;
    std::pair<IKAISession*, std::string> restoreSession(std::string serializedSession) override;
    std::string destroySession(IKAISession* session) override;
    std::pair<IKAIMessage*, std::string> addMessage(IKAISession* session, std::string text) override;

protected:
    /// @param protocol  lives as long as the program
    KAIAssistantChat(const KAIChatProtocol& protocol, std::unique_ptr<ICSHTTPPoolCenter> poolCenter,
                     const std::string& host, const std::string& apiKey);

private:
    HTTP::Result sendTurn(const KAISessionChat& session, std::string_view text) const;
    [[nodiscard]] HTTP::Params buildQueryParams() const;
    [[nodiscard]] std::string buildURL(const std::string& host, std::span<const std::string_view> path,
                                       std::string_view model) const;
    void ensureHost(KAIAssistantSettings& settings) const;

    const KAIChatProtocol& m_protocol;
    std::string m_apiKey;
    // Destroyed from the last to the first: the pool, the REST session, the properties.
    std::unique_ptr<KAIAssistantProperties> m_properties;
    std::unique_ptr<CMRestSession> m_restSession;
    std::unique_ptr<ICSHTTPPoolCenter> m_poolCenter;
};

/// The two session functions of a protocol, for a provider's session class.
template <class Session>
std::unique_ptr<KAISessionChat> createChatSession(KAIAssistantProperties& properties) {
    return std::make_unique<Session>(properties);
}

template <class Session>
KAISessionChat* castChatSession(IKAISession* session) {
    return dynamic_cast<Session*>(session);
}

#endif
