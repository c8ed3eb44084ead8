/// Brings work to the workers of a pool.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <ktthread/KTThreadPool.h>

#include "../base/BriefMutex.h"
#include "../base/Deadline.h"
#include "../clock/Clock.h"
#include "../clock/Saturation.h"
#include "../clock/ThreadStates.h"
#include "Admission.h"
#include "Concurrency.h"
#include "IdleRunners.h"
#include "Observers.h"
#include "RecentMost.h"
#include "Runner.h"
#include "WorkQueue.h"

namespace KT {
namespace detail {

class Carrier;

/// What a scheduler may do.
struct SchedulerOptions {
    int threads = 1;          ///< the pool keeps, once it has them
    int maxThreads = 1;       ///< carriers at once
    bool isAdaptive = false;  ///< it sizes the pool; otherwise the pool does that
    bool shrinks = false;     ///< workers idle for `idleTimeout` retire
    Time::duration idleTimeout = Time::duration::zero();
    Time::duration spin = Time::duration::zero();
    int processors = 1;
    int maxQueued = 0;  ///< work from outside that waits; 0: any
    KTPoolOptions::WhenFull whenFull = KTPoolOptions::WhenFull::block;
    int shards = 0;             ///< queues; 0: as many as the processors need
    std::size_t stackSize = 0;  ///< bytes that work has; 0: the system's default
};

/// The queue of a pool, and the carriers that empty it. A carrier is a task of the core: it keeps a
/// worker, and runs work until there is none.
///
/// | invariant                                                              | kept by          |
/// |------------------------------------------------------------------------|------------------|
/// | while work waits, a carrier is queued or runs                          | call, leave      |
/// | ... and one searches, or none waits idle and there are enough of them  | call, next, park |
/// | work that no worker can reach any more is dropped                      | leave, look      |
///
/// A submission looks at three numbers after it has pushed its work: how many carriers search, how
/// many wait idle, how many there are. A carrier changes its number before it looks for work once
/// more. All of these accesses are sequentially consistent, so one of the two sees the other.
/// At most one carrier is called at a time; it calls the next one when it has found work and there
/// is more.
///
/// Any thread may use it.
class Scheduler final : public Watched {
public:
    /// The one of `pool`, which is given one if it has none. Throws std::bad_alloc.
    static Scheduler& of(const boost::shared_ptr<KTThreadPool>& pool);
    /// For a pool that has none.
    static Scheduler& attachTo(const boost::shared_ptr<KTThreadPool>& pool,
                               const SchedulerOptions& options);
    ~Scheduler() override;

    /// Queues `work` in the order of submission. If the pool takes none, it abandons it, and says
    /// false. Throws nothing: without memory for a carrier, the clock starts one later.
    bool submit(WorkPointer work);
    /// The same for many.
    bool submitAll(std::vector<WorkPointer> batch);
    /// The same in two steps, of which the second may run destructors of clients.
    void queueAll(std::vector<WorkPointer> batch);
    bool call();
    /// The same for work that the calling work may need soon: in its own carrier's queue.
    bool submitNear(WorkPointer work);

    /// The place of the carrier that the calling thread is; null if it is none of this pool's.
    Runner* runnerOfThisThread() const;

    /// Null once the pool is gone.
    boost::shared_ptr<KTThreadPool> pool() const { return target.lock(); }

    /// How log records of this pool's begin: see poolLabel.
    const std::string& label() const { return poolsLabel; }

    /// Bytes, for a thread that runs work of this pool; 0: the system's default.
    std::size_t stackSize() const { return options.stackSize; }

    /// Fires the probes of work that the calling thread runs, if anybody listens.
    void probeStarted(const Work& work) const
    {
        if (*listeners.started != 0) {
            fireStarted(work);
        }
    }
    void probeEnded(const Work& work) const
    {
        if (*listeners.ended != 0) {
            fireEnded(work);
        }
    }

    /// Whether more carriers run than there are processors: a thread that looks for work without
    /// sleeping may keep another one from a processor.
    bool isCrowded() const { return carriers - idle.size() > options.processors; }

