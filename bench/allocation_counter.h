#ifndef BENCH_ALLOCATION_COUNTER_H
#define BENCH_ALLOCATION_COUNTER_H

#include <cstddef>
#include <cstdint>

/// What the whole process allocated since counting was started.
struct AllocationCounts {
    std::uint64_t allocations = 0;  ///< calls of malloc and its kin, a realloc counted as one
    std::uint64_t peakGrowth = 0;   ///< the most bytes in use at a time, above those in use at the start
};

// There are two implementations: one replaces the C library's allocator, for all libraries of the process, by one that
// counts; the other one counts nothing, so that instructions are those of the allocator as it is.

void startCountingAllocations();
[[nodiscard]] AllocationCounts obtainAllocationCounts();
/// The bytes of all blocks that are allocated now.
[[nodiscard]] std::uint64_t obtainBytesInUse();

#endif
