#include <gtest/gtest.h>

#include <numeric>

#include "cf/stream.h"
#include "kai_http.h"
#include "kai_session_deepseek.h"
#include "openai_fixture.h"

using Texts = std::vector<std::string>;

namespace {

constexpr const char* kPostMessage = "POST /v1/threads/thread_1/messages";
constexpr const char* kPostRun = "POST /v1/threads/thread_1/runs";
constexpr const char* kGetRun = "GET /v1/threads/thread_1/runs/run_1";
constexpr const char* kGetMessages = "GET /v1/threads/thread_1/messages";

void translate(const char* /*eventName*/, void* data) {
    auto* info = static_cast<KAICallbackLocalizationInfo*>(data);
    ("<" + std::string(info->sourceText) + ">").copy(info->answerBuffer, sizeof info->answerBuffer - 1);
}

class OpenAITurn : public OpenAITest {
protected:
    OpenAITurn() {
        createOnService();
        m_session = createSession();
        takeRequests();
    }

    std::unique_ptr<IKAIMessage> say(const std::string& text = "q") {
        auto [message, error] = m_assistant->addMessage(m_session.get(), text);
        EXPECT_EQ(error, "");
        return std::unique_ptr<IKAIMessage>(message);
    }

    /// Expects a turn to fail with this text, and the session's text to be as it was.
    void expectError(const std::string& error) {
        const std::string before = m_session->serializeSession();
        const auto [message, text] = m_assistant->addMessage(m_session.get(), "q");
        EXPECT_EQ(message, nullptr);
        EXPECT_EQ(text, error);
        EXPECT_EQ(m_session->serializeSession(), before);
    }

    /// Expects the ways in which an exchange whose answer must hold an object can fail.
    void expectErrorsOf(const std::string& request, const std::string& suffix) {
        answer(request, LoopbackReply{.status = 503, .body = R"({"error":{"message":"busy"}})"});
        expectError("busy");
        for (const char* body : {"", "text", "{"}) {
            answer(request, body);
            expectError("Invalid response" + suffix);
        }
        for (const char* body : {"{}", "[]", "null", "1", "\"id\""}) {
            answer(request, body);
            expectError("Unsupported data format" + suffix);
        }
    }

    void answerRun(const std::string& members) { answer(kGetRun, R"({"id":"run_1",)" + members + "}"); }

    /// Sections of the answer when the service lists these messages, and its time.
    std::pair<Texts, std::int64_t> readAnswer(const std::string& data) {
        answer(kGetMessages, R"({"object":"list","data":)" + data + "}");
        const auto message = say();
        Texts texts;
        for (IKAIMessageSection* section : message->obtainSections()) {
            EXPECT_EQ(section->obtainType(), 0);
            texts.emplace_back(section->obtainText());
        }
        return {texts, message->obtainTime()};
    }

    std::unique_ptr<IKAISession> m_session;
};

std::string writeText(const std::string& text) {
    return R"({"type":"text","text":{"value":")" + text + R"(","annotations":[]}})";
}

}  // namespace

TEST_F(OpenAITurn, PostsTheTextRunsTheAssistantAndFetchesTheRunsMessages) {
    const auto message = say("a \"question\"");
    EXPECT_EQ(takeRequests(), (Texts{kPostMessage, kPostRun, kGetRun, kGetMessages + std::string("?run_id=run_1")}));
    const std::vector<LoopbackRequest> requests = m_server.requests();
    EXPECT_EQ(requests[requests.size() - 4].body, R"({"role":"user","content":"a \"question\""})");
    EXPECT_EQ(requests[requests.size() - 3].body, R"({"assistant_id":"asst_1"})");
    EXPECT_EQ(message->obtainRole(), 1);
    EXPECT_EQ(message->obtainTime(), 1700000000);
    ASSERT_EQ(message->obtainSections().size(), 1U);
    EXPECT_EQ(message->obtainSections()[0]->obtainText(), "answer");
}

TEST_F(OpenAITurn, TellsAStreamOfItsWholeAnswerAsOnePieceAndSendsTheSameRequests) {
    say("q");
    const Texts requests = takeRequests();
    Texts pieces;
    {
        const CMTextStream stream([&pieces](std::string_view piece) { pieces.emplace_back(piece); });
        say("q");
    }
    EXPECT_EQ(pieces, Texts{"answer"});
    EXPECT_EQ(takeRequests(), requests);
}

TEST_F(OpenAITurn, OfARunThatCompletesAtOncePollsOnceAndDoesNotSleep) {
    say();
    EXPECT_TRUE(m_clock.sleeps.empty());
}

