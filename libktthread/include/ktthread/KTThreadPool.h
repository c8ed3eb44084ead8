/// \file
/// The self-sizing pool of worker threads.
#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

#include <boost/container/deque.hpp>
#include <boost/container/options.hpp>
#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ro/os.h>

#include <ktthread/KTCondition.h>
#include <ktthread/KTMonitor.h>
#include <ktthread/KTMutex.h>
#include <ktthread/KTTask.h>
#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPoolStatus.h>
#include <ktthread/KTTurnstile.h>
#include <ktthread/export.h>

namespace KT {

/// A pool of workers that run tasks in arrival order.
/// \code
/// const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(2, 8, 10, 0, 0));
/// pool->init(2, 8, 10, 0, 0);
/// pool->enqueue(boost::make_shared<Greet>());
/// // ... wait for what the tasks do ...
/// pool->close();
/// \endcode
/// Growth: after each enqueue and after every `monitorParam1` ended tasks the monitor looks; with
/// at most one worker idle the pool gets one more, up to `maxThreads` (and to 190 busy ones).
/// Workers never end by idling: a pool of more than 18 workers shrinks when adjustThread is told
/// to, down to as few as the count given says. Queueing: first in, first out, without a limit.
/// Refusal: enqueue returns false before init and after shutdown. Shutdown drops the tasks not yet
/// taken.
///
/// | state    | from        | enqueue | workers                                      |
/// |----------|-------------|---------|----------------------------------------------|
/// | made     | constructor | refuses | none; the count already says what is planned |
/// | running  | init        | queues  | nbThreads of them                            |
/// | stopped  | shutdown    | refuses | ending, or ended (see join)                  |
/// | closed   | close       | refuses | ended; the pool can be let go of             |
///
/// A wake-up may be lost: a task that arrives while a worker is on its way to sleep may stay queued
/// until the next wake-up of any worker. A client that waits for a task calls wake() now and then.
///
/// Every operation but the constructor and init may be called from any thread; the pool has a lock
/// for each group of fields below and never holds two of them at once. Shut the pool down, and
/// close it: pool, monitor and workers hold each other, and letting go of the pool alone frees
/// nothing.
///
/// fork: a child has none of its parent's workers, and finds their locks as they were. With a pool
/// that its parent has not closed it may do nothing but call join and close, which return false at
/// once; it ends with _exit or goes on to exec. Where all pools were closed before the fork, or
/// none made, the child may make its own.
///
/// Standard output: a monitor that sees 190 busy workers, xIncreaseThread on a full pool, a
/// retirement and the destructor write a line to std::cout. Where a client has made that throw, the
/// exception leaves the operation (but the destructor), or ends the process on a worker's thread:
/// leave `std::cout.exceptions()` as it is.
///
/// "Blocks" is said of waits that last; all take locks that are held for a few instructions, and
/// growth makes threads. It can't be copied.
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTThreadPool : public boost::enable_shared_from_this<KTThreadPool> {
public:
    /// Records the sizes and makes the locks; starts nothing. Nothing is checked here. Throws
    /// std::length_error for a negative `maxThreads`, std::bad_alloc.
    ///
    /// \param nbThreads      workers to start with
    /// \param maxThreads     workers that it may grow to
    /// \param monitorParam1  the monitor's period, in ended tasks; 0 or less: none
    /// \param monitorParam2  kept, and used by nothing
    /// \param monitorParam3  kept, and used by nothing
    KTThreadPool(int nbThreads, int maxThreads, int monitorParam1, int monitorParam2,
                 int monitorParam3);

    /// A pool that was not shut down (one without `init`, too) says so on standard output and does
    /// it, gently. Blocks until the threads of workers that it still has are through.
    ~KTThreadPool();

    KTThreadPool(const KTThreadPool&) = delete;
    KTThreadPool& operator=(const KTThreadPool&) = delete;

    /// Makes the monitor and launches the first `nbThreads` workers. To be called once, on a pool
    /// that a shared pointer owns, with the constructor's arguments and before other threads use
    /// the pool; all but the first are ignored. Throws KTError if `nbThreads` is more than
    /// `maxThreads` (nothing is made then) or if a thread can't be created (the pool is to be
    /// closed then), boost::bad_weak_ptr without an owner, std::bad_alloc.
    ///
    /// \param nbThreads      workers to start now
    /// \param maxThreads     ignored
    /// \param monitorParam1  ignored
    /// \param monitorParam2  ignored
    /// \param monitorParam3  ignored
    void init(int nbThreads, int maxThreads, int monitorParam1, int monitorParam2,
              int monitorParam3);

    /// Another owner of the pool. Throws boost::bad_weak_ptr while no shared pointer owns it.
    ///
    /// \return  never empty
    boost::shared_ptr<KTThreadPool> getThis() { return shared_from_this(); }

    /// Queues `task` and wakes a worker. Doesn't wait for the task. Throws std::bad_alloc, and
    /// nothing is queued then. A pool that has no memory to grow goes on with the workers that it
    /// has.
    ///
    /// \param task  shared until it has run; in an empty pointer's place, a worker finds nothing
    /// \return      false, and nothing queued, if the pool doesn't run; false for an empty pointer,
    ///              which is queued all the same: look at the pointer first
    bool enqueue(boost::shared_ptr<KTTask> task);

    /// Queues all of `batch`, in its order and with nothing in between, for the price of one: one
    /// hold of the queue, one look of the monitor, one wake-up, which the workers hand on to each
    /// other. Doesn't wait for them. Throws std::bad_alloc, and nothing is queued then.
    ///
    /// \param batch  shared until they have run
    /// \return       false, and nothing queued, if the pool doesn't run; false if a pointer is
    ///               empty, and all are queued all the same
    bool enqueue(std::vector<boost::shared_ptr<KTTask> > batch);

    /// Removes and returns the oldest task, and wakes the next worker. Throws nothing. The workers
    /// call it: who else does has a task that nobody will run.
    ///
    /// \return  empty if there is none
    boost::shared_ptr<KTTask> getTask();

    /// Reports an ended task to the monitor, if there is one. Throws what KTMonitor::assimilate
    /// throws. The workers call it.
    ///
    /// \param task  the one that has ended; empty counts as nothing
    void taskEnded(boost::shared_ptr<KTTask> task);

    /// A positive `delta` starts that many workers, and cancels retirements still to come. A
    /// negative one, in a pool of more than 18 workers, lets that many retire, in place of any
    /// earlier request, but never the last one; in a smaller pool it does nothing, and says true
    /// (`status` tells what came of it). Doesn't wait for a retirement: workers do so between
    /// tasks. Throws std::bad_alloc, boost::bad_weak_ptr.
    ///
    /// \param delta  workers more or, if negative, less
    /// \return       false if not all could be started, or are to retire; for 0; and in a pool
    ///               without workers
    bool adjustThread(int delta);

    /// Starts up to 5 workers more, and cancels retirements still to come. A pool that was shut
    /// down is not guarded: it runs again, and is to be shut down again; adjustThread refuses that.
    /// Throws std::bad_alloc, boost::bad_weak_ptr.
    ///
    /// \return  false only in a pool that is full; true even if threads couldn't be created
    bool xIncreaseThread();

    /// Whether `thread` must end now; it is out of the pool then. The workers call it.
    ///
    /// \param thread  a worker that is between tasks; its slot in the pool is what its index says
    /// \return        true as many times as `adjustThread` has asked for
    bool apoptosis(boost::shared_ptr<KTThread> thread);

    /// Sets the idle time of every live worker to zero. Throws nothing.
    void resetSumThreadIdle();

    /// The sum of the live workers' idle times. No worker ever adds to its own, so it is zero:
    /// `status` tells how many are idle. Throws nothing.
    ///
    /// \return  zero
    ro::os::timeval computeSumThreadIdle();

    /// Drops the tasks not yet taken, asks the running ones to end (KTTask::exitTask) and tells the
    /// workers to stop; waits for nothing. `force` also cancels their threads: a task is then cut
    /// off at its next cancellation point and never gets its final state. With libc++ that ends the
    /// process if the task is in a wait or a stream of the C++ library's, or in a catch (...) block
    /// around its code: see docs/compilers.md. Not to be called by one of the pool's own workers. A
    /// second call does no harm. Throws std::bad_alloc before it has done anything. The tasks
    /// dropped are destroyed on the calling thread.
    ///
    /// \param force  whether to cancel: for tasks that can't be asked
    void shutdown(bool force);

    /// If tasks are queued, wakes one worker. Throws nothing.
    ///
    /// \return  whether any were
    bool wake();

    /// Blocks until every thread that the pool ever started has ended. A cancellation point. Throws
    /// std::bad_alloc; call it again then.
    ///
    /// \param timeoutMs  milliseconds that it may take; no limit if negative
    /// \return           false when the time is over, and at once on a pool that runs, from one of
    ///                   its own workers, and in a child of the process that started them (fork)
    bool join(int timeoutMs = -1);

    /// Shuts down, joins and lets go of the monitor: the last reference to the pool then destroys
    /// it. Blocks, and is a cancellation point, as `join`. Throws std::bad_alloc; call it again
    /// then.
    ///
    /// \param force      as for `shutdown`; it also cuts off the workers that a gentle shutdown
    ///                   before is still waiting for
    /// \param timeoutMs  milliseconds that it may take; no limit if negative
    /// \return           false when the join said so; call it again then, with more time, or by
    ///                   force
    bool close(bool force = false, int timeoutMs = -1);

    /// For those who mustn't wait for themselves: on one of the pool's own workers `join` and
    /// `close` say false at once. Doesn't block; any thread may call it. Throws nothing.
    ///
    /// \return  whether the caller runs on one of the pool's own workers
    bool runningInThisThread() const;

    /// What the pool does at the moment. Throws nothing.
    ///
    /// \return  its figures
    KTThreadPoolStatus status() const;

private:
    friend class KTMonitor;
    friend class KTThread;

    typedef std::vector<boost::shared_ptr<KTThread> > Workers;
    // Room is made for many tasks at a time: the queue's lock is held meanwhile.
    typedef boost::container::deque<
        boost::shared_ptr<KTTask>, void,
        boost::container::deque_options<boost::container::block_bytes<4096u> >::type>
        Tasks;

    std::size_t slotsInUse() const;
    template <typename Push>
    bool enqueueBy(const Push& push);
    void signalOne();
    void wakeAll();
    /// The workers that new ones took the slots of are for the caller to let go of, with no lock
    /// held: the destructor of a worker waits for its thread, and takes its lock.
    bool resize(int delta, Workers& displaced);
    bool allowRetirementLocked(int delta);
    bool growLocked(int count, Workers& displaced);
    bool startWorkerLocked(Workers& displaced);
    void countGrownLocked();
    void announceLimit() const;
    bool hasSlotLocked(const boost::shared_ptr<KTThread>& thread) const;
    void dropQueued();
    void setAsideLocked(bool force, Workers& setAside, Workers& untold);
    void tellToStop(const Workers& workers);
    void tellUntold();
    void stop(bool force);
    bool releaseEnded();

    /// taskEnded for a worker, which keeps its share in the monitor from task to task.
    void report(boost::shared_ptr<KTTask> task, boost::shared_ptr<KTMonitor>& known);
    void setMonitor(boost::shared_ptr<KTMonitor> watcher);

    // What workers and clients write all the time is kept apart from what they only read.
    const int monitorParam1;
    const int monitorParam2;
    const int monitorParam3;
    // poolMutex: threads, retiredThreads, nbThreads, nbThreadsToRemove. enqueue and the monitor
    // read nbThreads without it, shutdown the slots of threads.
    Workers threads;
    Workers retiredThreads;
    KTCacheLineGap gapBeforeTasks __attribute__((unused));
    // queueMutex
    Tasks tasks;
    std::size_t queueLength;  ///< of tasks, for those who look from outside: a deque computes it
    KTTurnstile queueTurnstile;
    KTCacheLineGap gapAfterTasks __attribute__((unused));
    std::atomic<int> nbThreads;
    const int maxThreads;
    /// Set by init, dropped by close: both under queueMutex, and atomically for taskEnded.
    boost::shared_ptr<KTMonitor> monitor;
    int nbThreadsToRemove;
    boost::shared_ptr<KTMutex> poolMutex;
    boost::shared_ptr<KTMutexRW> busyLock;
    boost::shared_ptr<KTMutex> queueMutex;
    boost::shared_ptr<KTMutex> wakeMutex;
    boost::shared_ptr<KTCondition> wakeCondition;
    KTCacheLineGap gapBeforeBusy __attribute__((unused));
    // busyLock
    int nbBusyThreads;
    KTTurnstile busyTurnstile;
    KTCacheLineGap gapAfterBusy __attribute__((unused));
    KTTurnstile poolTurnstile;
    KTCacheLineGap gapBeforeWake __attribute__((unused));
    KTTurnstile wakeTurnstile;
    KTCacheLineGap gapAfterWake __attribute__((unused));
    boost::intrusive_ptr<KTStartedThreads> startedThreads;
    /// What `monitor` points to.
    std::atomic<const KTMonitor*> monitorInUse;
};

}  // namespace KT
