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
    /// The key that clients must send. Empty: any key but an empty one. A service without keys ignores it.
    std::string key{};
    /// The path before every route, such as "/v1"; only for services that support it. Empty: the service's default.
    std::string pathPrefix{};
    KAIEmulatedStream stream{};  ///< how answers without their own setting are streamed
    bool isRecording = true;
    std::uint16_t port = 0;  ///< 0: a free port
};

/// The properties of a service that can be emulated.
struct KAIEmulatedServiceRow {
    std::string_view name;       ///< its name in options and scenarios
    bool isPlainByDefault;       ///< the program uses plain HTTP unless told otherwise
    bool isPathPrefixSupported;  ///< `pathPrefix` may be set
    std::unique_ptr<KAIEmulatedService> (*make)(const KAIEmulatorOptions& options);
};

/// All services that can be emulated.
[[nodiscard]] std::span<const KAIEmulatedServiceRow> listEmulatedServices();
/// The service with this name; null if there is none.
[[nodiscard]] const KAIEmulatedServiceRow* findEmulatedService(std::string_view name);

/// A reply that replaces or changes the service's own.
struct KAIInterception {
    std::string method{};    ///< empty: any
    std::string pathPart{};  ///< must be part of the path; empty: any path
    /// Sent instead of the service's own reply. The service does not see the request and keeps its state.
    std::optional<LoopbackReply> reply{};
    /// Modifies the service's own reply before it is sent.
    std::function<void(LoopbackReply&)> change{};
    std::size_t times = 1;  ///< for how many requests; 0: for all
};

/// A provider's service on a loopback port. It checks what the real service checks (key, members, roles, identifiers)
/// and refuses with the real service's texts and form; the script decides the answers.
///
/// All operations may be called from any thread, but not from a function of the script. The functions given to it run
/// one at a time, on threads of the server.
class KAIEmulator {
public:
    /// Listens at once. Throws std::runtime_error if it cannot, and for an unknown provider.
    explicit KAIEmulator(KAIEmulatorOptions options = {});
    ~KAIEmulator();
    KAIEmulator(const KAIEmulator&) = delete;
    KAIEmulator& operator=(const KAIEmulator&) = delete;

    /// The server, which records, counts, waits, releases stalls, and knows the address and the CA.
    [[nodiscard]] LoopbackServer& obtainServer() { return *m_server; }
    /// The API host for a client: authority and path prefix.
    [[nodiscard]] std::string obtainHost() const;

    /// Sets the models on offer, in this order, instead of the service's own list.
    void setModels(std::vector<KAIEmulatedModel> models);
    /// Answers the next user message that has no answer yet. Queued answers take precedence over everything else.
    void queueAnswer(KAIEmulatedAnswer answer);
    /// Sets a function that answers every user message without a queued answer. Empty: the scenario answers again.
    void answerWith(std::function<KAIEmulatedAnswer(const KAIEmulatedTurn&)> function);
    /// Sets models and rules.
    void playScenario(KAIScenario scenario);
    /// Adds an interception. If several match a request, the first added one applies.
    void intercept(KAIInterception interception);
    /// Sends this instead of the service's own reply to the next request.
    void replyNext(LoopbackReply reply) { intercept({.reply = std::move(reply)}); }

    /// Identifiers of what clients created on the service and did not delete (OpenAI: assistants, then threads).
    [[nodiscard]] std::vector<std::string> listLeft() const;
    /// Sets a function, for logs, that is called after each request with the request and the status sent (0: none).
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
    std::unique_ptr<LoopbackServer> m_server;  // last: its threads use all members above
};

#endif
