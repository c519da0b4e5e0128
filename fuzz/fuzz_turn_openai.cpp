#include "fuzz_turn_openai.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "cf/stream.h"
#include "fuzz_require.h"
#include "fuzz_service.h"
#include "kai_assistant_openai.h"

namespace {

/// A request of a conversation, and what the service answers when all is well. "*" stands for an id.
struct Exchange {
    const char* method;
    const char* path;
    const char* goodReply;
};

constexpr std::array kExchanges{
    Exchange{"POST", "/v1/assistants", R"({"id":"asst_1"})"},
    Exchange{"POST", "/v1/assistants/*", R"({"id":"asst_1"})"},
    Exchange{"POST", "/v1/threads", R"({"id":"thread_1"})"},
    Exchange{"POST", "/v1/threads/*/messages", R"({"id":"msg_1"})"},
    Exchange{"POST", "/v1/threads/*/runs", R"({"id":"run_1"})"},
    Exchange{"GET", "/v1/threads/*/runs/*", R"({"status":"completed"})"},
    Exchange{"GET", "/v1/threads/*/messages",
             R"({"data":[{"created_at":1,"content":[{"type":"text","text":{"value":"good"}}]}]})"},
    Exchange{"GET", "/v1/models", R"({"data":[]})"},
    Exchange{"DELETE", "/v1/threads/*", "{}"},
    Exchange{"DELETE", "/v1/assistants/*", "{}"},
};

using Segments = std::span<const std::string_view>;

std::vector<std::string_view> splitPath(std::string_view path) {
    std::vector<std::string_view> segments;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = path.find('/', begin)) != std::string_view::npos; begin = end + 1) {
        segments.push_back(path.substr(begin, end - begin));
    }
    segments.push_back(path.substr(begin));
    return segments;
}

/// An empty id leaves its segment out: cfConcatURL writes one slash where an empty part stands.
bool fits(Segments pattern, Segments path) {
    if (pattern.empty() || path.empty()) {
        return pattern.empty() && path.empty();
    }
    const bool isID = pattern.front() == "*";
    if (isID && pattern.size() > 1 && fits(pattern.subspan(1), path)) {
        return true;
    }
    const bool isFitting = isID ? path.front() != "." && path.front() != ".." : path.front() == pattern.front();
    return isFitting && fits(pattern.subspan(1), path.subspan(1));
}

std::size_t findExchange(const LoopbackRequest& request) {
    const std::vector<std::string_view> path = splitPath(request.path);
    const auto* const found = std::find_if(kExchanges.begin(), kExchanges.end(), [&](const Exchange& exchange) {
        return request.method == exchange.method && fits(splitPath(exchange.path), path);
    });
    require(found != kExchanges.end(), "whatever ids the service gives, each request goes to one of its places");
    return static_cast<std::size_t>(found - kExchanges.begin());
}

/// Time passes only by sleeping, which takes none.
class SleeplessClock : public kai::PollClock {
public:
    std::chrono::steady_clock::time_point obtainNow() override { return m_now; }
    void sleepFor(std::chrono::steady_clock::duration duration) override { m_now += duration; }

private:
    std::chrono::steady_clock::time_point m_now{};
};

/// Answers well but for the first request of the fuzzed kind.
class Plan {
public:
    Plan(std::size_t fuzzed, LoopbackReply reply) : m_fuzzed(fuzzed), m_reply(std::move(reply)) {}

    LoopbackReply answer(const LoopbackRequest& request) {
        const std::size_t place = findExchange(request);
        if (place == m_fuzzed && !std::exchange(m_isUsed, true)) {
            return m_reply;
        }
        return {.body = kExchanges[place].goodReply};
    }

private:
    std::size_t m_fuzzed;
    LoopbackReply m_reply;
    bool m_isUsed = false;
};

using Fill = std::function<void(IKAIProperties*)>;

