/// The job behind a future.
#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <ktasync/detail/Job.h>

namespace KT {
namespace detail {

class Deadline;
class PoolTask;

/// What a future does that doesn't depend on the type of its result.
class KTASYNC_EXPORT FutureJob : public Job {
public:
    using Job::Job;
    ~FutureJob() override;

    bool isReady() const { return ready.load(std::memory_order_acquire); }

    /// Blocks until the job has ended, for at most `milliseconds` (no limit if negative); whether
    /// it has. In a task it runs the job itself, if nobody has begun.
    bool wait(int milliseconds);

    /// Drops the job (true) or raises its stop mark (false).
    bool cancel();

    /// Throws what the call threw, or KTCancelled. Only for a job that has ended, and once.
    void rethrowFailure();

    /// Has `next` queued when this job has ended. Throws std::bad_alloc, and `next` is dropped.
    void attach(const boost::intrusive_ptr<FutureJob>& next, std::string_view nextName);

protected:
    void claimed() override;
    void conclude(Outcome outcome, std::exception_ptr error) override;

private:
    using Path = std::vector<boost::intrusive_ptr<FutureJob>>;
    boost::intrusive_ptr<FutureJob> firstUnfinished(Path& path);
    bool waitForEnd(const Deadline& end);

    std::atomic<bool> ready{false};
    Outcome how = Outcome::cancelled;
    std::exception_ptr failure;
    /// Both under `mutex`: what to queue at the end; and the job that this one is to be queued by.
    boost::shared_ptr<PoolTask> continuation;
    boost::intrusive_ptr<FutureJob> source;
};

/// With the result.
template <typename R>
class ResultJob : public FutureJob {
public:
    using Result = R;

    using FutureJob::FutureJob;

    /// The result, moved out, or the failure thrown. Only for a job that has ended, and once.
    R take()
    {
        rethrowFailure();
        if constexpr (std::is_reference_v<R>) {
            return static_cast<R>(**result);
        } else if constexpr (!std::is_void_v<R>) {
            return std::move(*result);
        }
    }

protected:
    template <typename Call>
    void keepResultOf(Call&& call)
    {
        if constexpr (std::is_void_v<R>) {
            call();
        } else if constexpr (std::is_reference_v<R>) {
            auto&& referred = call();
            result = std::addressof(referred);
        } else {
            result.emplace(call());
        }
    }

private:
    using Stored =
        std::conditional_t< std::is_void_v<R>, std::monostate,
                            std::conditional_t<std::is_reference_v<R>, std::remove_reference_t<R>*,
                                               std::remove_cv_t<R>>>;
    std::optional<Stored> result;
};

/// With the callable.
template <typename Bound>
class FutureCall final : public ResultJob<typename Bound::Result> {
public:
    template <typename Origin, typename... Parts>
    FutureCall(const Origin& origin, std::string_view name, Parts&&... parts)
        : ResultJob<typename Bound::Result>(origin, name),
          bound(std::in_place, std::in_place, std::forward<Parts>(parts)...)
    {
    }

protected:
    void invoke() override
    {
        this->keepResultOf([this]() -> typename Bound::Result {
            return (*bound)([this] { return this->token(); });
        });
    }
    void discard() override { bound.reset(); }

private:
    std::optional<Bound> bound;
};

}  // namespace detail
}  // namespace KT
