/// A mutex for sections of a few instructions.
#pragma once

#include <atomic>

namespace KT {
namespace detail {

/// One word, which a thread first spins for and then sleeps on. Where many threads queue and take
/// work in turn, a std::mutex puts some of them to sleep for each section and costs several times
/// as much. Meant for std::lock_guard. Not recursive, not fair; none of it is a cancellation point.
class BriefMutex {
public:
    BriefMutex() = default;
    BriefMutex(const BriefMutex&) = delete;
    BriefMutex& operator=(const BriefMutex&) = delete;

    void lock()
    {
        int expected = unlocked;
        if (!word.compare_exchange_strong(expected, locked, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
            lockSlowly();
        }
    }

    void unlock()
    {
        if (word.exchange(unlocked, std::memory_order_release) == contended) {
            wakeOne();
        }
    }

private:
    static constexpr int unlocked = 0;
    static constexpr int locked = 1;
    static constexpr int contended = 2;  ///< locked, and a thread may be asleep

    void lockSlowly();
    void wakeOne();

    std::atomic<int> word{unlocked};
};

}  // namespace detail
}  // namespace KT