void setModel(KAIAssistant_OPENAI& assistant, const char* model) {
    const Fill fill = [model](IKAIProperties* properties) { properties->setProperty("model", model); };
    const std::string formerID = assistant.obtainAssistantID();
    if (!assistant.setAssistantProperties(fill).empty()) {
        require(assistant.obtainAssistantID() == formerID, "settings that failed leave the assistant as it is");
        require(assistant.setAssistantProperties(fill).empty(), "settings can be sent again");
    }
    if (assistant.obtainAssistantID().empty()) {
        // The service gave an empty id, which is what an assistant has that is not created yet.
        require(assistant.setAssistantProperties(fill).empty(), "an assistant with an empty id can be created again");
    }
    require(!assistant.obtainAssistantID().empty(), "an assistant with settings is on the service");
}

std::unique_ptr<IKAISession> createSession(IKAIAssistant& assistant) {
    auto [session, error] = assistant.createSession();
    require((session == nullptr) == !error.empty(), "there is either a session or an error");
    return std::unique_ptr<IKAISession>(session != nullptr ? session : assistant.createSession().first);
}

std::string joinSections(IKAIMessage& message) {
    std::string text;
    for (IKAIMessageSection* section : message.obtainSections()) {
        text += section->obtainText();
    }
    return text;
}

/// @return the answer; nothing where the turn failed
std::unique_ptr<IKAIMessage> ask(IKAIAssistant& assistant, IKAISession& session) {
    auto [message, error] = assistant.addMessage(&session, "question");
    require((message == nullptr) == !error.empty(), "a turn has either a message or an error");
    return std::unique_ptr<IKAIMessage>(message);
}

void askStreamed(IKAIAssistant& assistant, IKAISession& session) {
    std::string pieces;
    const CMTextStream stream([&pieces](std::string_view piece) { pieces += piece; });
    const std::unique_ptr<IKAIMessage> message = ask(assistant, session);
    require(!message || pieces == joinSections(*message), "the pieces joined are the answer");
}

void checkRestoring(IKAISession& session) {
    const std::string text = session.serializeSession();
    KAIAssistant_OPENAI assistant(nullptr, "", "key");
    const std::unique_ptr<IKAISession> restored(assistant.restoreSession(text).first);
    require(restored && restored->serializeSession() == text, "a conversation can be restored");
}

void runConversation(bool isStreamed) {
    SleeplessClock clock;
    KAIAssistant_OPENAI assistant(std::unique_ptr<ICSHTTPPoolCenter>(cfCreateHTTPPoolCenter()),
                                  obtainFuzzedService().obtainHost(), "key", clock);
    const auto [models, modelsError] = assistant.obtainAvailableModels();
    require(modelsError.empty() || models.empty(), "a list that failed is empty");
    setModel(assistant, "first");
    setModel(assistant, "second");
    const std::unique_ptr<IKAISession> session = createSession(assistant);
    require(session != nullptr, "a session can be created after one that failed");
    const std::string before = session->serializeSession();
    if (isStreamed) {
        askStreamed(assistant, *session);
    } else {
        ask(assistant, *session);
    }
    require(session->serializeSession() == before, "a turn changes nothing in the session's text");
    const std::unique_ptr<IKAIMessage> next = ask(assistant, *session);
    require(next && joinSections(*next) == "good", "the next turn gets its own answer");
    checkRestoring(*session);
    if (!assistant.destroySession(session.get()).empty()) {
        require(assistant.destroySession(session.get()).empty(), "a session can be ended after an end that failed");
    }
    require(assistant.obtainAssistantID().empty(), "the assistant on the service ends with its last session");
}

}  // namespace

void runOpenAITurn(std::string_view input) {
    if (input.size() < 2) {
        return;
    }
    const QuietAssertions quiet;
    const auto form = static_cast<unsigned char>(input[1]);
    const auto plan = std::make_shared<Plan>(static_cast<unsigned char>(input.front()) % kExchanges.size(),
                                             makeFuzzedReply(form, input.substr(2)));
    obtainFuzzedService().setHandler([plan](const LoopbackRequest& request) { return plan->answer(request); });
    runConversation((form & 1U) != 0);
}
