#include <ktasync/detail/CurrentWork.h>

#include <sched.h>

namespace KT {
namespace detail {

bool CurrentWork::begin(Work& work)
{
    std::uintptr_t none = 0;
    return word.compare_exchange_strong(none, reinterpret_cast<std::uintptr_t>(&work));
}

void CurrentWork::end()
{
    std::uintptr_t now = notHeld();
    while (!word.compare_exchange_weak(now, now & stopped)) {
        now = notHeld();
    }
}

Work* CurrentWork::hold()
{
    std::uintptr_t now = notHeld();
    while ((now & ~stopped) != 0 && !word.compare_exchange_weak(now, now | held)) {
        now = notHeld();
    }
    return reinterpret_cast<Work*>(now & ~stopped);  // NOLINT(performance-no-int-to-ptr)
}

Work* CurrentWork::stopAndHold()
{
    std::uintptr_t now = notHeld();
    while ((now & stopped) == 0 &&
           !word.compare_exchange_weak(now, now == 0 ? stopped : now | stopped | held)) {
        now = notHeld();
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return (now & stopped) != 0 ? nullptr : reinterpret_cast<Work*>(now);
}

// Waits until no other thread holds the work: for a few instructions, or for the handlers that a
// stop request runs.
std::uintptr_t CurrentWork::notHeld() const
{
    std::uintptr_t now = word;
    while ((now & held) != 0) {
        sched_yield();
        now = word;
    }
    return now;
}

void CurrentWork::release()
{
    word.fetch_and(~held);
}

void CurrentWork::requestStop()
{
    if (Work* const work = stopAndHold()) {
        work->requestStop();
        release();
    }
}

}  // namespace detail
}  // namespace KT
