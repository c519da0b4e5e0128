#include <memory>
#include <string>
#include <utility>

#include "cf/stream.h"
#include "fuzz_require.h"
#include "fuzz_service.h"
#include "fuzz_targets.h"
#include "fuzz_turn_openai.h"
#include "kai.h"

namespace {

/// What one provider's service answers when all is well.
struct Protocol {
    KAIAssistantType type;
    const char* goodReply;
};

constexpr Protocol kDeepSeek{KAIAssistantType::DEEPSEEK,
                             R"({"choices":[{"message":{"role":"assistant","content":"good"}}]})"};
constexpr Protocol kGoogle{KAIAssistantType::GOOGLE,
                           R"({"candidates":[{"content":{"role":"model","parts":[{"text":"good"}]}}]})"};
constexpr Protocol kOllama{KAIAssistantType::OLLAMA, R"({"message":{"role":"assistant","content":"good"}})"};

struct Answer {
    std::string text;
    bool isGood;
};

Answer ask(IKAIAssistant& assistant, IKAISession& session, const char* question) {
    auto [rawMessage, error] = assistant.addMessage(&session, question);
    const KAIPtr<IKAIMessage> message(rawMessage);
    require((message == nullptr) == !error.empty(), "a turn has either a message or an error");
    if (!message) {
        return {error, false};
    }
    require(message->obtainSections().size() == 1, "a message has one section");
    return {std::string(message->obtainSections()[0]->obtainText()), true};
}

Answer askStreamed(IKAIAssistant& assistant, IKAISession& session, const char* question) {
    std::string pieces;
    const CMTextStream stream([&pieces](std::string_view piece) {
        require(!piece.empty(), "no piece is empty");
        pieces += piece;
    });
    Answer answer = ask(assistant, session, question);
    require(!answer.isGood || pieces == answer.text, "the pieces joined are the answer");
    return answer;
}

void answerAlways(LoopbackReply reply) {
    obtainFuzzedService().setHandler([reply = std::move(reply)](const LoopbackRequest&) { return reply; });
}

void askForModels(IKAIAssistant& assistant) {
    const auto [models, error] = assistant.obtainAvailableModels();
    require(error.empty() || models.empty(), "a list that failed is empty");
}

void askWell(const Protocol& protocol, IKAIAssistant& assistant, IKAISession& session) {
    answerAlways({.body = protocol.goodReply});
    const Answer answer = ask(assistant, session, "question");
    require(answer.isGood && answer.text == "good", "the next turn gets its own answer");
}

/// The first byte chooses the form of the reply, whether the turn is streamed (bit 0), and what comes before it: the
/// list of models with the same reply (bit 5), a turn that is answered well (bit 7).
void runTurn(const Protocol& protocol, std::string_view input) {
    if (input.empty()) {
        return;
    }
    FuzzedService& service = obtainFuzzedService();
    const auto form = static_cast<unsigned char>(input.front());
    const bool isStreamed = (form & 1U) != 0;
    const KAIPtr<IKAIAssistant> assistant(
        KAICreateAssistant(protocol.type, cfCreateHTTPPoolCenter(), "key", service.obtainHost()));
    assistant->setAssistantProperties([](IKAIProperties* properties) { properties->setProperty("model", "m"); });
    const KAIPtr<IKAISession> session(assistant->createSession().first);
    if ((form & (1U << 7)) != 0) {
        askWell(protocol, *assistant, *session);
    }
    const std::string before = session->serializeSession();
    answerAlways(makeFuzzedReply(form, input.substr(1)));
    if ((form & (1U << 5)) != 0) {
        askForModels(*assistant);
    }
    const Answer answer =
        isStreamed ? askStreamed(*assistant, *session, "fuzzed") : ask(*assistant, *session, "fuzzed");
    const std::string after = session->serializeSession();
    require((after == before) == !answer.isGood, "a conversation grows by an answered turn and by nothing else");

    askWell(protocol, *assistant, *session);
    const std::string text = session->serializeSession();
    const KAIPtr<IKAISession> restored(assistant->restoreSession(text).first);
    require(restored && restored->serializeSession() == text, "a conversation can be restored");
}

template <const Protocol& protocol>
void runTurnOf(std::string_view input) {
    const QuietAssertions quiet;
    runTurn(protocol, input);
}

}  // namespace

std::vector<FuzzTarget> listTurnTargets() {
    constexpr int kMutationCount = 300;
    return {
        {"turn_deepseek", runTurnOf<kDeepSeek>, kMutationCount},
        {"turn_google", runTurnOf<kGoogle>, kMutationCount},
        {"turn_ollama", runTurnOf<kOllama>, kMutationCount},
        {"turn_openai", runOpenAITurn, 100},
    };
}
