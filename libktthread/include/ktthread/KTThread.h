/// \file
/// One worker of a pool.
#pragma once

#include <atomic>
#include <mutex>

#include <pthread.h>

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <ro/os.h>

#include <ktthread/KTCondition.h>
#include <ktthread/KTMutex.h>
#include <ktthread/KTTask.h>
#include <ktthread/annotations.h>
#include <ktthread/export.h>

namespace KT {

class KTLiveThreadCount;
class KTMonitor;
class KTThreadPool;

/// The start routine of every worker thread. The platform calls it.
///
/// \param arg  the KTThread that launched it, which a shared pointer owns
/// \return     null, after one log record, if none owns it; otherwise it ends by pthread_exit
/// \ingroup ktthread_own
KTTHREAD_EXPORT void* _KT_Thread_Pool_Atom(void* arg);

/// A worker: an object that owns one POSIX thread. The pool makes, launches, stops and releases its
/// workers; a client sees them only through setStackSize, and in the names of its threads:
///
/// | name                  | the worker                                            |
/// |-----------------------|-------------------------------------------------------|
/// | "KTThread [new]"      | has started                                           |
/// | "KTThread [sleeping]" | waits for a wake-up                                   |
/// | "KTThread [idle]"     | was woken and looks for work                          |
/// | "KTTask: N [running]" | runs the task named N                                 |
/// | "KTTask: N [finished]"| has run it; the name stays until the next one is set  |
///
/// The kernel keeps 15 characters of them. The object keeps a weak pointer to its pool; its thread
/// owns the object and the pool for as long as its loop runs. It can't be copied.
/// \code
/// KT::KTThread::setStackSize(256 * 1024);  // before the first pool
/// \endcode
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTThread : public boost::enable_shared_from_this<KTThread> {
public:
    /// A worker for slot `index` of `pool`, not yet launched. It keeps a weak reference to the pool
    /// and shares the pool's wake mutex and condition. Throws std::bad_alloc.
    ///
    /// \param pool           the one that its tasks come from
    /// \param index          from 0
    /// \param wakeMutex      not empty
    /// \param wakeCondition  not empty; what the worker sleeps on
    KTThread(boost::shared_ptr<KTThreadPool> pool, int index, boost::shared_ptr<KTMutex> wakeMutex,
             boost::shared_ptr<KTCondition> wakeCondition);

    /// Joins the thread; on the worker's own thread, detaches it instead. A worker without a thread
    /// has nothing to join. Blocks for the join; not a cancellation point.
    ~KTThread();

    KTThread(const KTThread&) = delete;
    KTThread& operator=(const KTThread&) = delete;

    /// Bytes of stack of every worker launched from now on, in the whole process, but for those of
    /// pools that have a size of their own (KTThreadPool::setStackSize). A size that the
    /// platform refuses (a negative one, or too small a one) gives the platform's own default. Call
    /// it before pools are made: it is not ordered with a launch. Throws nothing.
    ///
    /// \param size  bytes; 0: the default, 655360
    static void setStackSize(int size);

    /// Names the calling thread. Any thread may do so; doesn't block and throws nothing.
    ///
    /// \param name  the kernel keeps 15 characters
    static void setThreadName(const char* name);

    /// Starts the thread. Throws KTError, after one log record, if the platform can't make one: the
    /// worker then stays as it was. To be called once.
    ///
    /// \return  0
    int launch();

    /// Tells the worker to stop: it ends after its current task, whose exitTask() is called here.
    /// Throws what exitTask() throws. Neither wakes the worker nor waits for it. May be called from
    /// any thread.
    void killThread();

    /// Another owner of the worker. Throws boost::bad_weak_ptr while no shared pointer owns it.
    ///
    /// \return  never empty
    boost::shared_ptr<KTThread> getThis() { return shared_from_this(); }

    /// Takes the next task of the pool. The worker's own thread calls it.
    ///
    /// \return  false if there is none, or if the pool is gone
    bool getTask();

    /// Asks the pool whether this worker must retire. The worker's own thread calls it.
    ///
    /// \return  what KTThreadPool::apoptosis says
    bool apoptosis();

    /// Runs the task taken, reports its end to the pool and releases it. The worker's own thread
    /// calls it; without a task it does nothing. A KTError that the task throws is logged; any
    /// other exception, of the task or of the report (std::bad_alloc, if the pool is to grow), is
    /// passed on, and the worker keeps the task.
    void runTask();

private:
    friend class KTCarrier;     // index
    friend class KTThreadPool;  // index, idleTime, threadHandle, launched and killed
    friend void* _KT_Thread_Pool_Atom(void* arg);

    void serve(KTThreadPool& served);
    void sleepUntilKilled();
    void sleepOnce();
    KTTask* takeTask(KTThreadPool& source);
    KTTask* takeTaskLocked(KTThreadPool& source);
    void runCounted(KTTask& task, KTThreadPool& served, boost::shared_ptr<KTMonitor>& monitor);
    template <typename WithPool>
    void execute(const WithPool& withPool, boost::shared_ptr<KTMonitor>& monitor);
    template <typename WithPool>
    void runBody(KTTask& task, const WithPool& withPool);
    /// For the worker's own thread. It reads without currentTaskMutex, since no other thread
    /// writes; it clears with taskLock held exclusively, which keeps the readers out.
    boost::shared_ptr<KTTask>& ownTask() KT_NOT_ANALYSED { return currentTask; }

    boost::shared_ptr<KTMutex> wakeMutex;
    boost::shared_ptr<KTCondition> wakeCondition;
    /// Held shared by all users of currentTask, exclusively only while runTask clears it.
    boost::shared_ptr<KTMutexRW> taskLock;
    ro::os::timeval launchTime;
    /// Never added to, so the pool's sum is always zero. Kept for the operations that read it.
    ro::os::timeval idleTime;
    int index;
    pthread_t threadHandle;
    boost::weak_ptr<KTThreadPool> pool;
    std::atomic<bool> killed;
    /// Under taskLock. getTask and killThread both hold that shared, hence a second lock for the
    /// pointer itself.
    boost::shared_ptr<KTTask> currentTask KT_GUARDED_BY(currentTaskMutex);
    std::mutex currentTaskMutex;
    /// Whether threadHandle names a thread. Written by launch before another thread may read it.
    bool launched;
    /// From launch until the thread begins: whether the count of live threads includes it.
    std::atomic<bool> isCounted;
    /// The pool's; it may outlive pool and worker. Empty without a pool.
    boost::intrusive_ptr<KTLiveThreadCount> liveThreads;
    char gapAfter[64] __attribute__((unused));  // keeps other objects out of its cache lines
};

}  // namespace KT
