#include "Deadline.h"

namespace KT {
namespace detail {

Deadline::Deadline(int milliseconds)
    : end(milliseconds < 0 ? Clock::time_point::max()
                           : Clock::now() + std::chrono::milliseconds(milliseconds))
{
}

bool Deadline::isOver() const
{
    return end != Clock::time_point::max() && Clock::now() >= end;
}

bool Deadline::wait(std::unique_lock<std::mutex>& hold, std::condition_variable& changed) const
{
    return changed.wait_until(hold, end) == std::cv_status::no_timeout;
}

}  // namespace detail
}  // namespace KT
