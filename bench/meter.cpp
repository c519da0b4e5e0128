#include "meter.h"

#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>

#include "allocation_counter.h"

namespace {

/// A system call that does nothing but stand in strace's output.
void markSystemCalls(std::string_view mark) {
    [[maybe_unused]] const ssize_t written = write(-1, mark.data(), mark.size());
}

}  // namespace

void Meter::begin() {
    markSystemCalls(kBeginMark);
    startCountingAllocations();
    m_start = Clock::now();
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_TOGGLE_COLLECT;
}

void Meter::end() {
    CALLGRIND_TOGGLE_COLLECT;
    m_seconds.push_back(std::chrono::duration<double>(Clock::now() - m_start).count());
    const AllocationCounts counts = obtainAllocationCounts();
    m_allocations += counts.allocations;
    m_heapGrowth += counts.peakGrowth;
    markSystemCalls(kEndMark);
}

void Meter::report() const {
    std::printf("repeats %zu\n", m_repeats);
    if (m_seconds.empty()) {
        return;
    }
    std::vector<double> seconds = m_seconds;
    const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
    std::nth_element(seconds.begin(), middle, seconds.end());
    std::printf("seconds %.9f\n", *middle);
    note("allocations", m_allocations / m_repeats);
    note("heap_growth", m_heapGrowth / m_repeats);
}

void Meter::note(std::string_view name, std::uint64_t value) {
    std::printf("%.*s %llu\n", static_cast<int>(name.size()), name.data(), static_cast<unsigned long long>(value));
}
