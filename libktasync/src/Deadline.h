/// Waits that end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace KT {

class KTThreadPool;

namespace detail {

/// A point on the monotonic clock, or never.
class Deadline {
public:
    /// That many milliseconds from now; never if negative.
    explicit Deadline(int milliseconds);

    bool isOver() const;
    friend Deadline sooner(const Deadline& a, const Deadline& b) { return a.end < b.end ? a : b; }

    /// Blocks until `changed` is notified (or spuriously), or until the deadline: false then. A
    /// cancellation point, cancelled with `hold` held.
    bool wait(std::unique_lock<std::mutex>& hold, std::condition_variable& changed) const;

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end;
};

/// How long a wake-up of a pool may stay lost.
const int wakeAfterMs = 20;

/// One step of a wait for what a pool's workers do: until `changed` is notified or, after a while,
/// `wake` was called without the lock. The pool may have lost a wake-up: what is waited for then
/// sits in its queue, and nothing else would make it move. False, at once, after the deadline.
template <typename Wake>
bool waitForWorkers(std::unique_lock<std::mutex>& hold, std::condition_variable& changed,
                    const Deadline& end, const Wake& wake)
{
    if (end.isOver()) {
        return false;
    }
    if (!sooner(end, Deadline(wakeAfterMs)).wait(hold, changed)) {
        hold.unlock();
        wake();
        hold.lock();
    }
    return true;
}

}  // namespace detail
}  // namespace KT