    /// Counts the end of work that was queued.
    void workEnded();
    /// Work that was queued and hasn't ended.
    int unfinished() const;
    std::uint64_t ended() const;
    /// Blocks until none is unfinished; false after the deadline, or once the pool has stopped.
    bool waitUntilFinished(const Deadline& end);
    /// Of the work that its carriers run. Throws std::bad_alloc.
    std::vector<ShortName> namesOfRunning();

    Observers observers;
    /// For work that clients submit: to be asked before `submit`.
    Admission admission;

    void tasksQueued() override;
    void dropQueued() override;
    void amend(KTThreadPoolStatus& status) const override;
    Time::time_point look(Time::time_point now) override;

private:
    friend class Carrier;
    class Abandoning;

    Scheduler(const boost::shared_ptr<KTThreadPool>& pool, const SchedulerOptions& options);

    /// Carriers that have a worker, and no work; and those that have both.
    int carriersWithoutWork() const;
    int busyCarriers() const;

    // Submission.
    void probeQueued(const Work& work) const
    {
        if (*listeners.queued != 0) {
            fireQueued(work);
        }
    }
    void fireQueued(const Work& work) const;
    void fireStarted(const Work& work) const;
    void fireEnded(const Work& work) const;
    WorkQueue& outerQueue();
    bool hasWork() const;
    std::size_t waiting() const;
    bool isRefused();
    bool mayStart();
    bool start();
    void watch();
    void abandonAll();

    void tellWaiters(Runner* runner);

    // A carrier's turns.
    Runner& takeRunner();
    void giveBack(Runner& runner);
    void enter(Runner& runner, CurrentWork& current);
    WorkPointer next(Runner& runner, const Carrier& carrier);
    void found(Runner& runner);
    WorkPointer find(Runner& runner);
    WorkPointer steal(const Runner& thief);
    void setSearching(Runner& runner, bool searches);
    bool spin() const;
    bool park(Runner& runner, const Carrier& carrier);
    bool mustLeave(Runner& runner);
    bool isOvertime(Runner& runner);
    void leave(Runner& runner, bool isStopped);
    void carrierDropped(Runner& runner);

    // The clock's looks.
    CarrierCensus count(bool isEnough);
    bool isEnough(Time::time_point now);
    void relax(Time::time_point now);
    void resize(KTThreadPool& pool, const KTThreadPoolStatus& status, Time::time_point now);
    void grow(KTThreadPool& pool, int present, int wanted, Time::time_point now);
    void noteNeed(const KTThreadPoolStatus& status, Time::time_point now);
    Time::time_point rest(KTThreadPool& pool, const KTThreadPoolStatus& status,
                          Time::time_point now);
    Time::time_point shrink(KTThreadPool& pool, const KTThreadPoolStatus& status,
                            Time::time_point now);

    const SchedulerOptions options;
    const boost::weak_ptr<KTThreadPool> target;
    const KTThreadPool* const probed;  ///< for the probes: the address only
    const std::string poolsLabel;
    const Listeners listeners;
    std::vector<std::unique_ptr<WorkQueue>> outer;
    std::vector<std::atomic<Runner*>> runners;
    std::atomic<int> runnerCount{0};

    BriefMutex mutex;
    Runner* freeRunners = nullptr;  ///< under `mutex`

    // Read with each submission, and seldom written while the pool is busy.
    alignas(64) std::atomic<int> searching{0};
    std::atomic<int> carriers{0};
    std::atomic<int> unstarted{0};  ///< of those, in the core's queue
    std::atomic<int> most;          ///< carriers at once
    std::atomic<bool> isWatched{false};
    std::atomic<bool> wasStopped{false};      ///< and may run again
    std::atomic<std::uint64_t> coreTasks{0};  ///< that clients have queued with the core
    IdleRunners idle;

    alignas(64) std::atomic<std::uint64_t> endedElsewhere{0};
    std::atomic<int> waiters{0};
    std::atomic<int> abandoning{0};  ///< threads

    // The clock's own.
    Concurrency concurrency;
    ThreadStates threadStates;
    Saturation saturation;
    double rate = 0;  ///< work that ended, a second
    Time::time_point rateSince;
    std::uint64_t endedBefore = 0;
    Time::duration period;
    int quietLooks = 0;
    int nextSample = 0;
    RecentMost mostNeeded;  ///< workers
    int threadsSeen = 0;
    Time::time_point growthPausedUntil;
};

}  // namespace detail
}  // namespace KT
