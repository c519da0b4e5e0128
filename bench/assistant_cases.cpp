#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "allocation_counter.h"
#include "bench_assistant.h"
#include "bench_server.h"
#include "cases.h"
#include "cf/stream.h"
#include "chat_texts.h"
#include "curl_floor.h"
#include "database_texts.h"

namespace {

constexpr std::size_t kWarmUpTurns = 2;

/// Two texts of one length, so that a changed body is as long as the other.
std::string obtainInstructions(bool isChanged) {
    return std::string("Answer in SQL for ") + (isChanged ? "Oracle" : "SQLite") + ", then explain it briefly.";
}

struct PreparedTurn {
    SessionPtr session;
    std::string question;
};

/// A provider's service and an assistant that talks to it.
class Conversation {
public:
    explicit Conversation(const TurnSubject& subject)
        : m_subject(subject),
          m_server(isTLSProvider(subject.provider)),
          m_sessionText(buildSessionText(subject.messages, subject.texts)) {
        trustServer(m_server);
        m_assistant = createAssistant(subject.provider, m_server.obtainAuthority());
        if (subject.tables > 0) {
            setProperty(*m_assistant, "db_structure", buildDatabaseStructure(subject.tables));
        }
    }

    /// A conversation of exactly the wanted length: a turn lengthens it, so each turn gets one of its own.
    [[nodiscard]] PreparedTurn prepareTurn() {
        if (m_subject.isFirstAfterChange) {
            setProperty(*m_assistant, "user_instructions", obtainInstructions(++m_changes % 2 == 1));
        }
        return {restoreSession(*m_assistant, m_sessionText), buildMessageText(0, m_subject.texts)};
    }
    MessagePtr runTurn(PreparedTurn& turn) const {
        std::optional<CMTextStream> stream;
        if (m_subject.isStreamed) {
            stream.emplace([](std::string_view /*piece*/) {});
        }
        return addMessage(*m_assistant, *turn.session, std::move(turn.question));
    }
    [[nodiscard]] BenchServer& obtainServer() { return m_server; }

private:
    TurnSubject m_subject;
    BenchServer m_server;
    std::string m_sessionText;
    AssistantPtr m_assistant;
    std::size_t m_changes = 0;
};

}  // namespace

void measureTurn(Meter& meter, const TurnSubject& subject) {
    Conversation conversation(subject);
    meter.measure(
        kWarmUpTurns, [&] { return conversation.prepareTurn(); },
        [&](PreparedTurn& turn) { return conversation.runTurn(turn); });
    Meter::note("body_bytes", conversation.obtainServer().obtainLastRequest().body.size());
}

void measureTurnFloor(Meter& meter, const TurnSubject& subject) {
    Conversation conversation(subject);
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

namespace {

/// The memory of one conversation and the bytes of its texts.
struct HeldMemory {
    std::uint64_t bytes = 0;
    std::uint64_t textBytes = 0;

    [[nodiscard]] double obtainRatio() const {
        return textBytes > 0 ? static_cast<double>(bytes) / static_cast<double>(textBytes) : 0.0;
    }
};

std::uint64_t sumTextBytes(std::size_t messages) {
    std::uint64_t sum = 0;
    for (std::size_t number = 0; number < messages; ++number) {
        sum += buildMessageText(number).size();
    }
    return sum;
}

std::size_t measureText(IKAIMessage& message) {
    return message.obtainSections().at(0)->obtainText().size();
}

/// The memory that the process holds more now than before.
std::uint64_t measureGrowth(std::uint64_t bytesBefore) {
    const std::uint64_t bytes = obtainBytesInUse();
    return bytes > bytesBefore ? bytes - bytesBefore : 0;
}

HeldMemory measureRestored(IKAIAssistant& assistant, std::size_t messages) {
    std::string text = buildSessionText(messages);
    const std::uint64_t bytesBefore = obtainBytesInUse() - text.capacity();
    const SessionPtr session = restoreSession(assistant, std::move(text));
    text = {};
    return {measureGrowth(bytesBefore), sumTextBytes(messages)};
}

HeldMemory measureGrown(IKAIAssistant& assistant, std::size_t messages) {
    const std::uint64_t bytesBefore = obtainBytesInUse();
    const SessionPtr session = createSession(assistant);
    HeldMemory most;
    std::uint64_t textBytes = 0;
    for (std::size_t number = 0; number < messages; number += 2) {
        std::string question = buildMessageText(number);
        textBytes += question.size();
        textBytes += measureText(*addMessage(assistant, *session, std::move(question)));
        const HeldMemory held{measureGrowth(bytesBefore), textBytes};
        // A short conversation is mostly what any has.
        if (number >= messages / 10 && held.obtainRatio() > most.obtainRatio()) {
            most = held;
        }
    }
    return most;
}

}  // namespace

void measureHistoryMemory(std::size_t messages) {
    BenchServer server(false);
    const AssistantPtr assistant = createAssistant("ollama", server.obtainAuthority());
    {
        // What the connection keeps to send requests, short and long ones, is no history's.
        constexpr std::size_t kWarmUpTurns = 64;
        const SessionPtr warmUp = createSession(*assistant);
        for (std::size_t turn = 0; turn < kWarmUpTurns; ++turn) {
            const MessagePtr answer = addMessage(*assistant, *warmUp, buildMessageText(turn));
        }
        const SessionPtr longWarmUp = restoreSession(*assistant, buildSessionText(messages));
        const MessagePtr answer = addMessage(*assistant, *longWarmUp, buildMessageText(0));
    }
    const HeldMemory restored = measureRestored(*assistant, messages);
    Meter::note("restored_bytes", restored.bytes);
    Meter::note("restored_text_bytes", restored.textBytes);
    const HeldMemory grown = measureGrown(*assistant, messages);
    Meter::note("grown_bytes", grown.bytes);
    Meter::note("grown_text_bytes", grown.textBytes);
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
