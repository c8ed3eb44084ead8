// The way of a task through its pool: queued, taken, begun, ended, reported.
#include <ktthread/KTThreadPool.h>

#include <iterator>
#include <utility>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTMonitor.h>
#include <ktthread/KTThread.h>

#include "IgnoreBadAlloc.h"
#include "LiveThreadCount.h"
#include "Probes.h"
#include "SharedPointers.h"
#include "SpinGate.h"

namespace KT {

bool KTThreadPool::enqueue(boost::shared_ptr<KTTask> task)
{
    const KTTask* const queued = task.get();
    const bool isCarrier = queued != nullptr && queued->isCarrier;
    const auto push = [this, &task, queued] {
        tasks.push_back(std::move(task));
        countQueuedLocked(queued);
    };
    return enqueueBy(push, isCarrier) && queued != nullptr;
}

bool KTThreadPool::enqueueAll(std::vector<boost::shared_ptr<KTTask> > batch)
{
    bool areTasks = true;
    const auto push = [this, &batch, &areTasks] {
        // All or none: a deque makes room for all before it takes the first.
        auto queued = tasks.insert(tasks.end(), std::make_move_iterator(batch.begin()),
                                   std::make_move_iterator(batch.end()));
        for (; queued != tasks.end(); ++queued) {
            countQueuedLocked(queued->get());
            areTasks = areTasks && *queued;
        }
    };
    return enqueueBy(push, false) && areTasks;
}

// An empty pointer is counted too; the worker that takes it finds nothing.
void KTThreadPool::countQueuedLocked(const KTTask* queued)
{
    ++queueLength;
    if (queued != nullptr && !queued->isCarrier) {
        KT_PROBE(task_queued, this, KT_NAME_OF(*queued), KT_IS(-1), KT_AT(queueLength));
    }
}

template <typename Push>
bool KTThreadPool::enqueueBy(const Push& push, bool ofExtension)
{
    // Read without a lock: a shutdown that runs at the same time may leave the task in a queue that
    // no worker serves any more, as it may with a task that was queued just before it began.
    if (nbThreads < 1) {
        return false;
    }
    boost::shared_ptr<KTMonitor> watcher;
    {
        const core::SpinThenLock<KTCriticalSection> hold(queueGate.taken, queueMutex);
        // Under the lock: close drops the monitor before it drops what is queued, so that no task
        // stays in the queue of a closed pool.
        watcher = monitor;
        if (!watcher) {
            return false;
        }
        push();
    }
    // The task is queued already: an exception would mean that it was refused.
    core::ignoreBadAlloc([&watcher] { watcher->adjustPool(); });
    signalOne();
    if (!ofExtension) {
        if (KTPoolExtension* const extended = extension()) {
            extended->tasksQueued();
        }
    }
    return true;
}

boost::shared_ptr<KTTask> KTThreadPool::getTask()
{
    boost::shared_ptr<KTTask> task;
    {
        const core::SpinThenLock<KTCriticalSection> hold(queueGate.taken, queueMutex);
        if (tasks.empty()) {
            return task;
        }
        task = std::move(tasks.front());
        tasks.pop_front();
        --queueLength;
    }
    // Passes the wake-up on: a burst drains through a chain of them, even if signals were sent
    // while no worker waited.
    signalOne();
    return task;
}

void KTThreadPool::beginTask()
{
    const core::SpinThenLock<KTCriticalSectionWrite> hold(busyGate.taken, busyLock);
    ++nbBusyThreads;
}

void KTThreadPool::endTask()
{
    const core::SpinThenLock<KTCriticalSectionWrite> hold(busyGate.taken, busyLock);
    --nbBusyThreads;
}

void KTThreadPool::taskEnded(boost::shared_ptr<KTTask> task)
{
    boost::shared_ptr<KTMonitor> share;
    report(std::move(task), share);
}

void KTThreadPool::report(boost::shared_ptr<KTTask> task, boost::shared_ptr<KTMonitor>& share)
{
    // Comparing addresses is enough: while `share` keeps a monitor alive, no other can have its
    // address.
    if (share.get() != monitorInUse.load(std::memory_order_acquire)) {
        share = core::loadShared(monitor);
    }
    if (share) {
        share->assimilate(std::move(task));
    }
}

boost::shared_ptr<KTMonitor> KTThreadPool::exchangeMonitor(boost::shared_ptr<KTMonitor> successor)
{
    monitorInUse.store(successor.get(), std::memory_order_release);
    return core::exchangeShared(monitor, std::move(successor));
}

bool KTThreadPool::wake()
{
    {
        const core::SpinThenLock<KTCriticalSection> hold(queueGate.taken, queueMutex);
        if (tasks.empty()) {
            return false;
        }
    }
    signalOne();
    return true;
}

void KTThreadPool::signalOne()
{
    const core::SpinThenLock<KTCriticalSection> hold(wakeGate.taken, wakeMutex);
    wakeCondition->signal();
}

void KTThreadPool::wakeAll()
{
    const KTCriticalSection hold(core::nonOwning(wakeMutex));
    wakeCondition->broadcast();
}

}  // namespace KT
