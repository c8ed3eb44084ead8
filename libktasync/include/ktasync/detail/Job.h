/// One call that a pool is to make. Clients see it only through futures, groups and tokens.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <boost/weak_ptr.hpp>

#include <ktasync/KTPoolRef.h>
#include <ktasync/export.h>

namespace KT {

class KTStopToken;

namespace detail {

class Group;

enum class Outcome {
    done,
    failed,
    cancelled,  ///< by a client, or by the callable itself
    lost,       ///< dropped or cut off by the pool, which is about to stop or has done so
};

/// A callable on its way through a pool, whatever waits for it.
///
/// | phase   | entered by                                              |
/// |---------|---------------------------------------------------------|
/// | waiting | the constructor                                         |
/// | claimed | `claim`: the one caller to whom it says true            |
/// | ended   | that caller, by `run` or `drop`: `conclude` was called  |
///
/// The pool's queue holds a task of the core that holds the job. If that task goes away without
/// having run, dropped by a shutdown, it drops the job: so every job ends. Who waits for a job may
/// claim and run it on its own thread; the task then finds nothing left to do.
///
/// Every operation may be called from any thread.
class KTASYNC_EXPORT Job : public boost::intrusive_ref_counter<Job> {
public:
    Job(const KTPoolRef& pool, std::string_view name);
    /// For the same pool as `other`.
    Job(const Job& other, std::string_view name);
    virtual ~Job();
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    bool claim();

    /// Makes the call, on behalf of whoever claimed the job, and ends it: also when the thread is
    /// cancelled in it. No exception but the forced unwinding comes out.
    void run();

    /// Claims the job and ends it as cancelled or lost; false if it was claimed before.
    bool drop(Outcome outcome = Outcome::cancelled);

    /// Raises the stop mark, and that of each job that runs inside of this one.
    void requestStop();
    bool stopRequested() const { return stop; }
    /// As KTStopToken::waitFor.
    bool waitForStop(int milliseconds) const;

    std::string_view name() const { return shortName.view(); }
    boost::shared_ptr<KTThreadPool> pool() const { return target.lock(); }
    /// The group that it is in; null if in none.
    virtual const Group* group() const { return nullptr; }
    bool belongsTo(const PoolContext* to) const { return context.get() == to; }

    /// The job that the calling thread is in; null if it is in none.
    static Job* current();
    /// The job around this one, where a waiting job runs another; null otherwise. To be asked by
    /// the thread that runs this one.
    Job* around() const { return outer; }

protected:
    /// Makes the call and keeps its result.
    virtual void invoke() = 0;
    /// Destroys the callable, with what it was given.
    virtual void discard() = 0;
    /// Called when the job was claimed, before anything else.
    virtual void claimed() {}
    /// Tells who waits. `error` is set for what the callable threw.
    virtual void conclude(Outcome outcome, std::exception_ptr error) = 0;

    KTStopToken token() const;
    /// Sees to it that no wake-up of the pool stays lost, and that a job ends that a pool which was
    /// shut down has left in its queue. For a waiting thread, now and then.
    void wakePool();

    mutable std::mutex mutex;
    mutable std::condition_variable changed;

private:
    friend class Turn;

    void begin();
    void finish(Outcome outcome, std::exception_ptr error);
    void report(Outcome outcome) const;
    void setInner(Job* job);

    const boost::weak_ptr<KTThreadPool> target;
    const std::shared_ptr<PoolContext> context;
    const ShortName shortName;
    std::atomic<bool> isClaimed{false};
    std::atomic<bool> stop{false};
    bool isFinished = false;          ///< belongs to the claimer
    Job* outer = nullptr;             ///< belongs to the thread that runs the job
    boost::intrusive_ptr<Job> inner;  ///< under `mutex`
    /// Somebody observes the pool: only then the two are set.
    bool isTimed = false;
    std::chrono::steady_clock::time_point queuedAt;
    std::chrono::steady_clock::time_point startedAt;
};

/// Puts `job` into the pool's queue, under its own short name or under the whole of `name`. A pool
/// that refuses it drops it. Throws std::bad_alloc, and the job is dropped then.
KTASYNC_EXPORT void enqueue(const KTPoolRef& pool, const boost::intrusive_ptr<Job>& job,
                            std::string_view name);

/// The same for many, in their order, in one go: all are dropped if it throws.
KTASYNC_EXPORT void enqueueAll(const KTPoolRef& pool,
                               const std::vector<boost::intrusive_ptr<Job>>& jobs,
                               std::string_view name);

/// Runs a claimed job on behalf of who waits for it, on the calling thread or, when its stack is
/// half full, on a thread made for it.
KTASYNC_EXPORT void runForWaiter(Job& job);

}  // namespace detail
}  // namespace KT
