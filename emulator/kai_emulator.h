#ifndef KAI_EMULATOR_H
#define KAI_EMULATOR_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_script.h"
#include "loopback_server.h"

class KAIEmulatedService;

struct KAIEmulatorOptions {
    std::string provider = "deepseek";  ///< the service that is emulated: the name of one of listEmulatedServices()
    LoopbackTLS tls = LoopbackTLS::Valid;
    /// The key that clients must show. Empty: any key but an empty one. A service without keys ignores it.
    std::string key{};
    /// The path before every route, such as "/v1"; for services that take one. Empty: as the service has it.
    std::string pathPrefix{};
    KAIEmulatedStream stream{};  ///< how answers are streamed that say nothing of it
    bool isRecording = true;
    std::uint16_t port = 0;  ///< 0: a free port
};

/// What the emulator knows of a service before it starts one.
struct KAIEmulatedServiceRow {
    std::string_view name;       ///< as options and scenarios name it
    bool isPlainByDefault;       ///< the program speaks HTTP unless told otherwise
    bool isPathPrefixSupported;  ///< `pathPrefix` may be set
    std::unique_ptr<KAIEmulatedService> (*make)(const KAIEmulatorOptions& options);
};

/// Every service that can be emulated.
[[nodiscard]] std::span<const KAIEmulatedServiceRow> listEmulatedServices();
/// The service of this name; null when there is none.
[[nodiscard]] const KAIEmulatedServiceRow* findEmulatedService(std::string_view name);

/// One reply that does not come about in the usual way.
struct KAIInterception {
    std::string method{};    ///< empty: any
    std::string pathPart{};  ///< what the path must contain; empty: any path
    /// Sent in place of the service's own reply. The service is not asked and keeps its state.
    std::optional<LoopbackReply> reply{};
    /// Changes the service's own reply before it is sent.
    std::function<void(LoopbackReply&)> change{};
    std::size_t times = 1;  ///< to how many requests it happens; 0: to all
};

/// A provider's service on a loopback port. It checks what the real service checks (key, members, roles, identifiers)
/// and refuses in the real service's words and shape; what it answers is the script's.
///
/// All operations may be called from any thread, but not from a function of the script. The functions given to it run
/// one at a time, on threads of the server.
class KAIEmulator {
public:
    /// Listens at once. Throws std::runtime_error when it cannot, and for a provider that does not exist.
    explicit KAIEmulator(KAIEmulatorOptions options = {});
    ~KAIEmulator();
    KAIEmulator(const KAIEmulator&) = delete;
    KAIEmulator& operator=(const KAIEmulator&) = delete;

    /// Records, counts, waits, releases stalls, and knows the address and the CA.
    [[nodiscard]] LoopbackServer& obtainServer() { return *m_server; }
    /// What a client calls the host: authority and path prefix.
    [[nodiscard]] std::string obtainHost() const;

    /// The models offered from now on, in this order, in place of the service's own list.
    void setModels(std::vector<KAIEmulatedModel> models);
    /// Answers the next user message that has no answer yet. Queued answers go before everything else.
    void queueAnswer(KAIEmulatedAnswer answer);
    /// Answers every user message for which nothing is queued. Empty: as before, by the scenario.
    void answerWith(std::function<KAIEmulatedAnswer(const KAIEmulatedTurn&)> function);
    /// Takes over models and rules.
    void playScenario(KAIScenario scenario);
    /// Adds an interception. Of those that fit a request, the one added first happens.
    void intercept(KAIInterception interception);
    /// Sends this in place of the service's own reply to the next request.
    void replyNext(LoopbackReply reply) { intercept({.reply = std::move(reply)}); }

    /// Identifiers of what clients created on the service and did not delete (OpenAI: assistants, then threads).
    [[nodiscard]] std::vector<std::string> listLeft() const;
    /// Called after each request with the request and the status sent (0: none). For logs.
    void observe(std::function<void(const LoopbackRequest&, int status)> observer);

private:
    LoopbackReply answer(const LoopbackRequest& request);
    LoopbackReply makeReply(const LoopbackRequest& request);
    std::optional<KAIInterception> takeInterception(const LoopbackRequest& request);

    mutable std::mutex m_mutex;
    KAIEmulatorOptions m_options;
    KAIEmulatorScript m_script;
    std::vector<KAIInterception> m_interceptions;
    std::function<void(const LoopbackRequest&, int)> m_observer;
    std::unique_ptr<KAIEmulatedService> m_service;
    std::unique_ptr<LoopbackServer> m_server;  // last: its threads use all of the above
};

#endif
