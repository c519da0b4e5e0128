#ifndef TESTS_HEAP_WATCH_H
#define TESTS_HEAP_WATCH_H

#include <cstddef>
#include <cstdint>

/// Watches the C allocator of the whole process, the shared libraries included (operator new, libcurl and OpenSSL
/// allocate through it), and lets its allocations fail on demand. Linked into a program it replaces malloc and its
/// relatives there. Under a sanitizer, which has an allocator of its own, nothing is counted and nothing fails.
namespace heap {

/// Whether the allocator of this program is watched: not under a sanitizer.
[[nodiscard]] bool isWatched() noexcept;

/// The blocks that this thread has allocated and that nobody has freed yet. A block that another thread frees counts
/// for that thread.
[[nodiscard]] std::ptrdiff_t countLiveBlocks() noexcept;

/// Which allocations fail.
enum class Failing : std::uint8_t {
    Once,    ///< one alone
    Onwards  ///< that one and all that follow
};

/// Lets allocations of this thread fail while it lives: the `place`-th from now on (from 1).
class Failure {
public:
    Failure(std::size_t place, Failing failing) noexcept;
    ~Failure();
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;

    /// Whether the place was reached.
    [[nodiscard]] static bool hasHappened() noexcept;
};

}  // namespace heap

#endif