TEST_F(OpenAITurn, EncodesTheRunIdInPathAndQuery) {
    answer(kPostRun, R"({"id":"run&1=2"})");
    say();
    EXPECT_EQ(takeRequests(), (Texts{kPostMessage, kPostRun, "GET /v1/threads/thread_1/runs/run%261%3D2",
                                     kGetMessages + std::string("?run_id=run%261%3D2")}));
}

TEST_F(OpenAITurn, NeedsAnOpenAISessionAndAText) {
    KAIRegisterCallback(translate);
    KAIAssistantProperties properties;
    KAISession_DEEPSEEK foreign(properties);
    EXPECT_EQ(m_assistant->addMessage(nullptr, "q").second, "Session is empty");
    EXPECT_EQ(m_assistant->addMessage(&foreign, "q").second, "Session is empty");
    EXPECT_EQ(m_assistant->addMessage(m_session.get(), "").second, "Session is empty") << "the same words on purpose";
    EXPECT_EQ(takeRequests(), Texts());
}

TEST_F(OpenAITurn, AcceptsASessionThatIsNotInTheList) {
    KAIAssistantProperties_OPENAI properties;
    const auto other = makeThread(properties, "asst_other", "thread_1");
    KAIFreeObject(m_assistant->addMessage(other.get(), "q").first);
    EXPECT_EQ(takeRequests().size(), 4U);
    EXPECT_EQ(m_server.requests()[m_server.countRequests() - 3].body, R"({"assistant_id":"asst_1"})")
        << "the assistant's own id, not the session's";
}

TEST_F(OpenAITurn, UsesTheAssistantsCurrentIdAlsoWhenThereIsNone) {
    EXPECT_EQ(m_assistant->destroySession(m_session.get()), "");
    say();
    EXPECT_EQ(m_server.requests()[m_server.countRequests() - 3].body, R"({"assistant_id":""})");
}

TEST_F(OpenAITurn, ReportsEachFailureOfPostingTheMessage) {
    expectErrorsOf(kPostMessage, ": p/v1/threads/id/messages");
    for (const std::string& id : writeMembersThatAreNoString("id")) {
        answer(kPostMessage, "{" + id + R"("object":"thread.message"})");
        expectError("Unsupported data format: p/v1/threads/id/messages");
    }
}

TEST_F(OpenAITurn, ReportsEachFailureOfCreatingTheRun) {
    expectErrorsOf(kPostRun, ": p/v1/threads/id/runs");
    for (const std::string& id : writeMembersThatAreNoString("id")) {
        answer(kPostRun, "{" + id + R"("status":"queued"})");
        expectError("Unsupported data format: p/v1/threads/id/runs");
    }
}

TEST_F(OpenAITurn, ReportsEachFailureOfAPollWithASuffixThatNamesAPost) {
    expectErrorsOf(kGetRun, ": p/v1/threads/id/runs/id");
    for (const std::string& status : writeMembersThatAreNoString("status")) {
        answer(kGetRun, "{" + status + R"("id":"run_1"})");
        expectError("Unsupported data format: p/v1/threads/id/runs/id");
    }
}

TEST_F(OpenAITurn, ReportsEachHTTPErrorOfAPoll) {
    for (const int status : {400, 401, 403, 404, 408, 429, 500, 502, 503, 504}) {
        answer(kGetRun, LoopbackReply{.status = status});
        const auto [message, error] = m_assistant->addMessage(m_session.get(), "q");
        EXPECT_EQ(message, nullptr);
        EXPECT_EQ(error.rfind("HTTP " + std::to_string(status), 0), 0U) << error;
    }
}

TEST_F(OpenAITurn, ReportsEachFailureOfFetchingTheAnswer) {
    expectErrorsOf(kGetMessages, ": g/v1/threads/id/messages");
    for (const char* data : {"null", "{}", "1", "\"x\"", "true"}) {
        answer(kGetMessages, R"({"data":)" + std::string(data) + "}");
        expectError("Unsupported data format: g/v1/threads/id/messages");
    }
}

TEST_F(OpenAITurn, ReportsItsOwnErrorsInTheHostsLanguage) {
    KAIRegisterCallback(translate);
    answer(kPostMessage, "text");
    expectError("<Invalid response>: p/v1/threads/id/messages");
    answerWell();
    answerRun(R"("status":"expired")");
    expectError("<Timeout>");
    answerRun(R"("status":"failed","last_error":{"code":"Timeout","message":"Timeout"})");
    expectError("Timeout: Timeout");
}

TEST_F(OpenAITurn, GoesOnAfterAFailure) {
    answer(kGetRun, LoopbackReply{.status = 500});
    expectError("HTTP 500 Internal Server Error");
    answerWell();
    EXPECT_EQ(say()->obtainSections().size(), 1U);
}

