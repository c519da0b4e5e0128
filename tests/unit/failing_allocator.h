#ifndef TESTS_FAILING_ALLOCATOR_H
#define TESTS_FAILING_ALLOCATOR_H

#include <cstddef>
#include <functional>

/// Runs the function again and again on this thread: with its first allocation (by operator new, wherever it is called
/// from) failing, then its second, and so on, until it gets by without one failing.
///
/// The function must throw std::bad_alloc (or std::length_error) when an allocation fails; then `check` is called. Only
/// a failure of an allocation that does not throw may be coped with (the standard library's sorting does without its
/// buffer then); after such a run, which did its work, `again` is called.
/// @return how many times an allocation failed
std::size_t failEachAllocation(const std::function<void()>& run, const std::function<void()>& check,
                               const std::function<void()>& again = {});

/// The blocks that this thread's operator new gave out and that were not given back yet. Only what is
/// allocated and freed on the same thread is counted.
std::ptrdiff_t countLiveAllocations();

#endif
