#ifndef KAI_RUN_POLL_H
#define KAI_RUN_POLL_H

#include <chrono>
#include <functional>
#include <string>

#include "cf/json.h"

namespace kai {

/// The time by which a poll waits; tests put their own in place of the real one.
class PollClock {
public:
    virtual ~PollClock() = default;
    virtual std::chrono::steady_clock::time_point obtainNow() = 0;
    /// Sleeps about so long; it may wake early.
    virtual void sleepFor(std::chrono::steady_clock::duration duration) = 0;
};

/// The steady clock and the calling thread's sleep.
PollClock& obtainSystemPollClock();

/// What one look at a run told.
struct RunState {
    enum class Kind {
        Pending,    ///< queued, in progress or another state that is not an end
        Completed,  ///< the answer can be fetched
        Expired,    ///< the service gave up
        Failed,     ///< `errorText` says why; so does an exchange that failed
    };
    Kind kind = Kind::Pending;
    std::string errorText;
};

/// Reads a run as the service describes it.
RunState readRunState(const COJson& run);

/// Looks at a run again and again until it ends: after 250 ms, then each time 1.3 times the last delay, at most 1 s;
/// 102 looks at most. While it waits, the host's `cancelled` is asked as often as during an exchange.
/// @param look  asks the service for the run's state
/// @return empty when the run completed, otherwise the error text; the transport's own where the host cancelled
std::string waitForRun(PollClock& clock, const std::function<RunState()>& look);

}  // namespace kai

#endif
