/// The allocations of the calling thread, counted and made to fail: a program that links this has
/// its own operator new.
#pragma once

#include <new>
#include <utility>

namespace allocations {

extern thread_local long made;   ///< so far
extern thread_local long alive;  ///< made by this thread less released by it
/// How many allocations succeed before one fails. If negative, none fails.
extern thread_local long untilFailure;

/// Runs `operation` with the n-th allocation failing, for each n until there is no n-th one. It may
/// throw std::bad_alloc only; what is thrown is given to `afterwards`, as the number of the
/// failure. Returns how many failed.
template <typename Operation, typename Afterwards>
int failEach(const Operation& operation, const Afterwards& afterwards)
{
    for (int n = 0;; ++n) {
        untilFailure = n;
        bool isThrown = false;
        try {
            operation();
        } catch (const std::bad_alloc&) {
            isThrown = true;
        }
        const bool hasFailed = std::exchange(untilFailure, -1) < 0;
        if (isThrown) {
            afterwards(n);
        }
        if (!hasFailed) {
            return n;
        }
    }
}

template <typename Operation>
int failEach(const Operation& operation)
{
    return failEach(operation, [](int) {});
}

}  // namespace allocations
