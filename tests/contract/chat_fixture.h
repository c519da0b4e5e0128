#ifndef TESTS_CHAT_FIXTURE_H
#define TESTS_CHAT_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "chat_provider.h"
#include "kai.h"
#include "loopback_server.h"

using AssistantHandle = KAIPtr<IKAIAssistant>;
using SessionHandle = KAIPtr<IKAISession>;
using PropertiesHandle = KAIPtr<IKAIProperties>;

/// What came of addMessage.
struct ChatAnswer {
    std::string text;
    std::string error;
};

/// One assistant of the provider under test, and a server of the provider's kind that answers for it.
class ChatContract : public testing::TestWithParam<ChatProvider> {
protected:
    using Answering = std::function<LoopbackReply(const LoopbackRequest&)>;

    ChatContract();
    ~ChatContract() override;

    /// The settings that every test begins with; pass a changed copy to KAISetHTTPSettings.
    [[nodiscard]] CMRestGlobalSettings makeSettings() const;

    /// Another assistant that talks to the same server; its model is "m" unless told.
    [[nodiscard]] AssistantHandle createAssistant(const std::string& key = "secret", const std::string& model = "m");
    [[nodiscard]] SessionHandle createSession() { return createSession(*m_assistant); }
    [[nodiscard]] static SessionHandle createSession(IKAIAssistant& assistant);
    [[nodiscard]] static SessionHandle restoreSession(IKAIAssistant& assistant, const std::string& text);

    /// Sets properties of the assistant by strings and, for the system instructions, a map.
    void set(const std::string& key, const CMVariant& value) { set(*m_assistant, key, value); }
    static void set(IKAIAssistant& assistant, const std::string& key, const CMVariant& value);
    [[nodiscard]] static CMVariant get(IKAIAssistant& assistant, const std::string& key);

    /// From here on every request is answered so.
    void answer(Answering answering);
    void answer(LoopbackReply reply);
    void answerBody(const std::string& body);
    /// With a good reply of this ASCII text.
    void answerText(const std::string& text);

    /// Adds a message and checks what holds for every result.
    ChatAnswer say(IKAISession& session, const std::string& text) { return say(*m_assistant, session, text); }
    static ChatAnswer say(IKAIAssistant& assistant, IKAISession& session, const std::string& text);
    /// Says it, and expects the server's reply to come back.
    void converse(IKAISession& session, const std::string& text, const std::string& reply);

    /// Expects an addMessage to fail with this text, the session to be as it was before, and the next turn to carry
    /// the history without a trace of it. The session's history is `history`.
    void expectFailure(IKAISession& session, const std::string& error, const ExpectedTurn& history = {});

    [[nodiscard]] LoopbackRequest obtainLastRequest() const;
    [[nodiscard]] std::string obtainTarget(const std::string& path) const { return path + GetParam().obtainQuery(); }
    /// Expects the headers that this provider's requests have, with this key.
    static void expectHeaders(const LoopbackRequest& request, const std::string& key = "secret");
    [[nodiscard]] static std::string writeBody(const ExpectedTurn& turn) { return GetParam().writeBody(turn); }

    std::mutex m_mutex;  // of m_answering
    Answering m_answering;
    LoopbackServer m_server;
    AssistantHandle m_assistant;
};

/// Instantiates a suite for each provider for which a condition on `provider` holds.
#define INSTANTIATE_FOR_CHAT_PROVIDERS_THAT(Suite, condition)                                                 \
    INSTANTIATE_TEST_SUITE_P(Providers, Suite,                                                                \
                             testing::ValuesIn(selectChatProviders(                                           \
                                 [](const ChatProvider& provider) { return static_cast<bool>(condition); })), \
                             [](const auto& kind) { return kind.param.name; })

/// Instantiates a suite for each provider.
#define INSTANTIATE_FOR_CHAT_PROVIDERS(Suite) INSTANTIATE_FOR_CHAT_PROVIDERS_THAT(Suite, !provider.name.empty())

#endif