TEST_F(OpenAITurn, OfARunThatStaysInProgressPolls102TimesAndThenTimesOut) {
    answerRun(R"("status":"in_progress")");
    expectError("Timeout");
    const Texts requests = takeRequests();
    EXPECT_EQ(std::count(requests.begin(), requests.end(), kGetRun), 102);
    EXPECT_EQ(requests.size(), 104U) << "the messages are not fetched, the run is not cancelled";
    ASSERT_EQ(m_clock.sleeps.size(), 101U);
    const std::vector<double> first(m_clock.sleeps.begin(), m_clock.sleeps.begin() + 7);
    EXPECT_EQ(first, (std::vector<double>{250, 325, 422, 548, 712, 925, 1000}));
    EXPECT_EQ(std::count(m_clock.sleeps.begin(), m_clock.sleeps.end(), 1000), 95);
    EXPECT_EQ(std::accumulate(m_clock.sleeps.begin(), m_clock.sleeps.end(), 0.0), 98182);
}

TEST_F(OpenAITurn, TakesEveryStatusThatIsNoEndAsInProgress) {
    for (const char* status : {"queued", "requires_action", "cancelling", "cancelled", "Completed", "", "new words"}) {
        m_clock.sleeps.clear();
        answerRun(R"("status":")" + std::string(status) + "\"");
        expectError("Timeout");
        EXPECT_EQ(m_clock.sleeps.size(), 101U) << status;
    }
}

TEST_F(OpenAITurn, ReportsAnExpiredOrIncompleteRunAsATimeoutWithoutASleep) {
    for (const char* status : {"expired", "incomplete"}) {
        answerRun(R"("status":")" + std::string(status) + "\"");
        expectError("Timeout");
    }
    EXPECT_TRUE(m_clock.sleeps.empty());
}

TEST_F(OpenAITurn, ReportsCodeAndMessageOfAFailedRun) {
    answerRun(R"("status":"failed","last_error":{"code":"A","message":"B"})");
    expectError("A: B");
    answerRun(R"("status":"failed","last_error":{"code":"","message":""})");
    expectError(": ");
}

TEST_F(OpenAITurn, ReportsAFailedRunOfAnotherFormAsUnsupported) {
    Texts errors{"", R"("last_error":null,)", R"("last_error":"A",)", R"("last_error":["A"],)", R"("last_error":1,)"};
    for (const std::string& code : writeMembersThatAreNoString("code")) {
        errors.push_back(R"("last_error":{)" + code + R"("message":"B"},)");
    }
    for (const std::string& message : writeMembersThatAreNoString("message")) {
        errors.push_back(R"("last_error":{)" + message + R"("code":"A"},)");
    }
    for (const std::string& error : errors) {
        answer(kGetRun, "{" + error + R"("status":"failed"})");
        expectError("Unsupported data format: p/v1/threads/id/runs/id");
    }
    EXPECT_TRUE(m_clock.sleeps.empty());
}

TEST_F(OpenAITurn, GivesASectionForEachTextInTheOrderOfTheResponseAndTheLastTime) {
    const auto [texts, time] =
        readAnswer(R"([{"created_at":5,"content":[)" + writeText("1") + "," + writeText("2") +
                   R"(]},{"created_at":3,"content":[)" + writeText("3") + "," + writeText("") + "]}]");
    EXPECT_EQ(texts, (Texts{"1", "2", "3", ""}));
    EXPECT_EQ(time, 3);
}

TEST_F(OpenAITurn, GivesAMessageWithoutSectionsWhereThereIsNoText) {
    for (const char* data : {"[]", "[{}]", R"([{"created_at":1,"content":[]}])"}) {
        EXPECT_EQ(readAnswer(data).first, Texts()) << data;
    }
    EXPECT_EQ(readAnswer("[]").second, 0);
}

TEST_F(OpenAITurn, SkipsMessagesOfAnotherForm) {
    for (const char* item :
         {"null", "1", "\"x\"", "[]", "{}", R"({"created_at":1})", R"({"content":[]})",
          R"({"created_at":"9","content":[{"type":"text","text":{"value":"x"}}]})",
          R"({"created_at":null,"content":[{"type":"text","text":{"value":"x"}}]})",
          R"({"created_at":9,"content":{"type":"text","text":{"value":"x"}}})", R"({"created_at":9,"content":"x"})"}) {
        const auto [texts, time] =
            readAnswer(R"([{"created_at":5,"content":[)" + writeText("good") + "]}," + item + "]");
        EXPECT_EQ(texts, Texts{"good"}) << item;
        EXPECT_EQ(time, 5) << item;
    }
    EXPECT_EQ(m_recorder.takeTexts(), Texts());
}

