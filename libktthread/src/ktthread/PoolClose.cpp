// Waiting for a pool to end, and breaking the cycle of pool and monitor.
#include <ktthread/KTThreadPool.h>

#include <algorithm>
#include <climits>
#include <iterator>

#include <pthread.h>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTMonitor.h>
#include <ktthread/KTThread.h>

#include "LiveThreadCount.h"
#include "SharedPointers.h"
#include "TimeLimit.h"

namespace KT {

bool KTThreadPool::join(int timeoutMs)
{
    const int pollMs = 100;  // a worker may become unnotified while this waits
    const core::TimeLimit limit(timeoutMs);
    const boost::intrusive_ptr<KTLiveThreadCount> live = liveThreads;
    if (runningInThisThread() || live->inForkedChild()) {
        return false;
    }
    do {
        if (nbThreads > 0) {
            return false;
        }
        stopUnnotifiedWorkers();
        if (live->waitForNone(limit.left(pollMs))) {
            return true;
        }
    } while (limit.left(1) > 0);
    return false;
}

// Stops the workers of a stopped pool that its shutdown didn't reach: one that a concurrent
// retirement moved to a slot already visited, and those in slots that were never counted, since
// init was given a larger number of workers than the constructor.
void KTThreadPool::stopUnnotifiedWorkers()
{
    Workers unnotified;
    {
        const KTCriticalSection hold(core::nonOwning(poolMutex));
        if (nbThreads > 0) {
            return;  // growth has started the pool again: the workers in the table are to go on
        }
        const auto isUnnotified = [](const boost::shared_ptr<KTThread>& worker) {
            return worker && !worker->killed;
        };
        std::copy_if(threads.begin(), threads.end(), std::back_inserter(unnotified), isUnnotified);
    }
    stopWorkers(unnotified);
}

// By force it also cancels the workers that an earlier gentle shutdown has set aside.
void KTThreadPool::stop(bool force)
{
    shutdown(force);
    if (!force) {
        return;
    }
    const KTCriticalSection hold(core::nonOwning(poolMutex));
    for (const boost::shared_ptr<KTThread>& worker : retiredThreads) {
        if (worker->launched) {
            pthread_cancel(worker->threadHandle);
        }
    }
}

bool KTThreadPool::close(bool force, int timeoutMs)
{
    if (liveThreads->inForkedChild()) {
        return false;  // GCOVR_EXCL_LINE: in a forked child, which writes no counters
    }
    const core::TimeLimit limit(timeoutMs);
    // The monitor's reference may be the last one: the caller may hold no more than a raw pointer.
    const boost::shared_ptr<KTThreadPool> self = weak_from_this().lock();
    do {
        stop(force);
        while (!join(timeoutMs < 0 ? timeoutMs : limit.left(INT_MAX))) {
            // A concurrent growth has started the pool again.
            if (nbThreads < 1 || runningInThisThread()) {
                return false;
            }
            stop(force);
        }
        {
            boost::shared_ptr<KTMonitor> dropped;  // released after queueMutex
            const KTCriticalSection hold(core::nonOwning(queueMutex));
            dropped = exchangeMonitor(boost::shared_ptr<KTMonitor>());
        }
        dropQueued();  // tasks of an enqueue that was under way
    } while (!releaseEnded());
    return true;
}

// Releases the workers that have ended; returns false if growth has started others since. A worker
// that was cancelled still owns its task, and a task may own the pool.
bool KTThreadPool::releaseEnded()
{
    Workers ended;  // released after poolMutex
    const KTCriticalSection hold(core::nonOwning(poolMutex));
    if (nbThreads > 0 || !liveThreads->waitForNone(0)) {
        return false;
    }
    ended.swap(retiredThreads);
    ended.reserve(ended.size() + threads.size());
    for (boost::shared_ptr<KTThread>& slot : threads) {
        ended.push_back(core::exchangeShared(slot, boost::shared_ptr<KTThread>()));
    }
    return true;
}

}  // namespace KT
