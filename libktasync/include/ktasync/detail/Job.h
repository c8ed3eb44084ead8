/// One call that a pool is to make. Clients see it only through futures, groups and tokens.
#pragma once

#include <chrono>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/detail/CurrentWork.h>
#include <ktasync/detail/Outcome.h>
#include <ktasync/detail/Work.h>
#include <ktasync/export.h>

namespace KT {

class KTStopToken;

namespace detail {

class Group;
class Scheduler;

/// Of a job that is no task: nobody observes it.
enum class NeverRun { neverRun };

/// A callable on its way through a pool, whatever waits for it.
///
/// | phase   | entered by                                              |
/// |---------|---------------------------------------------------------|
/// | waiting | the constructor                                         |
/// | claimed | `claim`: the one caller to whom it says true            |
/// | ended   | that caller, by `run` or `drop`: `conclude` was called  |
///
/// A waiter may claim the job and run it on its own thread: it leaves the queue at once. A job that
/// its pool can't run any more is dropped: so every job ends.
///
/// Every operation may be called from any thread.
class KTASYNC_EXPORT Job : public Work {
public:
    Job(Scheduler& ofPool, std::string_view name);
    Job(Scheduler& ofPool, std::string_view name, NeverRun);
    ~Job() override;

    KTASYNC_HIDDEN bool claim();

    /// Makes the call, on behalf of whoever claimed the job, and ends it: also when the thread is
    /// cancelled in it. No exception but the forced unwinding comes out.
    KTASYNC_HIDDEN void run();

    /// Claims the job and ends it as cancelled or lost; false if it was claimed before.
    KTASYNC_HIDDEN bool drop(Outcome outcome = Outcome::cancelled);

    void execute() override;
    void abandon() override;
    /// Requests this job to stop, and each one that runs inside of this one: the thread is to
    /// stop.
    void requestStop() override;
    /// Requests this job to stop, and each one inside that was made by the one around it. Nobody
    /// has cancelled the others.
    KTASYNC_HIDDEN void requestStopOfOwn();

    bool stopRequested() const { return (state & stopMark) != 0; }
    /// As KTStopToken::waitFor.
    KTASYNC_HIDDEN bool waitForStop(int milliseconds) const;

    /// The group that it is in; null if in none.
    virtual const Group* group() const { return nullptr; }
    Scheduler& scheduler() const { return home; }

protected:
    /// Makes the call and keeps its result.
    virtual void invoke() = 0;
    /// Destroys the callable, with what it was given.
    virtual void discard() = 0;
    /// Called when the job was claimed, before anything else.
    virtual void claimed() {}
    /// Tells the waiters. `error` is set for what the callable threw.
    virtual void conclude(Outcome outcome, std::exception_ptr error) = 0;

    KTStopToken token() const;
    bool hasEnded() const { return (state.load(std::memory_order_relaxed) & ended) != 0; }

    using Time = std::chrono::steady_clock;
    /// Ends a claimed job. `startedAt` is the epoch if the call wasn't made.
    KTASYNC_HIDDEN void finish(Outcome outcome, std::exception_ptr error,
                               Time::time_point startedAt);
    KTASYNC_HIDDEN void raiseMark();

    static constexpr unsigned short firstOfDerived = firstFree << 2;
    /// It runs inside of a job that hasn't made it.
    static constexpr unsigned short foreignMark = 1 << 11;

private:
    friend class JobTurn;

    static constexpr unsigned short claimedMark = firstFree;
    static constexpr unsigned short stopMark = firstFree << 1;

    KTASYNC_HIDDEN void runBody(int cancelStateOfCall);
    KTASYNC_HIDDEN void report(Outcome outcome, Time::time_point startedAt) const;
    KTASYNC_HIDDEN void requestStop(CurrentWork::Stop stop);
    KTASYNC_HIDDEN void beginInner(Job& job, bool isOwn);

    Scheduler& home;
    /// The epoch if nobody observes the pool.
    const Time::time_point queuedAt;
    /// The job that runs inside of this one; until then, the number of the turn that made this one.
    CurrentWork inner;
};

/// Has the pool run `job`, in the order of submission. A pool that takes none drops it, and false
/// is returned.
KTASYNC_EXPORT bool enqueue(boost::intrusive_ptr<Job> job);

/// The same for many jobs of one pool, in their order, with nothing in between.
KTASYNC_EXPORT bool enqueueAll(Scheduler& pool, std::vector<boost::intrusive_ptr<Work>> jobs);

/// Runs a claimed job on behalf of a waiter, on the calling thread or, when its stack is half full,
/// on a thread made for it.
void runForWaiter(Job& job);

/// The storage of a job's callable: there until the job has ended.
template <typename Bound>
union BoundStorage {
    template <typename... Parts>
    explicit BoundStorage(std::in_place_t, Parts&&... parts)
        : bound(std::in_place, std::forward<Parts>(parts)...)
    {
    }
    // The job destroys what is in it.
    ~BoundStorage() {}  // NOLINT(modernize-use-equals-default)
    BoundStorage(const BoundStorage&) = delete;
    BoundStorage& operator=(const BoundStorage&) = delete;

    Bound bound;
};

/// A job with a callable, without a result. `Base` is made of the place that it is for
/// (a pool, a group) and the name.
template <typename Base, typename Bound>
class CallWithoutResult final : public Base {
public:
    template <typename Place, typename... Parts>
    CallWithoutResult(Place& place, std::string_view name, Parts&&... parts)
        : Base(place, name), storage(std::in_place, std::forward<Parts>(parts)...)
    {
    }
    ~CallWithoutResult() override
    {
        if (!this->hasEnded()) {
            discard();
        }
    }

protected:
    void invoke() override
    {
        static_cast<void>(storage.bound([this] { return this->token(); }));
    }
    void discard() override { storage.bound.~Bound(); }

private:
    BoundStorage<Bound> storage;
};

}  // namespace detail
}  // namespace KT