TEST_F(OpenAITurn, SkipsContentItemsOfAnotherForm) {
    for (const char* item :
         {"null", "1", "\"x\"", "[]", "{}", R"({"text":{"value":"x"}})", R"({"type":1,"text":{"value":"x"}})",
          R"({"type":"text"})", R"({"type":"text","text":"x"})", R"({"type":"text","text":{}})",
          R"({"type":"text","text":{"value":1}})", R"({"type":"text","text":{"value":null}})",
          R"({"type":"text","text":["x"]})"}) {
        EXPECT_EQ(
            readAnswer(R"([{"created_at":5,"content":[)" + std::string(item) + "," + writeText("good") + "]}]").first,
            Texts{"good"})
            << item;
    }
    EXPECT_EQ(m_recorder.takeTexts(), Texts());
}

TEST_F(OpenAITurn, ReportsContentOfAnotherTypeAsACheckAndSkipsIt) {
    const auto [texts, time] = readAnswer(R"([{"created_at":5,"content":[{"type":"image_file","text":{"value":"x"}},)" +
                                          writeText("good") + "]}]");
    EXPECT_EQ(texts, Texts{"good"});
    EXPECT_EQ(time, 5);
    const std::vector<AssertionReport> reports = m_recorder.takeReports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].sourceFile, "src/kai_assistant_openai.cpp");
}

TEST_F(OpenAITurn, CutsTheFractionOfATimeAndCountsOneOutside64BitsAsZero) {
    EXPECT_EQ(readAnswer(R"([{"created_at":5.9,"content":[]}])").second, 5);
    EXPECT_EQ(readAnswer(R"([{"created_at":4294967301,"content":[]}])").second, 4294967301);
    EXPECT_EQ(readAnswer(R"([{"created_at":1e300,"content":[]}])").second, 0);
}

TEST_F(OpenAITurn, GivesAnAnswerOfTenThousandPartsAndOneOfTenMegabytes) {
    std::string items = writeText("x");
    for (int i = 1; i < 10'000; ++i) {
        items += "," + writeText("x");
    }
    EXPECT_EQ(readAnswer(R"([{"created_at":5,"content":[)" + items + "]}]").first.size(), 10'000U);
    const std::string longText(10 * 1024 * 1024, 'y');
    EXPECT_EQ(readAnswer(R"([{"created_at":5,"content":[)" + writeText(longText) + "]}]").first, Texts{longText});
}

TEST_F(OpenAITurn, EscapesAndReplacesWhatTheUsersTextHolds) {
    say(std::string("a\0\xff", 3));
    EXPECT_EQ(m_server.requests()[m_server.countRequests() - 4].body,
              "{\"role\":\"user\",\"content\":\"a\\u0000\xef\xbf\xbd\"}");
}

TEST_F(OpenAITurn, EndsWhenTheHostCancelsAPoll) {
    answerRun(R"("status":"in_progress")");
    CMRestGlobalSettings settings;
    settings.caBundleFile = m_server.obtainCAFile();
    const std::size_t before = m_server.countRequests();
    settings.cancelled = [this, before] { return m_server.countRequests() >= before + 6; };
    KAISetHTTPSettings(settings);
    const auto [message, error] = m_assistant->addMessage(m_session.get(), "q");
    EXPECT_EQ(message, nullptr);
    EXPECT_NE(error, "");
    EXPECT_NE(error, "Timeout");
    EXPECT_LT(m_server.countRequests(), before + 10);
}

TEST_F(OpenAITurn, RefusesARunWhoseIdWouldNameAnotherPath) {
    answer(kPostRun, R"({"id":".."})");
    expectError("Unsupported data format: p/v1/threads/id/runs");
}

TEST_F(OpenAITurn, EndsWhenTheHostCancelsBetweenTwoLooksAtTheRun) {
    answerRun(R"("status":"in_progress")");
    CMRestGlobalSettings settings;
    settings.caBundleFile = m_server.obtainCAFile();
    bool isWaiting = false;
    settings.cancelled = [&] { return isWaiting && !m_clock.sleeps.empty(); };
    settings.trace = [&](const CMRestTraceRecord& record) { isWaiting = record.url.ends_with("/runs/run_1"); };
    KAISetHTTPSettings(settings);
    expectError(HTTP::describeResult(static_cast<std::int32_t>(CMRestResult::Cancelled)));
    EXPECT_EQ(m_clock.sleeps.size(), 1U);
}

TEST_F(OpenAITurn, GoesOnInItsThreadWhenTheSessionIsFreedMeanwhile) {
    CMRestGlobalSettings settings;
    settings.caBundleFile = m_server.obtainCAFile();
    settings.trace = [this](const CMRestTraceRecord&) { m_session.reset(); };
    KAISetHTTPSettings(settings);
    auto [message, error] = m_assistant->addMessage(m_session.get(), "q");
    EXPECT_EQ(error, "");
    KAIFreeObject(message);
    EXPECT_EQ(takeRequests().size(), 4U);
}
