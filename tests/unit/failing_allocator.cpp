#include "failing_allocator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

// The whole process allocates through the operators below, the shared libraries included.

namespace {

// 0: no failure is wanted; n: the n-th allocation from here on fails.
thread_local std::size_t t_countdown = 0;
enum class Failure { None, OfThrowing, OfNothrow };
thread_local Failure t_failure = Failure::None;
thread_local std::ptrdiff_t t_live = 0;

void* allocate(std::size_t size, std::size_t alignment, Failure failure = Failure::OfNothrow) noexcept {
    if (t_countdown != 0 && --t_countdown == 0) {
        t_failure = failure;
        return nullptr;
    }
    void* memory = alignment <= alignof(std::max_align_t)
                       ? std::malloc(size)
                       : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    t_live += memory != nullptr ? 1 : 0;
    return memory;
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
    void* memory = allocate(size, alignment, Failure::OfThrowing);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void release(void* memory) noexcept {
    t_live -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocateOrThrow(size, 0);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size, 0);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, 0);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}

std::ptrdiff_t countLiveAllocations() {
    return t_live;
}

namespace {

/// Whether the function threw, its n-th allocation failing.
bool throwsWhenFailing(const std::function<void()>& run, std::size_t failing) {
    t_failure = Failure::None;
    t_countdown = failing;
    bool hasThrown = false;
    try {
        run();
    } catch (const std::bad_alloc&) {
        hasThrown = true;
    } catch (const std::length_error&) {
        hasThrown = true;
    }
    t_countdown = 0;
    return hasThrown;
}

}  // namespace

std::size_t failEachAllocation(const std::function<void()>& run, const std::function<void()>& check,
                               const std::function<void()>& again) {
    constexpr std::size_t kMostAllocations = 100'000;
    for (std::size_t failing = 1; failing < kMostAllocations; ++failing) {
        if (throwsWhenFailing(run, failing)) {
            check();
        } else if (t_failure == Failure::None) {
            return failing - 1;
        } else if (t_failure == Failure::OfThrowing || !again) {
            ADD_FAILURE() << "the failure of allocation " << failing << " went unnoticed";
            return failing;
        } else {
            again();
        }
    }
    ADD_FAILURE() << "no end of allocations";
    return kMostAllocations;
}
