/// Waits that end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace KT {

namespace detail {

/// A point on the monotonic clock, or never.
class Deadline {
public:
    /// That many milliseconds from now; never if negative.
    explicit Deadline(int milliseconds);

    bool isOver() const;
    bool isNever() const { return end == Clock::time_point::max(); }
    friend Deadline sooner(const Deadline& a, const Deadline& b) { return a.end < b.end ? a : b; }

    /// Blocks until `changed` is notified (or spuriously), or until the deadline: false then. A
    /// cancellation point, cancelled with `hold` held.
    bool wait(std::unique_lock<std::mutex>& hold, std::condition_variable& changed) const;

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end;
};

}  // namespace detail
}  // namespace KT
