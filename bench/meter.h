#ifndef BENCH_METER_H
#define BENCH_METER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// What the meter writes to no file at the two ends of its region: the system calls between them are the region's.
inline constexpr std::string_view kBeginMark = "bench: begin";
inline constexpr std::string_view kEndMark = "bench: end";

/// Measures a region of code that is entered several times, and nothing around it.
///
/// Instructions are counted by callgrind when the program runs under it (with --collect-atstart=no): collection is
/// switched on for the region alone. Allocations and the growth of the heap are counted in the executable that is
/// linked with the counting allocator. Time is taken always.
class Meter {
public:
    explicit Meter(std::size_t repeats) : m_repeats(repeats) {}

    /// Enters the region `repeats` times, after `warmUps` times that are not measured: connections are made and what is
    /// initialised at first use is there by then.
    ///
    /// Each time `run` is given what `prepare` made. Both that and the result of `run` are freed outside the region.
    template <typename Prepare, typename Run>
    void measure(std::size_t warmUps, Prepare prepare, Run run) {
        for (std::size_t i = 0; i < warmUps; ++i) {
            auto prepared = prepare();
            [[maybe_unused]] const auto result = run(prepared);
        }
        for (std::size_t i = 0; i < m_repeats; ++i) {
            auto prepared = prepare();
            begin();
            [[maybe_unused]] const auto result = run(prepared);
            end();
        }
    }

    /// Prints "name value" lines: what was measured, an average (of seconds: the median) over the repeats.
    void report() const;
    /// Prints a further such line.
    static void note(std::string_view name, std::uint64_t value);

private:
    using Clock = std::chrono::steady_clock;

    void begin();
    void end();

    std::size_t m_repeats;
    Clock::time_point m_start;
    std::vector<double> m_seconds;
    std::uint64_t m_allocations = 0;
    std::uint64_t m_heapGrowth = 0;
};

#endif
