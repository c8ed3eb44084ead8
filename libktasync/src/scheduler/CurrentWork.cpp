#include <ktasync/detail/CurrentWork.h>

#include <sched.h>

namespace KT {
namespace detail {

bool CurrentWork::begin(Work& work)
{
    const auto address = reinterpret_cast<std::uintptr_t>(&work);
    std::uintptr_t now = word;
    do {
        if (has(now, Stop::ofThread)) {
            return false;
        }
    } while (!word.compare_exchange_weak(now, address | (now & allStops)));
    return true;
}

void CurrentWork::end()
{
    std::uintptr_t now = notHeld();
    while (!word.compare_exchange_weak(now, now & allStops)) {
        now = notHeld();
    }
}

Work* CurrentWork::workIn(std::uintptr_t now)
{
    const std::uintptr_t flags = allStops | held | isNumber;
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return (now & isNumber) != 0 ? nullptr : reinterpret_cast<Work*>(now & ~flags);
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

Work* CurrentWork::hold()
{
    std::uintptr_t now = notHeld();
    while (workIn(now) != nullptr && !word.compare_exchange_weak(now, now | held)) {
        now = notHeld();
    }
    return workIn(now);
}

Work* CurrentWork::stopAndHold(Stop stop)
{
    std::uintptr_t now = word;
    while (!has(now, stop)) {
        now = notHeld();
        Work* const work = workIn(now);
        const std::uintptr_t kept = work != nullptr ? now | held : now & allStops;
        if (!has(now, stop) && word.compare_exchange_weak(now, kept | bitsOf(stop))) {
            return work;
        }
    }
    return nullptr;
}

void CurrentWork::release()
{
    word.fetch_and(~held);
}

void CurrentWork::requestStop()
{
    if (Work* const work = stopAndHold(Stop::ofThread)) {
        work->requestStop();
        release();
    }
}

}  // namespace detail
}  // namespace KT
