#include "IdleRunners.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "../base/Futex.h"

namespace KT {
namespace detail {

void IdleRunners::add(Runner& runner)
{
    const std::lock_guard<BriefMutex> hold(mutex);
    runner.call.store(Runner::noCall, std::memory_order_relaxed);
    runner.idleSince = Watched::never;
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

Runner* IdleRunners::takeOneLocked()
{
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

void IdleRunners::callOneToLeave()
{
    Runner* called = nullptr;
    if (size() != 0) {
        const std::lock_guard<BriefMutex> hold(mutex);
        called = takeOneLocked();
    }
    if (called != nullptr) {
        deliver(*called, Runner::callToLeave);
    }
}

void IdleRunners::callPatientToLeave(Time::time_point now, Time::duration patience)
{
    Runner* called = nullptr;
    if (size() != 0) {
        const std::lock_guard<BriefMutex> hold(mutex);
        for (Runner** link = &top; *link != nullptr;) {
            Runner& runner = **link;
            runner.idleSince = std::min(runner.idleSince, now);
            if (now - runner.idleSince < patience) {
                link = &runner.nextIdle;
            } else {
                *link = std::exchange(runner.nextIdle, called);
                called = &runner;
                runner.isIdle = false;
                --count;
            }
        }
    }
    while (called != nullptr) {
        // A carrier that has been called may wait again.
        deliver(*std::exchange(called, called->nextIdle), Runner::callToLeave);
    }
}

bool IdleRunners::callOneToWork(std::atomic<int>& searching)
{
    Runner* called = nullptr;
    if (size() != 0) {
        const std::lock_guard<BriefMutex> hold(mutex);
        called = takeOneLocked();
        searching += called != nullptr ? 1 : 0;
    }
    if (called != nullptr) {
        deliver(*called, Runner::callToWork);
    }
    return called != nullptr;
}

void IdleRunners::callTo(Runner& runner, int call)
{
    if (remove(runner)) {
        deliver(runner, call);
    }
}

}  // namespace detail
}  // namespace KT
