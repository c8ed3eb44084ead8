// The pool as a whole: construction, configuration and figures.
#include <ktthread/KTThreadPool.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string>

#include <kterror/KTError.h>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTMonitor.h>
#include <ktthread/KTThread.h>

#include "LiveThreadCount.h"
#include "Output.h"
#include "PoolSettings.h"
#include "SharedPointers.h"

namespace KT {

KTThreadPool::KTThreadPool(int workers, int capacity, int param1, int param2, int param3)
    : extensionInUse(nullptr),
      monitorParam1(param1),
      monitorParam2(param2),
      monitorParam3(param3),
      settings(new Settings),
      poolGate(),
      queueLength(0),
      queueGate(),
      nbThreads(workers),
      maxThreads(capacity),
      monitorInUse(nullptr),
      nbThreadsToRemove(0),
      poolMutex(KTMutex::createKTMutex()),
      queueMutex(KTMutex::createKTMutex()),
      wakeMutex(KTMutex::createKTMutex()),
      wakeCondition(KTCondition::createKTCondition()),
      liveThreads(new KTLiveThreadCount),
      nbBusyThreads(0),
      busyGate(),
      wakeGate()
{
    busyLock = KTMutexRW::createKTMutexRW();
    threads.reserve(static_cast<std::size_t>(capacity));
    threads.resize(static_cast<std::size_t>(capacity));
    retiredThreads.reserve(threads.size());
}

void KTThreadPool::init(int workers, int, int, int, int)
{
    if (workers > maxThreads) {
        throw KTError("KTThreadPool", "init",
                      std::to_string(workers) + " workers asked for, but maxThreads is " +
                          std::to_string(maxThreads),
                      core::sourceFile, __LINE__);
    }
    // Without locks: no thread enqueues or reports before init has returned, also a second one.
    exchangeMonitor(boost::shared_ptr<KTMonitor>(
        new KTMonitor(monitorParam1, monitorParam2, monitorParam3, getThis())));
    if (workers < 1) {
        return;
    }
    // A retirement moves the last worker into the free slot. Those requested before init are put
    // off until the last worker has a slot; they begin with its launch, and each wakes the next.
    // Where a launch fails before that, the table has empty slots, and they are dropped.
    const int pendingRetirements = nbThreadsToRemove.exchange(0);
    for (int slot = 0; slot < workers; ++slot) {
        const boost::shared_ptr<KTThread> worker(
            new KTThread(getThis(), slot, wakeMutex, wakeCondition));
        core::exchangeShared(threads[static_cast<std::size_t>(slot)], worker);
        if (slot == workers - 1) {
            nbThreadsToRemove = pendingRetirements;
        }
        worker->launch();
    }
}

// The count may be any number that the constructor was given: below zero, or above the table's
// size.
std::size_t KTThreadPool::slotsInUse() const
{
    return std::min(static_cast<std::size_t>(std::max(nbThreads.load(), 0)), threads.size());
}

KTThreadPoolStatus KTThreadPool::status() const
{
    KTThreadPoolStatus now = KTThreadPoolStatus();
    now.maxThreads = maxThreads;
    std::memcpy(now.name, name(), sizeof now.name);
    {
        const KTCriticalSection hold(core::nonOwning(poolMutex));
        now.threads = nbThreads;
        now.threadsToRemove = nbThreadsToRemove;
    }
    {
        const KTCriticalSectionRead hold(core::nonOwning(busyLock));
        now.busyThreads = nbBusyThreads;
    }
    {
        const KTCriticalSection hold(core::nonOwning(queueMutex));
        now.queuedTasks =
            static_cast<int>(std::min(tasks.size(), static_cast<std::size_t>(INT_MAX)));
    }
    if (const KTPoolExtension* const extended = extension()) {
        extended->amend(now);
    }
    return now;
}

bool KTThreadPool::attach(const boost::intrusive_ptr<KTPoolExtension>& added)
{
    const KTCriticalSection hold(core::nonOwning(queueMutex));
    if (ownedExtension) {
        return false;
    }
    ownedExtension = added;
    extensionInUse.store(added.get(), std::memory_order_release);
    return true;
}

bool KTThreadPool::runningInThisThread() const
{
    return KTLiveThreadCount::ofThisThread() == liveThreads.get();
}

}  // namespace KT
