#ifndef HOST_ENGINE_RUN_CLOCK_H
#define HOST_ENGINE_RUN_CLOCK_H

#include <algorithm>
#include <chrono>

namespace host {

/// The remaining time of a run's statements. Only the time in which they run counts.
class RunClock {
public:
    using Clock = std::chrono::steady_clock;

    explicit RunClock(std::chrono::milliseconds limit) : m_deadline(Clock::now() + limit) {}

    [[nodiscard]] bool isOver() const { return Clock::now() >= m_deadline; }

    /// At least 1 ms, because 0 means "no limit" to the engines.
    [[nodiscard]] std::chrono::milliseconds obtainRest() const {
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(m_deadline - Clock::now());
        return std::max(rest, std::chrono::milliseconds{1});
    }

    /// Runs an action whose time does not count.
    template <typename Action>
    auto pause(const Action& action) {
        const auto start = Clock::now();
        const auto result = action();
        m_deadline += Clock::now() - start;
        return result;
    }

private:
    Clock::time_point m_deadline;
};

}  // namespace host

#endif
