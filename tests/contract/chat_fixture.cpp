#include "chat_fixture.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "cf/assertion.h"

namespace {

std::int64_t readClock() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

ChatContract::ChatContract()
    : m_server(
          [this](const LoopbackRequest& request) {
              Answering answering;
              {
                  const std::lock_guard lock(m_mutex);
                  answering = m_answering;
              }
              return answering ? answering(request) : LoopbackReply{.status = 501};
          },
          {.tls = GetParam().tls}) {
    // Setting a temperature reports a check by design; the reports have tests of their own.
    cfSetAssertionHandler([](const char*, const char*, int) {});
    KAIRegisterCallback(nullptr);
    KAISetHTTPSettings(makeSettings());
    m_assistant = createAssistant();
}

ChatContract::~ChatContract() {
    m_assistant.reset();
    KAIRegisterCallback(nullptr);
    KAISetHTTPSettings(CMRestGlobalSettings());
    cfSetAssertionHandler(nullptr);
}

CMRestGlobalSettings ChatContract::makeSettings() const {
    CMRestGlobalSettings settings;
    settings.caBundleFile = m_server.obtainCAFile();
    return settings;
}

AssistantHandle ChatContract::createAssistant(const std::string& key, const std::string& model) {
    AssistantHandle assistant(
        KAICreateAssistant(GetParam().type, cfCreateHTTPPoolCenter(), key, m_server.obtainAuthority()));
    if (!assistant) {
        throw std::runtime_error("no assistant of this type");
    }
    if (!model.empty()) {
        set(*assistant, "model", model);
    }
    return assistant;
}

SessionHandle ChatContract::createSession(IKAIAssistant& assistant) {
    auto [session, error] = assistant.createSession();
    EXPECT_EQ(error, "");
    EXPECT_NE(session, nullptr);
    return SessionHandle(session);
}

SessionHandle ChatContract::restoreSession(IKAIAssistant& assistant, const std::string& text) {
    auto [session, error] = assistant.restoreSession(text);
    EXPECT_EQ(error, "");
    EXPECT_NE(session, nullptr);
    return SessionHandle(session);
}

void ChatContract::set(IKAIAssistant& assistant, const std::string& key, const CMVariant& value) {
    EXPECT_EQ(assistant.setAssistantProperties(
                  [&](IKAIProperties* properties) { static_cast<void>(properties->setProperty(key, value)); }),
              "");
}

CMVariant ChatContract::get(IKAIAssistant& assistant, const std::string& key) {
    return PropertiesHandle(assistant.obtainAssistantProperties())->obtainProperty(key);
}

void ChatContract::answer(Answering answering) {
    const std::lock_guard lock(m_mutex);
    m_answering = std::move(answering);
}

void ChatContract::answer(LoopbackReply reply) {
    answer([reply = std::move(reply)](const LoopbackRequest&) { return reply; });
}

void ChatContract::answerBody(const std::string& body) {
    answer(LoopbackReply{.headers = {{"Content-Type", "application/json"}}, .body = body});
}

void ChatContract::answerText(const std::string& text) {
    answerBody(GetParam().writeReply(quote(text)));
}

ChatAnswer ChatContract::say(IKAIAssistant& assistant, IKAISession& session, const std::string& text) {
    const std::int64_t before = readClock();
    auto [rawMessage, error] = assistant.addMessage(&session, text);
    const KAIPtr<IKAIMessage> message(rawMessage);
    EXPECT_EQ(message == nullptr, !error.empty()) << error;
    if (!message) {
        return {{}, error};
    }
    EXPECT_EQ(message->obtainRole(), 1);
    EXPECT_GE(message->obtainTime(), before);
    EXPECT_LE(message->obtainTime(), readClock());
    const auto& sections = message->obtainSections();
    if (sections.size() != 1) {
        ADD_FAILURE() << sections.size() << " sections";
        return {};
    }
    EXPECT_EQ(sections[0]->obtainType(), 0);
    return {std::string(sections[0]->obtainText()), error};
}

void ChatContract::converse(IKAISession& session, const std::string& text, const std::string& reply) {
    answerText(reply);
    const ChatAnswer result = say(session, text);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.text, reply);
}

void ChatContract::expectFailure(IKAISession& session, const std::string& error, const ExpectedTurn& history) {
    const std::string before = session.serializeSession();
    EXPECT_EQ(say(session, "failing").error, error);
    EXPECT_EQ(session.serializeSession(), before);
    ExpectedTurn next = history;
    next.messages.emplace_back(0, "going on");
    converse(session, "going on", "good");
    EXPECT_EQ(obtainLastRequest().body, writeBody(next));
}

void ChatContract::expectHeaders(const LoopbackRequest& request, const std::string& key) {
    const auto find = [&request](const std::string& name) {
        const std::string* value = request.findHeader(name);
        return value != nullptr ? std::optional(*value) : std::nullopt;
    };
    const std::string& keyHeader = GetParam().keyHeader;
    EXPECT_EQ(keyHeader.empty() ? std::nullopt : find(keyHeader), GetParam().obtainKeyHeader(key));
    if (keyHeader != "Authorization") {
        EXPECT_EQ(find("Authorization"), std::nullopt);
    }
    for (const auto& [name, value] : GetParam().extraHeaders) {
        EXPECT_EQ(find(name), value);
    }
}

LoopbackRequest ChatContract::obtainLastRequest() const {
    const std::vector<LoopbackRequest> requests = m_server.requests();
    return requests.empty() ? LoopbackRequest() : requests.back();
}
