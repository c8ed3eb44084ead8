#include "Deadline.h"

#include <ctime>

#include <pthread.h>

namespace KT {
namespace detail {

Deadline::Deadline(int milliseconds)
    : end(milliseconds < 0 ? Clock::time_point::max()
                           : Clock::now() + std::chrono::milliseconds(milliseconds))
{
}

bool Deadline::isOver() const
{
    return !isNever() && Clock::now() >= end;
}

bool Deadline::wait(std::unique_lock<std::mutex>& hold, std::condition_variable& changed) const
{
    // Not changed.wait_until, which libc++ declares noexcept: a cancellation would end the process.
    const auto sinceStart = end.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceStart);
    timespec until{};
    until.tv_sec = seconds.count();
    until.tv_nsec = std::chrono::nanoseconds(sinceStart - seconds).count();
    return pthread_cond_clockwait(changed.native_handle(), hold.mutex()->native_handle(),
                                  CLOCK_MONOTONIC, &until) == 0;
}

}  // namespace detail
}  // namespace KT
