#include "heap_watch.h"

#include <cerrno>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HEAP_IS_WATCHED 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define HEAP_IS_WATCHED 0
#endif
#endif
#ifndef HEAP_IS_WATCHED
#define HEAP_IS_WATCHED 1
#endif

namespace {

// Plain thread-local numbers: code that runs inside the allocator must not allocate.
thread_local std::ptrdiff_t t_liveBlocks = 0;
thread_local std::size_t t_countdown = 0;  // 0: nothing fails
thread_local bool t_failsOnwards = false;
thread_local bool t_hasFailed = false;

}  // namespace

#if HEAP_IS_WATCHED

// glibc's own names of its allocator, for programs that put something in front of it.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

bool isToFail() noexcept {
    if (t_countdown == 0) {
        return false;
    }
    if (t_countdown > 1) {
        --t_countdown;
        return false;
    }
    t_hasFailed = true;
    if (!t_failsOnwards) {
        t_countdown = 0;
    }
    errno = ENOMEM;
    return true;
}

void* count(void* block) noexcept {
    t_liveBlocks += block != nullptr ? 1 : 0;
    return block;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    return isToFail() ? nullptr : count(__libc_malloc(size));
}

void* calloc(std::size_t number, std::size_t size) {
    return isToFail() ? nullptr : count(__libc_calloc(number, size));
}

void* realloc(void* block, std::size_t size) {
    if (block == nullptr) {
        return malloc(size);
    }
    if (size == 0) {
        free(block);
        return nullptr;
    }
    return isToFail() ? nullptr : __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return isToFail() ? nullptr : count(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    void* const memory = memalign(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *block = memory;
    return 0;
}

void free(void* block) {
    t_liveBlocks -= block != nullptr ? 1 : 0;
    __libc_free(block);
}

}  // extern "C"

#endif

bool heap::isWatched() noexcept {
    return HEAP_IS_WATCHED == 1;
}

std::ptrdiff_t heap::countLiveBlocks() noexcept {
    return t_liveBlocks;
}

heap::Failure::Failure(std::size_t place, Failing failing) noexcept {
    t_hasFailed = false;
    t_failsOnwards = failing == Failing::Onwards;
    t_countdown = place;
}

heap::Failure::~Failure() {
    t_countdown = 0;
}

bool heap::Failure::hasHappened() noexcept {
    return t_hasFailed;
}
