/// \file
/// The self-sizing pool of worker threads.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktthread/KTMonitor.h>
#include <ktthread/KTPoolExtension.h>
#include <ktthread/KTTaskDeque.h>
#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPoolStatus.h>

namespace KT {

/// A pool of workers that run tasks in arrival order.
/// \code
/// const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(2, 8, 10, 0, 0));
/// pool->init(2, 8, 10, 0, 0);
/// pool->enqueue(boost::make_shared<Greet>());
/// // ... wait for what the tasks do ...
/// pool->close();  // the pool, its monitor and its workers hold each other until then
/// \endcode
/// Growth: the monitor looks at the pool after each enqueue and after every `monitorParam1` ended
/// tasks. If at most one worker is idle, it adds one, up to `maxThreads` (and to 190 busy ones).
/// Workers don't end because they are idle: a pool of more than 18 shrinks if adjustThread says so.
///
/// States: made (constructor), running (init), stopped (shutdown), closed (close), after which the
/// last reference frees the pool. enqueue refuses tasks in all but running.
///
/// Visibility: run() sees what its submitter wrote before enqueue; a thread for which join or close
/// returned true sees what the tasks wrote. A wake-up may be lost: a task queued while a worker
/// goes to sleep may wait for the next wake-up, so a client that waits for it calls wake()
/// repeatedly.
///
/// Any thread may call all but the constructor and init. "Blocks" means a wait that may last; short
/// locks and the creation of threads don't count. An operation throws what its comment says, and
/// what std::cout is set to throw. docs/core.md describes fork, standard output and memory.
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTThreadPool : public boost::enable_shared_from_this<KTThreadPool> {
public:
    /// Records the sizes and makes the locks; starts nothing and checks nothing. Throws
    /// std::length_error for a negative `maxThreads`, std::bad_alloc.
    /// \param nbThreads      workers to start with
    /// \param maxThreads     workers that it may grow to
    /// \param monitorParam1  the monitor's period, in ended tasks; 0 or less: none
    /// \param monitorParam2,monitorParam3  kept, and used by nothing
    KTThreadPool(int nbThreads, int maxThreads, int monitorParam1, int monitorParam2,
                 int monitorParam3);
    /// Shuts down gently, with a warning (see Messages), if nobody did before. Blocks until the
    /// threads of its remaining workers have ended.
    ~KTThreadPool();
    KTThreadPool(const KTThreadPool&) = delete;
    KTThreadPool& operator=(const KTThreadPool&) = delete;

    /// Makes the monitor and launches the first `nbThreads` workers. To be called once, on a pool
    /// that a shared pointer owns, before other threads use it. Throws KTError if `nbThreads` is
    /// more than `maxThreads` (nothing is made then) or if a thread can't be created (close the
    /// pool then), boost::bad_weak_ptr without an owner, std::bad_alloc.
    /// \param nbThreads  workers to start now
    /// \param maxThreads,monitorParam1,monitorParam2,monitorParam3  ignored
    void init(int nbThreads, int maxThreads, int monitorParam1, int monitorParam2,
              int monitorParam3);

    /// Another owner. Throws boost::bad_weak_ptr while the pool has none. \return  never empty
    boost::shared_ptr<KTThreadPool> getThis() { return shared_from_this(); }

    /// Queues `task` and wakes a worker. Throws std::bad_alloc, and then queues nothing; if only
    /// growth runs out of memory, the pool goes on with the workers it has.
    /// \param task  shared until it has run; a worker that takes an empty pointer finds no task
    /// \return      false, and nothing queued, if the pool doesn't run; false for an empty pointer,
    ///              which is queued all the same
    bool enqueue(boost::shared_ptr<KTTask> task);

    /// As enqueue for each of `batch`, in its order and with nothing in between, but locks the
    /// queue once, has the monitor look once and wakes one worker, which wakes the next.
    /// \param batch  shared until they have run
    /// \return       as for enqueue; false if any pointer is empty, and all are queued
    bool enqueueAll(std::vector<boost::shared_ptr<KTTask> > batch);

    /// For the workers. \return  the oldest task, removed from the queue; empty if there is none
    boost::shared_ptr<KTTask> getTask();
    /// For the workers: has the monitor, if there is one, assimilate `task`, and throws what that
    /// throws. \param task  the one that has ended; an empty pointer is ignored
    void taskEnded(boost::shared_ptr<KTTask> task);

    /// A positive `delta` starts that many workers and cancels pending retirements. A negative one,
    /// in a pool of more than 18 workers, has that many retire between tasks, but never the last
    /// one; it replaces an earlier request. In a smaller pool it does nothing. Throws
    /// std::bad_alloc, boost::bad_weak_ptr.
    /// \param delta  workers to add or, if negative, to retire
    /// \return       false if not all could be started or may retire, for 0, and without workers;
    ///               true in a pool too small to shrink
    bool adjustThread(int delta);

    /// Starts up to 5 more workers and cancels pending retirements. On a pool that was shut down
    /// too: it then runs again. Throws std::bad_alloc, boost::bad_weak_ptr.
    /// \return  false only if the pool is full; true even if threads couldn't be created
    bool xIncreaseThread();

    /// For the workers, between two tasks. \param thread  its index names its slot
    /// \return  whether it must end and has left the pool: true as often as adjustThread requested
    bool apoptosis(boost::shared_ptr<KTThread> thread);

    /// Sets the idle time of every live worker to zero.
    void resetSumThreadIdle();
    /// Sums them up. \return  zero, since no worker adds to its own
    ro::os::timeval computeSumThreadIdle();

    /// Drops the tasks not yet taken, asks the running ones to end (KTTask::exitTask) and tells the
    /// workers to stop; doesn't wait. Not to be called on the pool's own workers. Throws
    /// std::bad_alloc before it has done anything. Destroys dropped tasks on the calling thread.
    /// \param force  also cancels the workers' threads: a task is cut off at its next cancellation
    ///               point and never gets its final state (with libc++ see docs/compilers.md)
    void shutdown(bool force);

    /// Wakes one worker if tasks are queued. \return  whether any were
    bool wake();

    /// Blocks until every thread that the pool ever started has ended. A cancellation point. Throws
    /// std::bad_alloc; call it again then.
    /// \param timeoutMs  milliseconds that it may take; no limit if negative
    /// \return           false when the time is over; false at once if the pool runs, on its own
    ///                   workers, and in a forked child of the process that started them
    bool join(int timeoutMs = -1);

    /// Shuts down, joins, and drops the monitor, which breaks the cycle. Blocks and throws as join.
    /// \param force      as for shutdown; also cancels workers that a gentle one told to stop
    /// \param timeoutMs  as for join
    /// \return           what join said; if false, call it again with more time or by force
    bool close(bool force = false, int timeoutMs = -1);

    /// The pool's own workers can't wait for it. \return  whether the caller runs on one of them,
    /// or on a thread that stands in for one (KTPoolExtension::standInFor)
    bool runningInThisThread() const;
    /// What the pool does at the moment. \return  its figures
    KTThreadPoolStatus status() const;

    /// Bytes of stack of this pool's workers launched from now on, whatever KTThread::setStackSize
    /// says. Throws KTError for a size that the platform refuses.
    /// \param bytes  0: the platform's default, 8 MiB on most systems
    void setStackSize(std::size_t bytes);

    /// Names the pool, for status, log records, kttop, probes and gdb. To be called before init;
    /// throws KTError afterwards, and for a name that is too long or has other characters.
    /// \param chosen  up to 31 characters of printable ASCII; empty: no name
    void setName(const std::string& chosen);
    /// The pool's name. \return  null-terminated, as long as the pool; empty if it has none
    const char* name() const;

    /// Where the lines go that a pool writes by itself: a worker retires, a limit is reached, the
    /// pool is destroyed without having been shut down.
    enum class Messages {
        console,  ///< standard output
        log,      ///< the log, category "KTThread": the last one is a warning, the others are debug
        none      ///< nowhere
    };
    /// Sends this pool's lines there from now on. \param where  the console unless this is called
    void setMessages(Messages where);

    /// Gives the pool an extension, for as long as there is the pool. \param added  not empty
    /// \return  false, and nothing done, if it has one
    bool attach(const boost::intrusive_ptr<KTPoolExtension>& added);
    /// What `attach` has given the pool. \return  null if nothing
    KTPoolExtension* extension() const { return extensionInUse.load(std::memory_order_acquire); }

private:
    friend class KTMonitor;        // load, resize, tellLimit; and the counts for its probe
    friend class KTPoolExtension;  // settings, for its probes
    friend class KTThread;         // beginTask, endTask, report, liveThreads, settings, label; and
                                   // queueLength likewise
    struct Load;
    struct Settings;
    struct Gate {  // in front of a lock; kept apart from what other threads write
        std::atomic<bool> taken;
        char gap[64];
    };
    typedef std::vector<boost::shared_ptr<KTThread> > Workers;

    std::size_t slotsInUse() const;
    template <typename Push>
    bool enqueueBy(const Push& push, bool ofExtension);
    void countQueuedLocked(const KTTask* queued);
    void beginTask();
    void endTask();
    void report(boost::shared_ptr<KTTask> task, boost::shared_ptr<KTMonitor>& share);
    boost::shared_ptr<KTMonitor> exchangeMonitor(boost::shared_ptr<KTMonitor> successor);
    void signalOne();
    void wakeAll();
    Load load();
    // Their callers release the displaced workers with no lock held: a worker's destructor joins.
    bool resize(int delta, Workers& displaced);
    bool growLocked(int count, Workers& displaced);
    bool startWorkerLocked(Workers& displaced);
    bool mayRetireLocked(const boost::shared_ptr<KTThread>& thread) const;
    void dropQueued();
    void detachWorkersLocked(bool force, Workers& detached, Workers& unnotified);
    void stopWorkers(const Workers& workers);
    void stopUnnotifiedWorkers();
    void stop(bool force);
    bool releaseEnded();
    bool increase(Workers& displaced);
    // The name, as a record begins with it; a line to the console, and a record, each if messages
    // go there. No record is made under poolMutex: the log runs code of the client's.
    std::string label() const;
    void print(const char* line) const;
    void record(int severity, const char* function, const char* line) const;
    void tellLimit(int busy, int live) const;

    boost::intrusive_ptr<KTPoolExtension> ownedExtension;  // first, to go last; under queueMutex
    std::atomic<KTPoolExtension*> extensionInUse;          // what that points to
    const int monitorParam1, monitorParam2, monitorParam3;
    const std::unique_ptr<Settings> settings;
    Workers threads;          // under poolMutex; each slot also atomically, for shutdown
    Workers retiredThreads;   // under poolMutex
    Gate poolGate;            // beside what is seldom read
    KTTaskDeque tasks;        // under queueMutex
    std::size_t queueLength;  // size of tasks, for the probes; under queueMutex
    Gate queueGate;
    std::atomic<int> nbThreads;  // written under poolMutex
    const int maxThreads;
    boost::shared_ptr<KTMonitor> monitor;  // exchanged atomically; after init under queueMutex
    std::atomic<const KTMonitor*> monitorInUse;  // what monitor points to
    std::atomic<int> nbThreadsToRemove;          // under poolMutex after init
    boost::shared_ptr<KTMutex> poolMutex;
    boost::shared_ptr<KTMutexRW> busyLock;
    boost::shared_ptr<KTMutex> queueMutex, wakeMutex;
    boost::shared_ptr<KTCondition> wakeCondition;
    boost::intrusive_ptr<KTLiveThreadCount> liveThreads;
    char gapBeforeBusy[64] __attribute__((unused));
    int nbBusyThreads;  // under busyLock
    Gate busyGate, wakeGate;
};

}  // namespace KT
