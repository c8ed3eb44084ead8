// The worker as an object: made, launched, told to stop, destroyed.
#include <ktthread/KTThread.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string>
#include <utility>

#include <pthread.h>
#include <sys/prctl.h>

#include <kterror/KTError.h>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTThreadPool.h>

#include "CancelState.h"
#include "LiveThreadCount.h"
#include "Output.h"
#include "PoolSettings.h"
#include "SharedPointers.h"

namespace KT {

namespace {

/// Bytes of stack. 0: not set; the next worker's constructor sets the default.
std::atomic<int> stackSize(0);
const int defaultStackSize = 655360;

/// The attributes of a worker's thread. What the platform refuses keeps its default.
class WorkerAttributes {
public:
    explicit WorkerAttributes(std::size_t stack)
    {
        pthread_attr_init(&attributes);
        // The C library refuses 0, and keeps its default, as it does with any other size that it
        // can't use.
        pthread_attr_setstacksize(&attributes, stack);
    }
    ~WorkerAttributes() { pthread_attr_destroy(&attributes); }
    WorkerAttributes(const WorkerAttributes&) = delete;
    WorkerAttributes& operator=(const WorkerAttributes&) = delete;

    void setScheduling()
    {
        pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
        pthread_attr_setschedpolicy(&attributes, SCHED_OTHER);
        sched_param priority{};
        priority.sched_priority = 0;
        pthread_attr_setschedparam(&attributes, &priority);
    }
    const pthread_attr_t* get() const { return &attributes; }

private:
    pthread_attr_t attributes;
};

}  // namespace

KTThread::KTThread(boost::shared_ptr<KTThreadPool> owner, int slot,
                   boost::shared_ptr<KTMutex> poolWakeMutex,
                   boost::shared_ptr<KTCondition> poolWakeCondition)
    : wakeMutex(std::move(poolWakeMutex)),
      wakeCondition(std::move(poolWakeCondition)),
      taskLock(KTMutexRW::createKTMutexRW()),
      launchTime(),
      idleTime(),
      index(slot),
      threadHandle(),
      pool(owner),
      killed(false),
      launched(false),
      isCounted(false),
      liveThreads(owner ? owner->liveThreads : nullptr)
{
    int unset = 0;
    stackSize.compare_exchange_strong(unset, defaultStackSize);
}

// Joins first and tells the worker to stop afterwards. The order is safe: its thread owns the
// worker for as long as it loops, so this destructor starts only after the loop has ended.
KTThread::~KTThread()
{
    // A task that releases the last reference can be cancelled, and the join is a cancellation
    // point.
    const core::CancelState disabled(PTHREAD_CANCEL_DISABLE);
    const KTCriticalSectionRead hold(core::nonOwning(taskLock));
    if (launched) {
        if (pthread_equal(threadHandle, pthread_self()) != 0) {
            // The worker's own reference was the last one. No other thread is left to join
            // this one; detached, it frees its stack when it ends.
            pthread_detach(threadHandle);
        } else {
            pthread_join(threadHandle, nullptr);
        }
    }
    killed = true;
    wakeCondition->signal();
    if (currentTask) {
        currentTask->setThread(boost::shared_ptr<KTThread>());
    }
}

void KTThread::setStackSize(int size)
{
    stackSize = size;
}

void KTThread::setThreadName(const char* name)
{
    prctl(PR_SET_NAME, name, 0, 0, 0);
}

int KTThread::launch()
{
    int rc = 0;
    const boost::shared_ptr<KTThreadPool> owner = pool.lock();
    {
        // The C library would take a negative size for a huge one and fail later.
        const std::size_t usual = static_cast<std::size_t>(std::max(stackSize.load(), 0));
        WorkerAttributes attributes(owner ? owner->settings->stackSizeOr(usual) : usual);
        launchTime = ro::os::gettimeofday();
        attributes.setScheduling();
        if (liveThreads) {
            liveThreads->add();
            isCounted = true;
        }
        rc = pthread_create(&threadHandle, attributes.get(), _KT_Thread_Pool_Atom, this);
    }
    if (rc == 0) {
        launched = true;
        return 0;
    }
    if (isCounted.exchange(false)) {
        liveThreads->remove();
    }
    const std::string description =
        "Aborting creating thread, pthread_create error. Too much thread asked";
    core::logRecord("core.thread", "launch", (owner ? owner->label() : "") + description);
    throw KTError("pthread", "pthread", description, core::sourceFile, 95);
}

void KTThread::killThread()
{
    // Released after the hold: it may be the last reference, and a task's destructor may do
    // anything.
    boost::shared_ptr<KTTask> task;
    const KTCriticalSectionRead hold(core::nonOwning(taskLock));
    killed = true;
    {
        const std::lock_guard<std::mutex> holdTask(currentTaskMutex);
        task = currentTask;
    }
    if (task) {
        task->exitTask();
    }
}

}  // namespace KT
