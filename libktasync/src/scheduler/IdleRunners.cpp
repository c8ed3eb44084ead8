#include "IdleRunners.h"

#include <mutex>

#include "../base/Futex.h"

namespace KT {
namespace detail {

void IdleRunners::add(Runner& runner)
{
    const std::lock_guard<BriefMutex> hold(mutex);
    runner.call.store(Runner::noCall, std::memory_order_relaxed);
    runner.nextIdle = top;
    top = &runner;
    runner.isIdle = true;
    ++count;
}

bool IdleRunners::remove(Runner& runner)
{
    const std::lock_guard<BriefMutex> hold(mutex);
    if (!runner.isIdle) {
        return false;
    }
    Runner** link = &top;
    while (*link != &runner) {
        link = &(*link)->nextIdle;
    }
    *link = runner.nextIdle;
    runner.isIdle = false;
    --count;
    return true;
}

Runner* IdleRunners::takeOne()
{
    const std::lock_guard<BriefMutex> hold(mutex);
    Runner* const taken = top;
    if (taken != nullptr) {
        top = taken->nextIdle;
        taken->isIdle = false;
        --count;
    }
    return taken;
}

void IdleRunners::deliver(Runner& runner, int call)
{
    runner.call.store(call, std::memory_order_release);
    futexWake(runner.call, 1);
}

bool IdleRunners::callOne(int call)
{
    Runner* const runner = size() == 0 ? nullptr : takeOne();
    if (runner != nullptr) {
        deliver(*runner, call);
    }
    return runner != nullptr;
}

void IdleRunners::callTo(Runner& runner, int call)
{
    if (remove(runner)) {
        deliver(runner, call);
    }
}

}  // namespace detail
}  // namespace KT
