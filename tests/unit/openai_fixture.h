#ifndef TESTS_OPENAI_FIXTURE_H
#define TESTS_OPENAI_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "assertion_recorder.h"
#include "kai_assistant_openai.h"
#include "loopback_server.h"

/// A clock whose time passes only by sleeping: it keeps every sleep, and may wake early.
class RecordedClock : public kai::PollClock {
public:
    std::chrono::steady_clock::time_point obtainNow() override { return m_now; }
    void sleepFor(std::chrono::steady_clock::duration duration) override;

    /// The sleeps so far, in milliseconds.
    std::vector<double> sleeps{};
    /// Of each sleep asked for, how much passes.
    double share = 1.0;

private:
    std::chrono::steady_clock::time_point m_now{};
};

/// An assistant of the OpenAI protocol with a clock of the test's, and a server that answers for the service: with
/// good replies (assistant "asst_1", threads "thread_1" and so on, run "run_1", which is completed) unless told
/// otherwise.
class OpenAITest : public testing::Test {
protected:
    using Fill = std::function<void(IKAIProperties*)>;

    OpenAITest();
    ~OpenAITest() override;

    /// From here on, requests of this method and path ("POST /v1/threads") are answered so.
    void answer(const std::string& request, LoopbackReply reply);
    void answer(const std::string& request, const std::string& body) { answer(request, LoopbackReply{.body = body}); }
    /// The service's good replies again.
    void answerWell();

    /// Sets the model, so that the assistant exists on the service.
    void createOnService();
    std::string set(const std::string& key, const CMVariant& value);
    [[nodiscard]] CMVariant get(const std::string& key) { return m_properties->obtainProperty(key); }
    [[nodiscard]] std::unique_ptr<IKAISession> createSession();

    /// "METHOD TARGET" of each request since the last call.
    std::vector<std::string> takeRequests();
    [[nodiscard]] std::string obtainLastBody() const;

    std::map<std::string, LoopbackReply> m_replies;  // guarded by m_mutex
    int m_threadCount = 0;
    std::size_t m_seen = 0;
    std::mutex m_mutex;
    LoopbackServer m_server;
    RecordedClock m_clock;
    AssertionRecorder m_recorder;
    std::unique_ptr<KAIAssistant_OPENAI> m_assistant;
    IKAIProperties* m_properties;

private:
    LoopbackReply answerRequest(const LoopbackRequest& request);
};

/// A session of a thread that no assistant knows of.
std::unique_ptr<KAISession_OPENAI> makeThread(KAIAssistantProperties_OPENAI& properties, const std::string& assistantID,
                                              const std::string& threadID);

/// One of each type of JSON value but the string, and nothing at all, as the member of this key: `"key":VALUE,`.
std::vector<std::string> writeMembersThatAreNoString(const std::string& key);

#endif
