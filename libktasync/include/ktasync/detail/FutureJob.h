/// The job behind a future.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <ktasync/detail/Job.h>

namespace KT {
namespace detail {

class Deadline;

/// What a future does that doesn't depend on the type of its result. It shares the scheduler, since
/// it may outlive the pool.
class KTASYNC_EXPORT FutureJob : public Job {
public:
    FutureJob(Scheduler& ofPool, std::string_view name);
    FutureJob(Scheduler& ofPool, std::string_view name, NeverRun);
    ~FutureJob() override;

    bool isReady() const { return (state.load(std::memory_order_acquire) & readyMark) != 0; }

    /// Blocks until the job has ended, for at most `milliseconds` (no limit if negative); whether
    /// it has. In a task of the same pool it runs the job itself, if nobody has begun.
    bool wait(int milliseconds);

    /// Drops the job (true) or requests it to stop (false).
    bool cancel();

    /// Throws what the call threw, or KTCancelled. Only for a job that has ended, and once.
    void rethrowFailure();

    /// Nobody is left who may ask for the result: destroys it, or has it destroyed at once when the
    /// job ends, and logs an exception. The result may hold the job itself, by a KTStopToken.
    void forsake();

    /// Has `next` queued when this job has ended.
    void attach(const boost::intrusive_ptr<FutureJob>& next);

    bool isForsaken() const { return (state & forsakenMark) != 0; }

    /// Ends a job that is never run, with what `keep(context)` stores or throws; false if it has
    /// ended before: nothing is called then.
    bool settle(void (*keep)(void* context), void* context);

    KTStopToken stopToken() const;

    // Of jobs that wait for another one, when that has ended.
    void setToDrop() { state |= toDropMark; }
    bool isToDrop() const { return (state & toDropMark) != 0; }

protected:
    void claimed() override;
    void conclude(Outcome outcome, std::exception_ptr error) override;
    virtual void destroyResult() = 0;

private:
    using Path = std::vector<boost::intrusive_ptr<FutureJob>>;
    KTASYNC_HIDDEN boost::intrusive_ptr<FutureJob> firstUnfinished(Path& path);
    KTASYNC_HIDDEN boost::intrusive_ptr<FutureJob> inFront() const;
    KTASYNC_HIDDEN bool waitForEnd(const FutureJob& wanted, const Deadline& end);
    KTASYNC_HIDDEN Outcome outcome() const;
    KTASYNC_HIDDEN void tellOfEnd(Outcome outcome);
    KTASYNC_HIDDEN void forget();

    static constexpr unsigned short readyMark = firstOfDerived;
    static constexpr unsigned short awaitedMark = firstOfDerived << 1;  ///< by a thread that sleeps
    static constexpr unsigned short followedMark = firstOfDerived << 2;  ///< `continuation` is set
    static constexpr unsigned short followsMark = firstOfDerived << 3;   ///< `source` is set
    static constexpr unsigned short toDropMark = firstOfDerived << 4;
    static constexpr unsigned short forsakenMark = firstOfDerived << 5;
    static constexpr unsigned short neverRunMark = firstOfDerived << 6;
    static constexpr int outcomeShift = 12;
    static_assert(neverRunMark < foreignMark, "the job's mark is its own");
    static_assert(foreignMark < (1 << outcomeShift), "the outcome has bits of its own");

    std::exception_ptr failure;
    // Both under the parking place: what to queue at the end; the job that queues this one.
    boost::intrusive_ptr<FutureJob> continuation;
    boost::intrusive_ptr<FutureJob> source;
};

/// With the result.
template <typename R>
class ResultJob : public FutureJob {
    using Stored = std::conditional_t<std::is_reference_v<R>, std::remove_reference_t<R>*,
                                      std::remove_cv_t<R>>;

public:
    using Result = R;

    using FutureJob::FutureJob;

    /// The result, moved out, or the failure thrown. Only for a job that has ended, and once.
    R take()
    {
        rethrowFailure();
        if constexpr (std::is_reference_v<R>) {
            return static_cast<R>(**result);
        } else {
            // What the move leaves must not last for as long as the future.
            Stored taken = std::move(*result);
            result.reset();
            return taken;
        }
    }

protected:
    void destroyResult() override { result.reset(); }

    template <typename Call>
    void keepResultOf(Call&& call)
    {
        if constexpr (std::is_reference_v<R>) {
            auto&& referred = call();
            result = std::addressof(referred);
        } else {
            result.emplace(call());
        }
    }

private:
    std::optional<Stored> result;
};

template <>
class ResultJob<void> : public FutureJob {
public:
    using Result = void;

    using FutureJob::FutureJob;

    void take() { rethrowFailure(); }

protected:
    void destroyResult() override {}

    template <typename Call>
    void keepResultOf(Call&& call)
    {
        call();
    }
};

/// With the callable.
template <typename Bound>
class FutureCall : public ResultJob<typename Bound::Result> {
public:
    template <typename... Parts>
    FutureCall(Scheduler& ofPool, std::string_view name, Parts&&... parts)
        : ResultJob<typename Bound::Result>(ofPool, name),
          storage(std::in_place, std::forward<Parts>(parts)...)
    {
    }
    ~FutureCall() override
    {
        if (!this->hasEnded()) {
            discard();
        }
    }

protected:
    void invoke() override
    {
        this->keepResultOf([this]() -> typename Bound::Result {
            return storage.bound([this] { return this->token(); });
        });
    }
    void discard() final { storage.bound.~Bound(); }

private:
    BoundStorage<Bound> storage;
};

}  // namespace detail
}  // namespace KT
