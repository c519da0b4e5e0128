#ifndef HOST_ASSISTANT_H
#define HOST_ASSISTANT_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "conversation/api_key.h"
#include "conversation/exchange_watch.h"
#include "conversation/provider_table.h"
#include "kai.h"
#include "terminal/console.h"

namespace host {

/// The settings of an assistant. Empty ones leave the assistant's settings unchanged.
struct AssistantSettings {
    std::string apiHost;
    std::string model;
    std::string temperature;  ///< a number as text
    std::optional<std::string> userInstructions;
    std::map<std::string, std::string> systemInstructions;
    CMVariant structure;  ///< the value of "db_structure"
};

/// A summary of a session text.
struct SessionSummary {
    AssistantSettings settings;  ///< without the temperature
    std::size_t messageCount = 0;
    std::size_t messageBytes = 0;
};

[[nodiscard]] SessionSummary summarizeSession(const std::string& sessionText);

/// One assistant of the library with at most one conversation.
///
/// The destructor deletes what it created on a service, unless keepOnService() was called or the conversation was
/// resumed. Failures are thrown as HostError: Provider, or Cancelled after Ctrl-C.
class Assistant {
public:
    /// Throws HostError (Usage) if the library was built without the provider.
    Assistant(const Provider& provider, const ApiKey& key, const std::string& apiHost, ExchangeWatch& watch,
              Console& console);
    ~Assistant();
    Assistant(const Assistant&) = delete;
    Assistant& operator=(const Assistant&) = delete;

    [[nodiscard]] std::vector<std::string> listModels();

    /// Sets the assistant up. If the provider keeps it on a service, it is created or changed there.
    void configure(const AssistantSettings& settings);
    /// Begins a conversation. Call configure() first.
    void begin();
    /// Continues a conversation from its session text, without a request; call configure() after it. A conversation on
    /// a service is not deleted at the end.
    void resume(const std::string& sessionText);

    /// Receives pieces of an answer.
    using PieceReceiver = std::function<void(std::string_view piece)>;

    /// Asks a question and returns the answer's text.
    /// @param receive  receives the answer's pieces as they arrive; joined they are the answer, unless the turn fails
    [[nodiscard]] std::string ask(const std::string& question, const PieceReceiver& receive);

    [[nodiscard]] std::string serialize() const { return m_session->serializeSession(); }
    /// Makes the destructor leave the conversation on the service.
    void keepOnService() noexcept { m_isKept = true; }
    /// Deletes the conversation on the service.
    void deleteOnService();

    [[nodiscard]] std::string obtainApiHost() const;
    [[nodiscard]] std::string obtainCombinedInstructions() const;
    /// The size in bytes of the instructions and of the messages so far, which the next turn sends before its question.
    [[nodiscard]] std::size_t measurePrompt() const;

private:
    [[nodiscard]] CMVariant readProperty(const std::string& key) const;
    void cleanUp();
    [[noreturn]] void fail(const std::string& errorText) const;

    const Provider& m_provider;
    const ApiKey& m_key;
    ExchangeWatch& m_watch;
    Console& m_console;
    KAIPtr<IKAIAssistant> m_assistant;
    KAIPtr<IKAISession> m_session;
    std::size_t m_messageBytes = 0;
    bool m_isDefaultHost;
    bool m_isOnService = false;  ///< something of this conversation exists on the service
    bool m_isKept = false;
};

}  // namespace host

#endif
