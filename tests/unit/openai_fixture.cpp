#include "openai_fixture.h"

#include "kai.h"

void RecordedClock::sleepFor(std::chrono::steady_clock::duration duration) {
    using Milliseconds = std::chrono::duration<double, std::milli>;
    sleeps.push_back(std::chrono::duration_cast<Milliseconds>(duration).count());
    const auto passed = std::chrono::duration_cast<std::chrono::steady_clock::duration>(duration * share);
    m_now += std::max(passed, std::chrono::steady_clock::duration(1));
}

OpenAITest::OpenAITest()
    : m_server([this](const LoopbackRequest& request) { return answerRequest(request); }, {.tls = LoopbackTLS::Valid}) {
    CMRestGlobalSettings settings;
    settings.caBundleFile = m_server.obtainCAFile();
    KAISetHTTPSettings(settings);
    KAIRegisterCallback(nullptr);
    m_assistant = std::make_unique<KAIAssistant_OPENAI>(std::unique_ptr<ICSHTTPPoolCenter>(cfCreateHTTPPoolCenter()),
                                                        m_server.obtainAuthority(), "secret", m_clock);
    m_properties = m_assistant->obtainAssistantProperties();
}

OpenAITest::~OpenAITest() {
    m_assistant.reset();
    KAIRegisterCallback(nullptr);
    KAISetHTTPSettings(CMRestGlobalSettings());
}

void OpenAITest::answer(const std::string& request, LoopbackReply reply) {
    const std::lock_guard lock(m_mutex);
    m_replies[request] = std::move(reply);
}

void OpenAITest::answerWell() {
    const std::lock_guard lock(m_mutex);
    m_replies.clear();
}

LoopbackReply OpenAITest::answerRequest(const LoopbackRequest& request) {
    const std::lock_guard lock(m_mutex);
    const std::string key = request.method + " " + request.path;
    if (const auto found = m_replies.find(key); found != m_replies.end()) {
        return found->second;
    }
    const auto endsWith = [&key](std::string_view end) { return key.ends_with(end); };
    if (request.method == "DELETE") {
        return {.body = R"({"deleted":true})"};
    }
    if (key.starts_with("POST /v1/assistants")) {
        return {.body = R"({"id":"asst_1","object":"assistant","name":null})"};
    }
    if (key == "POST /v1/threads") {
        return {.body = R"({"id":"thread_)" + std::to_string(++m_threadCount) + R"(","object":"thread"})"};
    }
    if (request.method == "POST") {
        return {.body = endsWith("/runs") ? R"({"id":"run_1","status":"queued"})" : R"({"id":"msg_1"})"};
    }
    if (endsWith("/messages")) {
        return {.body = R"({"object":"list","data":[{"id":"msg_2","created_at":1700000000,"role":"assistant",)"
                        R"("content":[{"type":"text","text":{"value":"answer","annotations":[]}}]}]})"};
    }
    return {.body = R"({"id":"run_1","status":"completed","last_error":null})"};
}

void OpenAITest::createOnService() {
    ASSERT_EQ(set("model", "m"), "");
    ASSERT_EQ(m_assistant->obtainAssistantID(), "asst_1");
    takeRequests();
}

std::string OpenAITest::set(const std::string& key, const CMVariant& value) {
    return m_assistant->setAssistantProperties(
        [&](IKAIProperties* properties) { static_cast<void>(properties->setProperty(key, value)); });
}

std::unique_ptr<IKAISession> OpenAITest::createSession() {
    auto [session, error] = m_assistant->createSession();
    EXPECT_EQ(error, "");
    EXPECT_NE(session, nullptr);
    return std::unique_ptr<IKAISession>(session);
}

std::vector<std::string> OpenAITest::takeRequests() {
    std::vector<std::string> taken;
    const std::vector<LoopbackRequest> requests = m_server.requests();
    for (; m_seen < requests.size(); ++m_seen) {
        taken.push_back(requests[m_seen].method + " " + requests[m_seen].target);
    }
    return taken;
}

std::string OpenAITest::obtainLastBody() const {
    const std::vector<LoopbackRequest> requests = m_server.requests();
    return requests.empty() ? "" : requests.back().body;
}

std::unique_ptr<KAISession_OPENAI> makeThread(KAIAssistantProperties_OPENAI& properties, const std::string& assistantID,
                                              const std::string& threadID) {
    auto session = std::make_unique<KAISession_OPENAI>(properties, assistantID);
    session->setThreadID(threadID);
    return session;
}

std::vector<std::string> writeMembersThatAreNoString(const std::string& key) {
    std::vector<std::string> members{""};
    for (const char* value : {"null", "1", "true", "[]", "{}", R"(["x"])"}) {
        members.push_back("\"" + key + "\":" + value + ",");
    }
    return members;
}
