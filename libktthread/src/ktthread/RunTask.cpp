// What a worker does with one task.
#include <ktthread/KTThread.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include <pthread.h>

#include <kterror/KTError.h>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTMonitor.h>
#include <ktthread/KTThreadPool.h>

#include "CancelState.h"
#include "IgnoreBadAlloc.h"
#include "Output.h"
#include "Probes.h"
#include "SharedPointers.h"
#include "TaskState.h"

namespace KT {

namespace {

/// Names the thread after its task: on the stack, unless the name is unusually long. `suffix` ends
/// with its null. Throws std::bad_alloc for a long name, and what the task's getTaskName throws.
template <std::size_t length>
void nameThreadAfter(const KTTask& task, const char (&suffix)[length])
{
    static const char prefix[] = "KTTask: ";
    const std::string& name = task.getTaskName();
    char text[128];
    if (sizeof prefix - 1 + name.size() + length > sizeof text) {
        KTThread::setThreadName((prefix + name + suffix).c_str());
        return;
    }
    char* end = std::copy_n(prefix, sizeof prefix - 1, text);
    end = std::copy(name.begin(), name.end(), end);
    std::copy_n(suffix, length, end);
    KTThread::setThreadName(text);
}

}  // namespace

void KTThread::runTask()
{
    boost::shared_ptr<KTMonitor> monitor;
    const auto withPool = [this](const auto& action) {
        if (const boost::shared_ptr<KTThreadPool> livePool = pool.lock()) {
            action(*livePool);
        }
    };
    execute(withPool, monitor);
}

void KTThread::runCounted(KTTask& task, KTThreadPool& served, boost::shared_ptr<KTMonitor>& monitor)
{
    if (!task.isCarrier) {
        KT_PROBE(task_started, &served, KT_NAME_OF(task), KT_AT(index), KT_AT(served.queueLength));
    }
    served.beginTask();
    // A stop request that came after the loop read `killed` found no task to ask to end. Sometimes
    // both ask; a task that runs until it is asked needs one of them to.
    if (killed) {
        task.exitTask();
    }
    // A cancellation or an exception in here skips endTask: the worker then stays counted as busy.
    execute([&served](const auto& action) { action(served); }, monitor);
    served.endTask();
}

template <typename WithPool>
void KTThread::execute(const WithPool& withPool, boost::shared_ptr<KTMonitor>& monitor)
{
    {
        const KTCriticalSectionRead hold(core::nonOwning(taskLock));
        if (!ownTask()) {
            return;
        }
        KTTask& task = *ownTask();
        task.state = core::stateRunning;
        runBody(task, withPool);
        task.state = core::stateFinished;
        withPool([&](KTThreadPool& owner) {
            if (!task.isCarrier) {
                KT_PROBE(task_ended, &owner, KT_NAME_OF(task), KT_AT(index),
                         KT_AT(owner.queueLength));
            }
            owner.report(core::nonOwning(&task), monitor);
        });
    }
    // Released after the hold: this may be the last reference, and a task's destructor may do
    // anything.
    boost::shared_ptr<KTTask> done;
    const KTCriticalSectionWrite hold(core::nonOwning(taskLock));
    done.swap(ownTask());
}

template <typename WithPool>
void KTThread::runBody(KTTask& task, const WithPool& withPool)
{
    try {
        nameThreadAfter(task, " [running]");
        {
            const core::CancelState enabled(PTHREAD_CANCEL_ENABLE);
            task.run();
        }
        nameThreadAfter(task, " [finished]");
    } catch (const KTError& error) {
        // A task reports failures by KTError only. Any other exception is a mistake, and ends the
        // process where it was thrown, with the stack still there to look at.
        withPool([&](const KTThreadPool& owner) {
            KT_PROBE(task_failed, &owner, KT_NAME_OF(task), KT_AT(index), KT_AT(owner.queueLength));
        });
        core::ignoreBadAlloc([&] {
            std::string label;
            withPool([&label](const KTThreadPool& owner) { label = owner.label(); });
            core::logRecord("KTThread", "runTask", label + "Error caught: " + error.toString());
        });
    }
}

}  // namespace KT
