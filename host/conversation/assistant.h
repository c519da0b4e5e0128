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

/// What an assistant is set up with. What is empty here is left as it is there.
struct AssistantSettings {
    std::string apiHost;
    std::string model;
    std::string temperature;  ///< a number as text
    std::optional<std::string> userInstructions;
    std::map<std::string, std::string> systemInstructions;
    CMVariant structure;  ///< for "db_structure"
};

/// What a session text says of itself.
struct SessionSummary {
    AssistantSettings settings;  ///< without the temperature
    std::size_t messageCount = 0;
    std::size_t messageBytes = 0;
};

[[nodiscard]] SessionSummary summarizeSession(const std::string& sessionText);

/// One assistant of the library with at most one conversation.
///
/// What it made on a service is deleted there when it is destroyed, unless keepOnService() was called or the
/// conversation was resumed. Failures are thrown as HostError: Provider, or Cancelled after Ctrl-C.
class Assistant {
public:
    /// Throws HostError (Usage) when the library was built without the provider.
    Assistant(const Provider& provider, const ApiKey& key, const std::string& apiHost, ExchangeWatch& watch,
              Console& console);
    ~Assistant();
    Assistant(const Assistant&) = delete;
    Assistant& operator=(const Assistant&) = delete;

    [[nodiscard]] std::vector<std::string> listModels();

    /// Sets the assistant up. Where the provider keeps it on a service, it is made or changed there.
    void configure(const AssistantSettings& settings);
    /// Begins a conversation with the assistant that configure() has set up.
    void begin();
    /// Continues a conversation from its session text, without a request; configure() comes after it. One that a
    /// service keeps stays there at the end.
    void resume(const std::string& sessionText);

    /// Takes pieces of an answer.
    using PieceReceiver = std::function<void(std::string_view piece)>;

    /// Asks a question and returns the answer's text.
    /// @param receive  told of the answer's pieces as they come; joined they are the answer, unless the turn fails
    [[nodiscard]] std::string ask(const std::string& question, const PieceReceiver& receive);

    [[nodiscard]] std::string serialize() const { return m_session->serializeSession(); }
    /// Leaves the conversation on the service when this object is destroyed.
    void keepOnService() noexcept { m_isKept = true; }
    /// Deletes the conversation on the service.
    void deleteOnService();

    [[nodiscard]] std::string obtainApiHost() const;
    [[nodiscard]] std::string obtainCombinedInstructions() const;
    /// The bytes of the instructions and of the messages so far: what the next turn sends before its question.
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
    bool m_isOnService = false;  ///< something of this conversation stands on the service
    bool m_isKept = false;
};

}  // namespace host

#endif
