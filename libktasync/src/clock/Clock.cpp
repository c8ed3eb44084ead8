#include "Clock.h"

#include <algorithm>
#include <csignal>
#include <new>

#include <pthread.h>

#include <ktthread/KTThread.h>

#include "../base/Futex.h"

namespace KT {
namespace detail {

namespace {

/// Keeps the signals of the process from the threads that the calling one makes.
class NoSignals {
public:
    NoSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    sigset_t before{};
};

}  // namespace

Clock& Clock::instance()
{
    static Clock* const clock = [] {
        pthread_atfork(lockBeforeFork, unlockAfterFork, renewInChild);
        return new Clock;
    }();
    return *clock;
}

// From one to the other two, the mutex is held: the list is whole in a child.
void Clock::lockBeforeFork()
{
    instance().mutex.lock();
}

void Clock::unlockAfterFork()
{
    instance().mutex.unlock();
}

// The thread doesn't exist in a child, and nor do the workers of what was watched, which is left
// alone.
void Clock::renewInChild()
{
    Clock& clock = instance();
    clock.watched.clear();
    clock.isRunning = false;
    clock.mutex.unlock();
}

void Clock::watch(Watched& what, Time::duration after)
{
    const std::lock_guard<std::mutex> hold(mutex);
    const Time::time_point before = firstDueLocked();
    if (!what.hook.is_linked()) {
        intrusive_ptr_add_ref(&what);
        watched.push_back(what);
    }
    what.due = std::min(what.due, Time::now() + after);
    startLocked();
    if (what.due < before) {
        ++changes;
        futexWake(changes, 1);
    }
}

void Clock::startLocked()
{
    if (isRunning) {
        return;
    }
    const NoSignals blocked;
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, run, this) == 0) {
        pthread_detach(thread);
        isRunning = true;
    }
}

Time::time_point Clock::firstDueLocked() const
{
    Time::time_point first = Watched::never;
    for (const Watched& each : watched) {
        first = std::min(first, each.due);
    }
    return first;
}

void* Clock::run(void* self)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    KTThread::setThreadName("KTClock");
    Clock& clock = *static_cast<Clock*>(self);
    for (;;) {
        clock.lookAtDue();
        int seen = 0;
        Time::time_point due;
        {
            const std::lock_guard<std::mutex> hold(clock.mutex);
            seen = clock.changes;
            due = clock.firstDueLocked();
        }
        if (due == Watched::never) {
            futexWait(clock.changes, seen);
        } else if (const auto now = Time::now(); due > now) {
            futexWaitFor(clock.changes, seen, due - now);
        }
    }
}

// One whose look is due; null if none is.
Watched* Clock::takeDueLocked(Time::time_point now)
{
    const auto found = std::find_if(watched.begin(), watched.end(),
                                    [now](const Watched& each) { return each.due <= now; });
    if (found == watched.end()) {
        return nullptr;
    }
    found->due = Watched::never;
    return &*found;
}

void Clock::lookAtDue()
{
    const Time::time_point now = Time::now();
    for (;;) {
        Watched* due = nullptr;
        {
            const std::lock_guard<std::mutex> hold(mutex);
            due = takeDueLocked(now);
        }
        if (due == nullptr) {
            return;
        }
        lookAt(*due);
    }
}

void Clock::lookAt(Watched& looked)
{
    const Time::time_point next = looked.look(Time::now());
    boost::intrusive_ptr<Watched> forgotten;  // released after the mutex
    const std::lock_guard<std::mutex> hold(mutex);
    looked.due = std::min(looked.due, next);
    if (looked.due == Watched::never) {
        watched.erase(watched.iterator_to(looked));
        forgotten = boost::intrusive_ptr<Watched>(&looked, false);
    }
}

}  // namespace detail
}  // namespace KT
