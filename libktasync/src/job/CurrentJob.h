/// What the calling thread is in.
#pragma once

#include <cstdint>

#include <ktasync/detail/Job.h>

namespace KT {
namespace detail {

/// A job that a thread runs, inside of another one where a waiting job runs it.
struct CurrentJob {
    Job* job;
    const CurrentJob* around;
    /// Tells this turn from all others, of other jobs at the same address too; 0 until it is asked
    /// for.
    mutable std::uintptr_t number = 0;

    /// Of the calling thread; null if it is in none.
    static thread_local const CurrentJob* innermost;
    /// Whether the thread shows what it does by its name: a worker, not a client's.
    static thread_local bool showsName;

    /// Whether the calling thread is in a job that `predicate` holds for.
    template <typename Predicate>
    static bool isAny(const Predicate& predicate)
    {
        for (const CurrentJob* each = innermost; each != nullptr; each = each->around) {
            if (predicate(*each->job)) {
                return true;
            }
        }
        return false;
    }

    /// Whether the calling thread is in a job of the pool of `scheduler`: a thread that such a job
    /// blocks may run another one, and the pool does no more at once than it has workers.
    static bool isAnyOf(const Scheduler& scheduler)
    {
        return isAny([&scheduler](const Job& each) { return &each.scheduler() == &scheduler; });
    }

    /// The number of the calling thread's turn, which what it makes now is marked with; 0 if it is
    /// in none.
    static std::uintptr_t numberOfThisThread()
    {
        return innermost != nullptr ? numberOfInnermost() : 0;
    }

    /// The innermost one; null if the calling thread is in none.
    static Job* ofThisThread() { return innermost != nullptr ? innermost->job : nullptr; }

private:
    /// Not where jobs are made: most are made outside of any.
    [[gnu::noinline]] static std::uintptr_t numberOfInnermost();
};

/// The calling thread is in `job`, for a scope.
class InJob {
public:
    explicit InJob(Job& job) : frame{&job, CurrentJob::innermost}
    {
        CurrentJob::innermost = &frame;
    }
    ~InJob() { CurrentJob::innermost = frame.around; }
    InJob(const InJob&) = delete;
    InJob& operator=(const InJob&) = delete;

private:
    const CurrentJob frame;
};

}  // namespace detail
}  // namespace KT
