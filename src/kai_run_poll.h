#ifndef KAI_RUN_POLL_H
#define KAI_RUN_POLL_H

#include <chrono>
#include <functional>
#include <string>

#include "cf/json.h"

namespace kai {

/// The clock for polling; tests replace it with their own.
class PollClock {
public:
    virtual ~PollClock() = default;
    virtual std::chrono::steady_clock::time_point obtainNow() = 0;
    /// Sleeps for about this time; it may wake early.
    virtual void sleepFor(std::chrono::steady_clock::duration duration) = 0;
};

/// The steady clock and the calling thread's sleep.
PollClock& obtainSystemPollClock();

/// The result of one poll of a run.
struct RunState {
    enum class Kind {
        Pending,    ///< queued, in progress or another state that is not final
        Completed,  ///< the answer can be fetched
        Expired,    ///< the service gave up
        Failed,     ///< the run or the exchange failed; `errorText` says why
    };
    Kind kind = Kind::Pending;
    std::string errorText;
};

/// Reads the service's description of a run.
RunState readRunState(const COJson& run);

/// Polls a run until it ends: at once, after 250 ms, and then each time after 1.3 times the last delay, but at most 1
/// s; at most 102 times. While it waits, it calls the host's `cancelled` as often as during an exchange.
/// @param look  asks the service for the run's state
/// @return empty if the run completed, otherwise the error text; the transport's text if the host cancelled
std::string waitForRun(PollClock& clock, const std::function<RunState()>& look);

}  // namespace kai

#endif
