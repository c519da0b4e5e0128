#include "kai_run_poll.h"

#include <algorithm>
#include <thread>

#include "kai_http.h"
#include "kai_localization.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstDelay{250};
constexpr milliseconds kLongestDelay{1000};
constexpr int kMostAttempts = 100;
// Twice as often as a host is promised to be asked, since a sleep may take longer than it should.
constexpr milliseconds kLongestSleepBetweenQuestions{50};

class SystemPollClock : public IKAIPollClock {
public:
    std::chrono::steady_clock::time_point obtainNow() override { return std::chrono::steady_clock::now(); }
    void sleepFor(std::chrono::steady_clock::duration duration) override { std::this_thread::sleep_for(duration); }
};

/// Sleeps through the whole delay, unless the host cancels.
/// @return whether the whole delay has passed
bool sleepWhole(IKAIPollClock& clock, milliseconds delay) {
    using Duration = std::chrono::steady_clock::duration;
    // A copy: the host's function may replace the settings that hold it.
    const std::function<bool()> cancelled = HTTP::obtainGlobalSettings().cancelled;
    const Duration longestSleep = cancelled ? kLongestSleepBetweenQuestions : delay;
    const auto end = clock.obtainNow() + delay;
    for (auto now = clock.obtainNow(); now < end; now = clock.obtainNow()) {
        if (cancelled && cancelled()) {
            return false;
        }
        clock.sleepFor(std::min<Duration>(end - now, longestSleep));
    }
    return true;
}

milliseconds obtainNextDelay(milliseconds delay) {
    return std::min(kLongestDelay, delay * 13 / 10);
}

KAIRunState fail(std::string errorText) {
    return {KAIRunState::Kind::Failed, std::move(errorText)};
}

KAIRunState readFailure(const COJson& run) {
    const COJsonValue lastError = run.obtainMember("last_error");
    const COJsonValue code = lastError.obtainMember("code");
    const COJsonValue message = lastError.obtainMember("message");
    if (!code.isString() || !message.isString()) {
        return fail(localizeString("Unsupported data format") + ": p/v1/threads/id/runs/id");
    }
    return fail(std::string(code.obtainString()).append(": ").append(message.obtainString()));
}

}  // namespace

IKAIPollClock& obtainSystemPollClock() {
    // Never destroyed: a host may still wait for a run while its static objects are.
    static auto* const clock = new SystemPollClock;
    return *clock;
}

KAIRunState readRunState(const COJson& run) {
    const COJsonValue status = run.obtainMember("status");
    if (!status.isString()) {
        return fail(localizeString("Unsupported data format") + ": p/v1/threads/id/runs/id");
    }
    const std::string_view word = status.obtainString();
    if (word == "completed") {
        return {KAIRunState::Kind::Completed, {}};
    }
    if (word == "failed") {
        return readFailure(run);
    }
    if (word == "expired" || word == "incomplete") {
        return {KAIRunState::Kind::Expired, {}};
    }
    return {};
}

std::string waitForRun(IKAIPollClock& clock, const std::function<KAIRunState()>& look) {
    milliseconds delay = kFirstDelay;
    for (int attempts = 0;; ++attempts) {
        KAIRunState state = look();
        if (state.kind == KAIRunState::Kind::Completed) {
            return {};
        }
        if (state.kind == KAIRunState::Kind::Failed) {
            return std::move(state.errorText);
        }
        // A run that expired is reported in the same word as one that was waited for too long.
        if (attempts > kMostAttempts || state.kind == KAIRunState::Kind::Expired) {
            return localizeString("Timeout");
        }
        if (!sleepWhole(clock, delay)) {
            return HTTP::describeResult(static_cast<std::int32_t>(CMRestResult::Cancelled));
        }
        delay = obtainNextDelay(delay);
    }
}
