/// Sleeping on the value of an integer. Not a cancellation point, unlike the C library's waits.
#pragma once

#include <atomic>
#include <chrono>

namespace KT {
namespace detail {

static_assert(sizeof(std::atomic<int>) == sizeof(int), "the kernel looks at the number itself");

/// Blocks while `word` is `value`, until a `futexWake` of it, or spuriously for shorter.
void futexWait(std::atomic<int>& word, int value);

/// The same for a limited time.
void futexWaitFor(std::atomic<int>& word, int value, std::chrono::nanoseconds time);

/// Ends up to `waiters` of the waits. `word` may be gone.
void futexWake(std::atomic<int>& word, int waiters);

}  // namespace detail
}  // namespace KT
