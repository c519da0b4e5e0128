#include "allocation_counter.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>

// The C library's own allocator under its other names.
extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, std::size_t size);             // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void __libc_free(void* block);                                   // NOLINT(bugprone-reserved-identifier)
}

namespace {

std::atomic<std::uint64_t> allocationCount{0};
std::atomic<std::int64_t> bytesInUse{0};
std::atomic<std::int64_t> mostBytesInUse{0};
std::int64_t bytesAtStart = 0;

void* noteAllocated(void* block) {
    if (block == nullptr) {
        return nullptr;
    }
    ++allocationCount;
    const auto size = static_cast<std::int64_t>(malloc_usable_size(block));
    const std::int64_t inUse = bytesInUse.fetch_add(size) + size;
    std::int64_t most = mostBytesInUse.load();
    while (inUse > most && !mostBytesInUse.compare_exchange_weak(most, inUse)) {
    }
    return block;
}

void noteFreed(void* block) {
    bytesInUse -= static_cast<std::int64_t>(malloc_usable_size(block));
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    return noteAllocated(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return noteAllocated(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
    const auto formerSize = static_cast<std::int64_t>(malloc_usable_size(block));
    void* const moved = __libc_realloc(block, size);
    if (moved != nullptr || size == 0) {
        bytesInUse -= formerSize;
    }
    return noteAllocated(moved);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return noteAllocated(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return noteAllocated(__libc_memalign(alignment, size));
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = noteAllocated(__libc_memalign(alignment, size));
    return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) {
    noteFreed(block);
    __libc_free(block);
}
}

void startCountingAllocations() {
    allocationCount = 0;
    bytesAtStart = bytesInUse;
    mostBytesInUse = bytesAtStart;
}

AllocationCounts obtainAllocationCounts() {
    return {allocationCount, static_cast<std::uint64_t>(mostBytesInUse - bytesAtStart)};
}

std::uint64_t obtainBytesInUse() {
    return static_cast<std::uint64_t>(bytesInUse.load());
}
