// What the clock does for a pool: it rescues, sizes and shrinks.
#include <algorithm>
#include <exception>
#include <utility>

#include "Scheduler.h"

namespace KT {
namespace detail {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

// While work waits a look reads the states of threads, a system call each: the longer period keeps
// that small beside the work.
const microseconds shortestPeriod(500);
const milliseconds longestPeriod(4);

/// How long a carrier without work keeps its worker: starting another carrier costs more than a
/// wake-up.
const milliseconds patience(4);

/// Looks that find nothing to do before the clock leaves a pool alone.
const int quietLooksBeforeRest = 16;

/// Threads looked at.
const int largestSample = 8;

/// The core retires workers only in a pool of more than this many.
const int coreFloor = 18;

/// Work that ends within this time has neither waited nor blocked for long.
const milliseconds shortWait(10);

/// After a thread couldn't be made. Each attempt makes a log record.
const milliseconds pauseAfterFailure(1000);

}  // namespace

Time::time_point Scheduler::look(Time::time_point now)
{
    const boost::shared_ptr<KTThreadPool> pool = target.lock();
    if (!pool) {
        isWatched = false;
        idle.callPatientToLeave(now, Time::duration::zero());
        return never;
    }
    idle.callPatientToLeave(now, patience);
    // A wake-up that was lost, of a carrier or of a task of the core.
    const bool isCoreWaiting = pool->wake();
    const bool isWorkWaiting = hasWork();
    const KTThreadPoolStatus status = pool->status();
    noteNeed(status, now);
    if (isWorkWaiting && status.threads < 1) {
        abandonAll();  // no worker will ever get to it
    } else if (isWorkWaiting) {
        resize(*pool, status, now);
    } else {
        relax(now);
    }
    if (isCoreWaiting || isWorkWaiting) {
        quietLooks = 0;
        return now + period;
    }
    period = shortestPeriod;
    if (++quietLooks < quietLooksBeforeRest) {
        return now + longestPeriod;
    }
    return rest(*pool, status, now);
}

// Leaves the pool alone until it is watched again, or until workers are to retire.
Time::time_point Scheduler::rest(KTThreadPool& pool, const KTThreadPoolStatus& status,
                                 Time::time_point now)
{
    quietLooks = 0;
    const Time::time_point next = shrink(pool, status, now);
    isWatched = false;
    // Whoever queued something before that relies on the clock, and so does a carrier that waits.
    if (hasWork() || unstarted != 0 || idle.size() != 0) {
        watch();
    }
    return next;
}

CarrierCensus Scheduler::count(bool isEnough)
{
    // One that isn't at work yet will take some of what waits.
    CarrierCensus census{busyCarriers(), 0, 0, waiting(), isEnough};
    const int known = runnerCount;
    for (int i = 0; i < known && census.sampled < largestSample; ++i) {
        nextSample = (nextSample + 1) % known;
        const Runner& runner = *runners[static_cast<std::size_t>(nextSample)].load();
        const pid_t thread = runner.thread;
        if (thread != 0 && !runner.isIdle) {
            // Between two tasks it may sleep for a queue's mutex, whose owner lost the processor:
            // more carriers would be no help.
            const bool isRunnable = !runner.isInWork || threadStates.isRunnable(thread);
            ++census.sampled;
            census.runnable += isRunnable ? 1 : 0;
        }
    }
    return census;
}

// Whether more carriers would gain nothing: the machine's processors are busy, and at the present
// rate all that runs and waits ends soon.
bool Scheduler::isEnough(Time::time_point now)
{
    using Seconds = std::chrono::duration<double>;
    const Seconds since = now - rateSince;
    if (since >= longestPeriod) {
        const std::uint64_t before = std::exchange(endedBefore, ended());
        rate = static_cast<double>(endedBefore - before) / since.count();
        rateSince = now;
    }
    const double soon = rate * Seconds(shortWait).count();
    const auto present = static_cast<double>(waiting()) + busyCarriers();
    return rate > 0 && present <= soon && saturation.look();
}

// Nothing waits: perhaps fewer carriers would do.
void Scheduler::relax(Time::time_point now)
{
    if (options.isAdaptive && isEnough(now)) {
        concurrency.add({busyCarriers(), 1, 1, 0, true});
        most = concurrency.target();
    }
}

void Scheduler::resize(KTThreadPool& pool, const KTThreadPoolStatus& status, Time::time_point now)
{
    period = std::min<Time::duration>(period * 2, longestPeriod);
    if (options.isAdaptive) {
        const int mostBefore = most;
        concurrency.add(count(isEnough(now)));
        most = concurrency.target();
        if (most > mostBefore) {
            period = shortestPeriod;  // blocked tasks: perhaps these are not the last
        }
        // Without a worker for it, a carrier would only wait in another queue.
        const int atCoreTasks = std::max(status.busyThreads - busyCarriers(), 0);
        grow(pool, status.threads, most + atCoreTasks, now);
        int workers = pool.status().threads - atCoreTasks - carriers;
        for (std::size_t work = waiting(); work > 0 && workers > 0 && mayStart(); --work) {
            --workers;
            start();
        }
    }
    call();
}

// Starts workers until there are `wanted`, if there may be as many.
void Scheduler::grow(KTThreadPool& pool, int present, int wanted, Time::time_point now)
{
    const int missing = std::min(wanted, options.maxThreads) - present;
    if (missing <= 0 || now < growthPausedUntil) {
        return;
    }
    try {
        if (pool.adjustThread(missing)) {
            return;
        }
    } catch (const std::exception&) {
        // Of the memory or the console: as if no thread could be made.
    }
    growthPausedUntil = now + pauseAfterFailure;
}

// Busy workers are needed, and so are new ones: somebody wanted them just now.
void Scheduler::noteNeed(const KTThreadPoolStatus& status, Time::time_point now)
{
    const int busy = std::max(status.busyThreads, carriers.load());
    mostNeeded.add(status.threads > threadsSeen ? status.threads : busy, now);
    threadsSeen = status.threads;
}

// Has workers retire that weren't needed for a while; when to look next.
Time::time_point Scheduler::shrink(KTThreadPool& pool, const KTThreadPoolStatus& status,
                                   Time::time_point now)
{
    const int least = std::max(options.threads, coreFloor);
    if (!options.shrinks || status.threads <= least) {
        return never;
    }
    const int surplus = status.threads - std::max(least, mostNeeded.most(now));
    if (surplus > 0) {
        concurrency.reset();
        most = concurrency.target();
        pool.adjustThread(-surplus);
        // A worker that sleeps retires when it is woken, and wakes the next one.
        if (mayStart()) {
            start();
        }
    }
    return now + mostNeeded.quarter();
}

}  // namespace detail
}  // namespace KT
