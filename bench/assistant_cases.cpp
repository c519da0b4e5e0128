#include <memory>
#include <stdexcept>
#include <utility>

#include "bench_assistant.h"
#include "bench_server.h"
#include "cases.h"
#include "chat_texts.h"
#include "curl_floor.h"

namespace {

constexpr std::size_t kWarmUpTurns = 2;

struct PreparedTurn {
    SessionPtr session;
    std::string question;
};

/// A provider's service and an assistant that talks to it.
class Conversation {
public:
    Conversation(const std::string& provider, std::size_t messages)
        : m_server(isTLSProvider(provider)), m_sessionText(buildSessionText(messages)) {
        trustServer(m_server);
        m_assistant = createAssistant(provider, m_server.obtainAuthority());
    }

    /// A conversation of exactly the wanted length: a turn lengthens it, so each turn gets one of its own.
    [[nodiscard]] PreparedTurn prepareTurn() const {
        return {restoreSession(*m_assistant, m_sessionText), buildMessageText(0)};
    }
    MessagePtr runTurn(PreparedTurn& turn) const {
        return addMessage(*m_assistant, *turn.session, std::move(turn.question));
    }
    [[nodiscard]] BenchServer& obtainServer() { return m_server; }

private:
    BenchServer m_server;
    std::string m_sessionText;
    AssistantPtr m_assistant;
};

}  // namespace

void measureTurn(Meter& meter, const std::string& provider, std::size_t messages) {
    Conversation conversation(provider, messages);
    meter.measure(
        kWarmUpTurns, [&] { return conversation.prepareTurn(); },
        [&](PreparedTurn& turn) { return conversation.runTurn(turn); });
    Meter::note("body_bytes", conversation.obtainServer().obtainLastRequest().body.size());
}

void measureTurnFloor(Meter& meter, const std::string& provider, std::size_t messages) {
    Conversation conversation(provider, messages);
    PreparedTurn turn = conversation.prepareTurn();
    const MessagePtr answer = conversation.runTurn(turn);
    const RecordedRequest request = conversation.obtainServer().obtainLastRequest();

    CurlFloor floor(conversation.obtainServer(), request);
    meter.measure(
        kWarmUpTurns, [] { return 0; }, [&floor](int) { return floor.perform(); });
    Meter::note("body_bytes", request.body.size());
    if (conversation.obtainServer().obtainLastRequest() != request) {
        throw std::runtime_error("the floor did not send the same bytes");
    }
}

void countConnections(const std::string& provider) {
    BenchServer server(isTLSProvider(provider));
    trustServer(server);
    const AssistantPtr assistant = createAssistant(provider, server.obtainAuthority());
    const SessionPtr session = createSession(*assistant);
    constexpr std::size_t kTurns = 100;
    for (std::size_t i = 0; i < kTurns; ++i) {
        const MessagePtr answer = addMessage(*assistant, *session, buildMessageText(2 * i));
    }
    const ConnectionCounts counts = server.obtainCounts();
    Meter::note("connections", counts.connections);
    Meter::note("handshakes", counts.handshakes);
}

void measureFirstTurn(Meter& meter, bool isSecondAssistant) {
    BenchServer server(true);
    trustServer(server);
    const auto create = [&server] { return createAssistant("deepseek", server.obtainAuthority()); };
    // Each process has one first connection: no repeats, and the warm-up makes the first for the second.
    meter.measure(isSecondAssistant ? 1 : 0, create, [](const AssistantPtr& assistant) {
        const SessionPtr session = createSession(*assistant);
        return addMessage(*assistant, *session, "Which tables are there?");
    });
}

void measureCreation(Meter& meter, const std::string& provider) {
    const KAIAssistantType type = obtainProviderType(provider);
    meter.measure(
        1, [] { return 0; },
        [type](int) {
            const AssistantPtr assistant(
                KAICreateAssistant(type, cfCreateHTTPPoolCenter(), "sk-0123456789abcdef", "example.com"));
            return assistant != nullptr;
        });
}
