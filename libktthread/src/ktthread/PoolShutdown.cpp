// Stopping a pool without waiting for it. The destructor stops a pool that wasn't stopped before.
#include <ktthread/KTThreadPool.h>

#include <cstddef>
#include <exception>

#include <pthread.h>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTThread.h>

#include "LiveThreadCount.h"
#include "Output.h"
#include "PoolSettings.h"
#include "Probes.h"
#include "SharedPointers.h"

namespace KT {

namespace {

const char forgottenMessage[] =
    "KTThreadPool::~KTThreadPool : trying to delete a Thread Pool without shutting it down. "
    "Shutting down the Thread Pool";

}  // namespace

void KTThreadPool::shutdown(bool force)
{
    // All that may throw comes before the pool is changed.
    Workers detached;
    Workers unnotified;  // a growth may add workers after the others were told to stop
    detached.reserve(threads.size());
    unnotified.reserve(threads.size());
    const int byForce = force ? 1 : 0;
    KT_POOL_PROBE(pool_shut_down, this, KT_AT(queueLength), KT_AT(nbThreads), KT_AT(byForce));
    dropQueued();
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        if (const boost::shared_ptr<KTThread> worker = core::loadShared(threads[slot])) {
            worker->killThread();
        }
    }
    wakeAll();
    {
        const KTCriticalSection hold(core::nonOwning(poolMutex));
        detachWorkersLocked(force, detached, unnotified);
        nbThreads = 0;
    }
    stopWorkers(unnotified);
}

void KTThreadPool::dropQueued()
{
    KTTaskDeque discarded;
    {
        const KTCriticalSection hold(core::nonOwning(queueMutex));
        discarded.swap(tasks);
        queueLength = 0;
    }
    // One by one, since a deque's own order of destruction is not front to back; and without a
    // lock, since a task's destructor may use the pool.
    while (!discarded.empty()) {
        discarded.pop_front();
    }
    if (KTPoolExtension* const extended = extension()) {
        extended->dropQueued();
    }
}

// Workers are marked as killed before poolMutex is released: none of them retires any more.
void KTThreadPool::detachWorkersLocked(bool force, Workers& detached, Workers& unnotified)
{
    for (std::size_t slot = 0; slot < slotsInUse(); ++slot) {
        const boost::shared_ptr<KTThread> worker =
            core::exchangeShared(threads[slot], boost::shared_ptr<KTThread>());
        if (!worker) {
            continue;
        }
        if (!force) {
            retiredThreads.push_back(worker);
        } else if (worker->launched) {
            pthread_cancel(worker->threadHandle);
        }
        if (!worker->killed.exchange(true)) {
            unnotified.push_back(worker);
        }
        detached.push_back(worker);
    }
}

void KTThreadPool::stopWorkers(const Workers& workers)
{
    for (const boost::shared_ptr<KTThread>& worker : workers) {
        worker->killThread();
    }
    if (!workers.empty()) {
        wakeAll();
    }
}

KTThreadPool::~KTThreadPool()
{
    if (nbThreads == 0) {
        return;
    }
    try {
        print(forgottenMessage);
        record(core::warning, "~KTThreadPool", forgottenMessage);
        shutdown(false);
    } catch (const std::exception&) {
        // The console or the memory failed. No worker is in its loop any more, since each of those
        // owns the pool: the members' destructors do the rest.
    }
}

}  // namespace KT
