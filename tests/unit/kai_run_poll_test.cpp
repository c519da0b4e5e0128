#include "kai_run_poll.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "kai_http.h"
#include "openai_fixture.h"

using Kind = kai::RunState::Kind;
using std::chrono::milliseconds;

namespace {

kai::RunState make(Kind kind, const std::string& text = {}) {
    return {kind, text};
}

}  // namespace

TEST(KAIRunPoll, LooksOnceAtACompletedRun) {
    RecordedClock clock;
    int looks = 0;
    EXPECT_EQ(kai::waitForRun(clock,
                              [&] {
                                  ++looks;
                                  return make(Kind::Completed);
                              }),
              "");
    EXPECT_EQ(looks, 1);
    EXPECT_TRUE(clock.sleeps.empty());
}

TEST(KAIRunPoll, LooksAgainAfterEachDelayUntilTheRunEnds) {
    RecordedClock clock;
    int looks = 0;
    EXPECT_EQ(kai::waitForRun(clock, [&] { return make(++looks < 4 ? Kind::Pending : Kind::Completed); }), "");
    EXPECT_EQ(looks, 4);
    EXPECT_EQ(clock.sleeps, (std::vector<double>{250, 325, 422}));
}

TEST(KAIRunPoll, AnswersARunThatCompletesOnTheLastLook) {
    RecordedClock clock;
    int looks = 0;
    EXPECT_EQ(kai::waitForRun(clock, [&] { return make(++looks < 102 ? Kind::Pending : Kind::Completed); }), "");
    EXPECT_EQ(looks, 102);
    EXPECT_EQ(clock.sleeps.size(), 101U);
}

TEST(KAIRunPoll, ReportsARunThatFailsOnTheLastLookAsFailed) {
    RecordedClock clock;
    int looks = 0;
    EXPECT_EQ(kai::waitForRun(
                  clock, [&] { return ++looks < 102 ? make(Kind::Pending) : make(Kind::Failed, "code: message"); }),
              "code: message");
}

TEST(KAIRunPoll, TimesOutAfter102Looks) {
    RecordedClock clock;
    int looks = 0;
    EXPECT_EQ(kai::waitForRun(clock,
                              [&] {
                                  ++looks;
                                  return make(Kind::Pending);
                              }),
              "Timeout");
    EXPECT_EQ(looks, 102);
}

TEST(KAIRunPoll, SleepsOnAfterAnEarlyWakeUpUntilTheWholeDelayHasPassed) {
    RecordedClock clock;
    clock.share = 0.5;
    int looks = 0;
    const auto start = clock.obtainNow();
    EXPECT_EQ(kai::waitForRun(clock, [&] { return make(++looks < 3 ? Kind::Pending : Kind::Completed); }), "");
    EXPECT_GE(clock.obtainNow() - start, milliseconds(250 + 325));
    EXPECT_LT(clock.obtainNow() - start, milliseconds(250 + 325 + 1));
    ASSERT_GT(clock.sleeps.size(), 4U);
    EXPECT_EQ(clock.sleeps[0], 250);
    EXPECT_EQ(clock.sleeps[1], 125) << "only what is left of the delay";
    EXPECT_EQ(clock.sleeps[2], 62.5);
}

TEST(KAIRunPoll, DoesNotSleepAgainWhenASleepWasTooLong) {
    RecordedClock clock;
    clock.share = 10.0;
    int looks = 0;
    EXPECT_EQ(kai::waitForRun(clock, [&] { return make(++looks < 3 ? Kind::Pending : Kind::Completed); }), "");
    EXPECT_EQ(clock.sleeps, (std::vector<double>{250, 325}));
}

TEST(KAIRunPoll, AsksTheHostAtLeastTenTimesASecondWhetherToGoOn) {
    RecordedClock clock;
    std::vector<std::chrono::steady_clock::time_point> questions;
    CMRestGlobalSettings settings;
    settings.cancelled = [&] {
        questions.push_back(clock.obtainNow());
        return false;
    };
    KAISetHTTPSettings(settings);
    int looks = 0;
    const auto start = clock.obtainNow();
    EXPECT_EQ(kai::waitForRun(clock, [&] { return make(++looks < 3 ? Kind::Pending : Kind::Completed); }), "");
    KAISetHTTPSettings(CMRestGlobalSettings());
    EXPECT_EQ(clock.obtainNow() - start, milliseconds(250 + 325)) << "the waits are as long as without a question";
    ASSERT_GE(questions.size(), 6U);
    EXPECT_EQ(questions.front(), start);
    for (std::size_t i = 1; i < questions.size(); ++i) {
        EXPECT_LE(questions[i] - questions[i - 1], milliseconds(100));
    }
}

