/// \file
/// The result of a task that may still be on its way.
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <kterror/KTError.h>

#include <ktasync/KTCancelled.h>
#include <ktasync/detail/FutureJob.h>
#include <ktasync/detail/FutureShare.h>

namespace KT {

namespace detail {
struct Start;
[[noreturn]] KTASYNC_EXPORT void refuseEmptyFuture(const char* method);
}  // namespace detail

/// What `submit` returns. It may be moved, not copied, and outlive its pool.
/// \code
/// KT::KTFuture<int> lines = KT::submit(pool, "count", countLines, path);
/// KT::KTFuture<std::string> text = lines.then([](int n) { return std::to_string(n); });
/// std::cout << text.get() << '\n';
/// \endcode
/// A future that is dropped leaves its task alone; an exception that nobody can look at any more
/// is then logged (category "ktasync"). All but `valid`, assignment and destruction throw KTError
/// on a future without a task: a default one, moved from, or asked for its result before.
///
/// | one thread may call | while others call                                               |
/// |---------------------|-----------------------------------------------------------------|
/// | any of the next row | `valid`, `isReady`, `wait`, `waitFor`, `cancel`                 |
/// | `get` or `then`     | the same: after it `cancel` says false, the others throw KTError |
/// | anything else       | nothing on this future                                          |
///
/// Else is moving, assigning and destroying: the calls on other threads have returned by then, but
/// for a `cancel` that `get` has shown to have taken effect, by throwing KTCancelled. Apart from
/// that a future may be destroyed at any time, before its task runs or while it does, and before or
/// after its pool; it doesn't block for that. A result that nobody has asked for is destroyed with
/// it, or when the task ends.
///
/// When a wait has found that the task has ended, by whatever operation, `isReady` too, the caller
/// sees all that the task wrote, and the callable and its arguments have been destroyed. The task
/// sees what was written before `submit` or `then`, and what the tasks in front of it wrote.
///
/// A wait ends when the task has ended, however it ends: dropped by a shutdown, it ends at once. A
/// task that waits for one of its own pool that nobody has begun runs that on the spot, so that
/// waiting in tasks doesn't deadlock, with one worker either. A task of another pool is left to the
/// workers of that one, as is any that a task derived from KTTask by hand waits for: the waiter
/// keeps its worker, and the other task needs one to spare.
///
/// \tparam R  what the callable returns: a value, a reference or void
/// \ingroup ktasync
template <typename R>
class KTFuture {
public:
    /// A future without a task.
    KTFuture() = default;

    /// Whether there is a task. Doesn't block, and throws nothing.
    ///
    /// \return  false for a future by default, moved from, or asked for its result
    bool valid() const { return share.untaken() != nullptr; }

    /// Blocks until the task has ended. Throws what it threw, or KTCancelled. The future has no
    /// task after that, either way. A cancellation point.
    ///
    /// \return  the task's result, moved
    R get()
    {
        detail::ResultJob<R>& job = checked("get");
        job.wait(-1);
        share.setTaken();
        return job.take();
    }

    /// Blocks until the task has ended. Throws KTError in that task itself. A cancellation point.
    void wait() const { checked("wait").wait(-1); }

    /// As `wait`, for a limited time. In a task it may take longer, by the one that it runs itself.
    ///
    /// \param milliseconds  that it may take; no limit if negative
    /// \return              whether the task has ended
    bool waitFor(int milliseconds) const { return checked("waitFor").wait(milliseconds); }

    /// Whether `get` would return at once. Doesn't block.
    ///
    /// \return  whether the task has ended
    bool isReady() const { return checked("isReady").isReady(); }

    /// A task not begun never runs, and `get` throws KTCancelled. One that runs gets a stop request
    /// raised; one that has ended is left alone, and so is one whose result was asked for, by `get`
    /// or `then`. Doesn't wait.
    ///
    /// \return  true if the task had not begun
    bool cancel() const
    {
        // Once the effect is seen, the future may go.
        const boost::intrusive_ptr<detail::ResultJob<R>> job(share.job());
        return job ? share.untaken() != nullptr && job->cancel() : checked("cancel").cancel();
    }

    /// Has `callable` called with the result, moved, as a task of its own, once there is one, and
    /// returns the future of that; this future has no task any more. A failure goes past the
    /// callable into the future returned; a callable that takes the ready KTFuture itself, and
    /// can't be called with the result, sees it. Cancelling the future returned doesn't cancel the
    /// task in front. Doesn't block. Throws std::bad_alloc, and changes nothing then.
    ///
    /// \param callable  copied, or moved in
    /// \return          the future of what it returns
    template <typename F>
    auto then(F&& callable);

    /// The same, with a task name, in place of that of the task in front.
    ///
    /// \param name      of the new task
    /// \param callable  copied, or moved in
    /// \return          the future of what it returns
    template <typename F>
    auto then(std::string_view name, F&& callable);

private:
    friend struct detail::Start;
    using Share = detail::FutureShare<detail::ResultJob<R>>;
    explicit KTFuture(boost::intrusive_ptr<detail::ResultJob<R>> of) : share(std::move(of)) {}
    explicit KTFuture(Share&& of) : share(std::move(of)) {}

    detail::ResultJob<R>& checked(const char* method) const
    {
        detail::ResultJob<R>* const job = share.untaken();
        if (job == nullptr) {
            detail::refuseEmptyFuture(method);
        }
        return *job;
    }

    Share share;
};

}  // namespace KT

#include <ktasync/detail/Start.h>
