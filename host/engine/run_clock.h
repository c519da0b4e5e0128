#ifndef HOST_ENGINE_RUN_CLOCK_H
#define HOST_ENGINE_RUN_CLOCK_H

#include <algorithm>
#include <chrono>

namespace host {

/// The time that the statements of a run have left. Time in which nothing of them runs does not count.
class RunClock {
public:
    using Clock = std::chrono::steady_clock;

    explicit RunClock(std::chrono::milliseconds limit) : m_deadline(Clock::now() + limit) {}

    [[nodiscard]] bool isOver() const { return Clock::now() >= m_deadline; }

    /// At least 1 ms: to the engines, 0 means no limit.
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