TEST(KAIRunPoll, EndsInTheTransportsWordsWhenTheHostCancels) {
    RecordedClock clock;
    int questions = 0;
    CMRestGlobalSettings settings;
    settings.cancelled = [&] { return ++questions == 4; };
    KAISetHTTPSettings(settings);
    int looks = 0;
    const std::string error = kai::waitForRun(clock, [&] {
        ++looks;
        return make(Kind::Pending);
    });
    KAISetHTTPSettings(CMRestGlobalSettings());
    EXPECT_EQ(error, HTTP::describeResult(static_cast<std::int32_t>(CMRestResult::Cancelled)));
    EXPECT_NE(error, "");
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(questions, 4);
    EXPECT_LT(clock.obtainNow().time_since_epoch(), milliseconds(250));
}

TEST(KAIRunPoll, LetsTheHostReplaceTheSettingsWhenItIsAsked) {
    RecordedClock clock;
    CMRestGlobalSettings settings;
    const std::string kept(100, 'x');
    settings.cancelled = [kept] {
        KAISetHTTPSettings(CMRestGlobalSettings());
        return kept.empty();
    };
    KAISetHTTPSettings(settings);
    int looks = 0;
    EXPECT_EQ(kai::waitForRun(clock, [&] { return make(++looks < 3 ? Kind::Pending : Kind::Completed); }), "");
    EXPECT_EQ(clock.obtainNow().time_since_epoch(), milliseconds(250 + 325));
}

TEST(KAIRunPoll, PassesOnWhatTheHostThrowsWhenItIsAsked) {
    RecordedClock clock;
    CMRestGlobalSettings settings;
    settings.cancelled = []() -> bool { throw std::runtime_error("from the host"); };
    KAISetHTTPSettings(settings);
    EXPECT_THROW(kai::waitForRun(clock, [] { return make(Kind::Pending); }), std::runtime_error);
    KAISetHTTPSettings(CMRestGlobalSettings());
}

TEST(KAIRunPoll, WaitsInRealTimeThroughItsFirstRounds) {
    using Clock = std::chrono::steady_clock;
    std::vector<Clock::time_point> looks;
    EXPECT_EQ(kai::waitForRun(kai::obtainSystemPollClock(),
                              [&] {
                                  looks.push_back(Clock::now());
                                  return make(looks.size() < 3 ? Kind::Pending : Kind::Completed);
                              }),
              "");
    ASSERT_EQ(looks.size(), 3U);
    EXPECT_GE(looks[1] - looks[0], milliseconds(250));
    EXPECT_GE(looks[2] - looks[1], milliseconds(325));
}

TEST(KAIRunPoll, PassesOnWhatALookThrows) {
    RecordedClock clock;
    EXPECT_THROW(kai::waitForRun(clock, []() -> kai::RunState { throw std::runtime_error("from the host"); }),
                 std::runtime_error);
}

TEST(KAIRunPoll, ReadsEachStatus) {
    const auto read = [](const std::string& text) { return kai::readRunState(COJson(text)).kind; };
    EXPECT_EQ(read(R"({"status":"completed"})"), Kind::Completed);
    EXPECT_EQ(read(R"({"status":"expired"})"), Kind::Expired);
    EXPECT_EQ(read(R"({"status":"incomplete"})"), Kind::Expired);
    EXPECT_EQ(read(R"({"status":"failed","last_error":{"code":"a","message":"b"}})"), Kind::Failed);
    EXPECT_EQ(read(R"({"status":"queued"})"), Kind::Pending);
    EXPECT_EQ(read(R"({"status":"COMPLETED"})"), Kind::Pending);
    EXPECT_EQ(read(R"({"status":1})"), Kind::Failed);
    EXPECT_EQ(read("[]"), Kind::Failed);
}
