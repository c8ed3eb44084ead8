// Growth, retirement and the sums of idle time.
#include <ktthread/KTThreadPool.h>

#include <algorithm>
#include <cstddef>

#include <kterror/KTError.h>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTThread.h>

#include "LiveThreadCount.h"
#include "Output.h"
#include "PoolLoad.h"
#include "Probes.h"
#include "SharedPointers.h"
#include "SpinGate.h"
#include "TimeStamps.h"

namespace KT {

namespace {

/// A pool shrinks only while it has more workers than this.
const int shrinkThreshold = 18;

const int growthAttempts = 30;

const char limitMessage[] = "Threadpool limit reached.";
const char retirementMessage[] = "KTThreadPool::decrease";

}  // namespace

// The workers are counted without a lock, the busy ones under theirs.
KTThreadPool::Load KTThreadPool::load()
{
    const int live = nbThreads;
    const core::SpinThenLock<KTCriticalSectionRead> hold(busyGate.taken, busyLock);
    return {live, nbBusyThreads};
}

bool KTThreadPool::adjustThread(int delta)
{
    Workers displaced;
    return resize(delta, displaced);
}

bool KTThreadPool::resize(int delta, Workers& displaced)
{
    const core::SpinThenLock<KTCriticalSection> hold(poolGate.taken, poolMutex);
    if (delta == 0 || nbThreads < 1) {
        return false;
    }
    if (delta > 0) {
        return growLocked(delta, displaced);
    }
    const int live = nbThreads;
    if (live <= shrinkThreshold) {
        return true;
    }
    // INT_MIN has no negative.
    const long long requested = -static_cast<long long>(delta);
    const bool possible = requested < live;
    nbThreadsToRemove = possible ? static_cast<int>(requested) : live - 1;
    return possible;
}

bool KTThreadPool::growLocked(int count, Workers& displaced)
{
    // Written only if it changes: every worker that looks for work reads it.
    if (nbThreadsToRemove != 0) {
        nbThreadsToRemove = 0;
    }
    for (int i = 0; i < count; ++i) {
        if (nbThreads >= maxThreads) {
            KT_POOL_PROBE(limit_reached, this, KT_AT(queueLength), KT_AT(nbThreads),
                          KT_AT(maxThreads));
            return false;
        }
        if (!startWorkerLocked(displaced)) {
            return false;
        }
    }
    return true;
}

// Starts a worker in the slot after the last live one; returns false if the platform can't make a
// thread. Only that failure is caught: enqueue, whose task is queued by then, must not throw
// because the pool couldn't grow.
bool KTThreadPool::startWorkerLocked(Workers& displaced)
{
    const int slot = nbThreads;
    // Room to set every worker aside: a shutdown must not run out of memory halfway.
    retiredThreads.reserve(
        std::max(retiredThreads.capacity(), retiredThreads.size() + threads.size()));
    displaced.reserve(displaced.size() + 2);  // also for the new one, if its launch fails
    const boost::shared_ptr<KTThread> worker(
        new KTThread(getThis(), slot, wakeMutex, wakeCondition));
    displaced.push_back(core::exchangeShared(threads[static_cast<std::size_t>(slot)], worker));
    try {
        worker->launch();
    } catch (const KTError&) {
        return false;
    }
    ++nbThreads;
    KT_POOL_PROBE(pool_grown, this, KT_AT(queueLength), KT_AT(nbThreads), KT_AT(maxThreads));
    return true;
}

bool KTThreadPool::xIncreaseThread()
{
    Workers displaced;
    if (increase(displaced)) {
        return true;
    }
    record(core::debug, "xIncreaseThread", limitMessage);
    return false;
}

bool KTThreadPool::increase(Workers& displaced)
{
    const KTCriticalSection hold(core::nonOwning(poolMutex));
    const int live = nbThreads;
    if (live == maxThreads) {
        KT_POOL_PROBE(limit_reached, this, KT_AT(queueLength), KT_AT(nbThreads), KT_AT(maxThreads));
        print(limitMessage);
        return false;
    }
    const long long target = std::min(static_cast<long long>(live) + core::growthBatch,
                                      static_cast<long long>(maxThreads));
    // A negative count, which only the constructor's argument can set, has no slot to start in.
    for (int i = 0; live >= 0 && i < growthAttempts && nbThreads < target; ++i) {
        if (startWorkerLocked(displaced)) {
            nbThreadsToRemove = 0;
        } else {
            boost::shared_ptr<KTThread>& slot = threads[slotsInUse()];
            displaced.push_back(core::exchangeShared(slot, boost::shared_ptr<KTThread>()));
        }
    }
    return true;
}

bool KTThreadPool::apoptosis(boost::shared_ptr<KTThread> thread)
{
    boost::shared_ptr<KTThread> replaced;  // released after poolMutex
    {
        const core::SpinThenLock<KTCriticalSection> hold(poolGate.taken, poolMutex);
        if (nbThreadsToRemove < 1 || nbThreads < 1 || !mayRetireLocked(thread)) {
            return false;
        }
        // The last worker moves into the free slot. Its old slot keeps a second reference to it
        // until the pool grows into it again; readers stop at the count.
        const boost::shared_ptr<KTThread> last = threads[slotsInUse() - 1];
        replaced = core::exchangeShared(threads[static_cast<std::size_t>(thread->index)], last);
        if (last) {
            last->index = thread->index;
        }
        KT_PROBE(worker_retired, this, KT_IS(0), KT_AT(thread->index), KT_AT(queueLength));
        print(retirementMessage);
        --nbThreads;
        --nbThreadsToRemove;
    }
    // Another sleeping worker may have to retire too.
    signalOne();
    record(core::debug, "apoptosis", retirementMessage);
    return true;
}

// False for a worker that a shutdown has taken out of the table: it may still ask after growth has
// started the pool again. The index of any other worker is trusted, even if a client made it.
bool KTThreadPool::mayRetireLocked(const boost::shared_ptr<KTThread>& thread) const
{
    return thread && !thread->killed && thread->index >= 0 &&
           static_cast<std::size_t>(thread->index) < threads.size();
}

void KTThreadPool::resetSumThreadIdle()
{
    const KTCriticalSection hold(core::nonOwning(poolMutex));
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        if (threads[slot]) {
            threads[slot]->idleTime = ro::os::timeval();
        }
    }
}

ro::os::timeval KTThreadPool::computeSumThreadIdle()
{
    ro::os::timeval sum = ro::os::timeval();
    const KTCriticalSection hold(core::nonOwning(poolMutex));
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        if (!threads[slot]) {
            continue;
        }
        sum.tv_sec = core::wrappingSum(sum.tv_sec, threads[slot]->idleTime.tv_sec);
        sum.tv_usec = core::wrappingSum(sum.tv_usec, threads[slot]->idleTime.tv_usec);
        if (sum.tv_usec > 999999) {
            sum.tv_sec = core::wrappingSum(sum.tv_sec, 1);
            sum.tv_usec -= 1000000;
        }
    }
    return sum;
}

}  // namespace KT
