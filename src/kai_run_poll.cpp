#include "kai_run_poll.h"

#include <algorithm>
#include <thread>

#include "kai_host_callback.h"
#include "kai_http.h"

namespace kai {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstDelay{250};
constexpr milliseconds kLongestDelay{1000};
constexpr int kMostAttempts = 100;
// Half of the promised interval between calls of `cancelled`, because a sleep may take longer than requested.
constexpr milliseconds kLongestSleepBetweenQuestions{50};

class SystemPollClock : public PollClock {
public:
    std::chrono::steady_clock::time_point obtainNow() override { return std::chrono::steady_clock::now(); }
    void sleepFor(std::chrono::steady_clock::duration duration) override { std::this_thread::sleep_for(duration); }
};

/// Sleeps through the whole delay, unless the host cancels.
/// @return whether the whole delay has passed
bool sleepWhole(PollClock& clock, milliseconds delay) {
    using Duration = std::chrono::steady_clock::duration;
    // A copy: the host's function may replace the settings that contain it.
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

RunState fail(std::string errorText) {
    return {RunState::Kind::Failed, std::move(errorText)};
}

RunState readFailure(const COJson& run) {
    const COJsonValue lastError = run.obtainMember("last_error");
    const COJsonValue code = lastError.obtainMember("code");
    const COJsonValue message = lastError.obtainMember("message");
    if (!code.isString() || !message.isString()) {
        return fail(localizeString("Unsupported data format") + ": p/v1/threads/id/runs/id");
    }
    return fail(std::string(code.obtainString()).append(": ").append(message.obtainString()));
}

}  // namespace

PollClock& obtainSystemPollClock() {
    // Never destroyed: the destructors of a host's static objects may still wait for a run.
    static auto* const clock = new SystemPollClock;
    return *clock;
}

RunState readRunState(const COJson& run) {
    const COJsonValue status = run.obtainMember("status");
    if (!status.isString()) {
        return fail(localizeString("Unsupported data format") + ": p/v1/threads/id/runs/id");
    }
    const std::string_view word = status.obtainString();
    if (word == "completed") {
        return {RunState::Kind::Completed, {}};
    }
    if (word == "failed") {
        return readFailure(run);
    }
    if (word == "expired" || word == "incomplete") {
        return {RunState::Kind::Expired, {}};
    }
    return {};
}

std::string waitForRun(PollClock& clock, const std::function<RunState()>& look) {
    milliseconds delay = kFirstDelay;
    for (int attempts = 0;; ++attempts) {
        RunState state = look();
        if (state.kind == RunState::Kind::Completed) {
            return {};
        }
        if (state.kind == RunState::Kind::Failed) {
            return std::move(state.errorText);
        }
        // An expired run is reported with the same text as one that took too long.
        if (attempts > kMostAttempts || state.kind == RunState::Kind::Expired) {
            return localizeString("Timeout");
        }
        if (!sleepWhole(clock, delay)) {
            return HTTP::describeResult(static_cast<std::int32_t>(CMRestResult::Cancelled));
        }
        delay = obtainNextDelay(delay);
    }
}

}  // namespace kai
