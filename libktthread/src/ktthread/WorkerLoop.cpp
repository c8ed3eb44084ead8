// A worker's thread, from its first instruction to its end.
#include <ktthread/KTThread.h>

#include <mutex>

#include <pthread.h>

#include <boost/exception/exception.hpp>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTThreadPool.h>

#include "CancelState.h"
#include "LiveThreadCount.h"
#include "Output.h"
#include "Probes.h"
#include "SharedPointers.h"
#include "WorkerMap.h"

namespace KT {

void* _KT_Thread_Pool_Atom(void* arg)
{
    KTThread::setThreadName("KTThread [new]");
    // Stays disabled to the end: the destructors of thread-local objects must not be cut off
    // either.
    int before = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    KTThread* const worker = static_cast<KTThread*>(arg);
    // Only a thread that `launch` has made is in the count.
    const core::LiveThread live(worker->isCounted.exchange(false)
                                    ? worker->liveThreads
                                    : boost::intrusive_ptr<KTLiveThreadCount>());
    boost::shared_ptr<KTThread> self;
    try {
        self = worker->getThis();
    } catch (const boost::exception&) {
        core::logRecord("KTThread", "_KT_Thread_Pool_Atom", "cannot create thread");
        pthread_setcancelstate(before, nullptr);
        return nullptr;
    }
    const boost::shared_ptr<KTThreadPool> pool = self->pool.lock();
    if (pool) {
        self->serve(*pool);
    } else {
        self->sleepUntilKilled();
    }
    // Unwinds this frame: pool is released first, then self, whose destructor may run here.
    pthread_exit(nullptr);
}

void KTThread::serve(KTThreadPool& served)
{
    /// Fires the probes of the worker's start and of its end, however that comes.
    struct Announced {
        Announced(const KTThread& started, const KTThreadPool& owner) : worker(started), pool(owner)
        {
            KT_PROBE(worker_started, &pool, KT_IS(0), KT_AT(worker.index), KT_AT(pool.queueLength));
        }
        ~Announced()
        {
            KT_PROBE(worker_ended, &pool, KT_IS(0), KT_AT(worker.index), KT_AT(pool.queueLength));
        }
        const KTThread& worker;
        const KTThreadPool& pool;
    };
    const Announced announced(*this, served);
    const core::InWorkerMap inMap(served.name());
    // Kept from task to task: with a new reference for each, all workers would write to one
    // reference count. The monitor owns the pool, as the caller does.
    boost::shared_ptr<KTMonitor> monitor;
    while (!killed && !served.apoptosis(core::nonOwning(this))) {
        if (KTTask* const task = takeTask(served)) {
            runCounted(*task, served, monitor);
        } else if (!killed) {
            monitor.reset();  // an init may replace it meanwhile
            sleepOnce();
        }
    }
}

// The loop of a worker whose pool was freed before its thread started.
void KTThread::sleepUntilKilled()
{
    while (!killed) {
        sleepOnce();
    }
}

// Waits once, and doesn't look at the queue again under the mutex: a signal that comes after the
// worker found the queue empty and before it waits is lost. That keeps the wake-up cheap;
// KTThreadPool::wake closes the gap for a client that waits.
void KTThread::sleepOnce()
{
    const KTCriticalSection hold(core::nonOwning(wakeMutex));
    // A stop request sets `killed` before it broadcasts under this mutex. From here on, either
    // `killed` is set already or its broadcast finds this worker waiting.
    if (killed) {
        return;
    }
    setThreadName("KTThread [sleeping]");
    {
        const core::CancelState enabled(PTHREAD_CANCEL_ENABLE);
        wakeCondition->wait(core::nonOwning(wakeMutex));
    }
    setThreadName("KTThread [idle]");
}

bool KTThread::getTask()
{
    // Taken before the pool is looked up, and held for as long as it is used.
    const KTCriticalSectionRead hold(core::nonOwning(taskLock));
    const boost::shared_ptr<KTThreadPool> livePool = pool.lock();
    return livePool && takeTaskLocked(*livePool) != nullptr;
}

KTTask* KTThread::takeTask(KTThreadPool& source)
{
    const KTCriticalSectionRead hold(core::nonOwning(taskLock));
    return takeTaskLocked(source);
}

KTTask* KTThread::takeTaskLocked(KTThreadPool& source)
{
    boost::shared_ptr<KTTask> task = source.getTask();
    KTTask* const taken = task.get();
    {
        const std::lock_guard<std::mutex> holdTask(currentTaskMutex);
        currentTask.swap(task);
    }
    if (taken != nullptr) {
        taken->setThread(getThis());
    }
    return taken;
}

bool KTThread::apoptosis()
{
    const boost::shared_ptr<KTThreadPool> livePool = pool.lock();
    return livePool && livePool->apoptosis(getThis());
}

}  // namespace KT
