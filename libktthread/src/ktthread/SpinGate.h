#pragma once

#include <atomic>
#include <chrono>

#include <boost/shared_ptr.hpp>

#include "SharedPointers.h"

namespace KT::core {

/// Tells the processor that this thread only waits for another.
inline void pauseProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

/// A thread's passage through a gate, which is a flag in front of a lock that is mostly held for a
/// few instructions. A thread that finds the gate taken spins for `patience`, since the platform's
/// mutex would put it to sleep at once, and that costs a hundred times what is done under these
/// locks. A gate is no lock: a thread that doesn't get through in that time goes on to the lock all
/// the same.
///
/// glibc's adaptive mutex (PTHREAD_MUTEX_ADAPTIVE_NP) spins too, but the library's mutexes promise
/// the platform's default attributes, and its reader/writer locks have no such kind.
///
/// All threads share the flag; each object belongs to one thread and one scope. Nothing here
/// throws, allocates or is a cancellation point.
class SpinGate {
public:
    static constexpr std::chrono::nanoseconds patience = std::chrono::microseconds(1);

    explicit SpinGate(std::atomic<bool>& flag, std::chrono::nanoseconds limit = patience)
        : taken(flag), entered(tryEnter(flag) || spin(flag, limit))
    {
    }
    ~SpinGate()
    {
        if (entered) {
            taken.store(false, std::memory_order_release);
        }
    }
    SpinGate(const SpinGate&) = delete;
    SpinGate& operator=(const SpinGate&) = delete;

    /// Whether the thread got through. The next one does once this object is destroyed.
    bool isEntered() const { return entered; }

private:
    static bool tryEnter(std::atomic<bool>& flag)
    {
        return !flag.load(std::memory_order_relaxed) &&
               !flag.exchange(true, std::memory_order_acquire);
    }

    /// Out of line, so that an open gate costs no more than tryEnter.
    [[gnu::noinline]] static bool spin(std::atomic<bool>& flag, std::chrono::nanoseconds limit)
    {
        const int looksPerClock = 4;  // reading the clock takes about as long as one of them
        const auto end = std::chrono::steady_clock::now() + limit;
        do {
            for (int look = 0; look < looksPerClock; ++look) {
                pauseProcessor();
                if (tryEnter(flag)) {
                    return true;
                }
            }
        } while (std::chrono::steady_clock::now() < end);
        return false;
    }

    std::atomic<bool>& taken;
    const bool entered;
};

/// A guard of a lock that has a gate in front. The lock must outlive it.
template <typename Guard>
class SpinThenLock {
public:
    template <typename Lock>
    SpinThenLock(std::atomic<bool>& flag, const boost::shared_ptr<Lock>& lock)
        : gate(flag), guard(nonOwning(lock))
    {
    }

private:
    const SpinGate gate;  // left after the guard has released the lock
    const Guard guard;
};

}  // namespace KT::core
