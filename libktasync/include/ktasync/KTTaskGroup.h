/// \file
/// Tasks that are waited for together.
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/KTCancelled.h>
#include <ktasync/KTPoolRef.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/detail/Bound.h>
#include <ktasync/detail/Group.h>
#include <ktasync/detail/Start.h>
#include <ktasync/export.h>

namespace KT {

/// A set of tasks of one pool, to be waited for, or cancelled, as one.
/// \code
/// KT::KTTaskGroup group(pool);
/// for (const Page& page : pages) {
///     group.run("render", [&page] { render(page); });
/// }
/// group.wait();
/// \endcode
/// A waiter runs the group's tasks that nobody has begun, in their order, on its own thread; in a
/// task of the pool also those that the group's running tasks have submitted. So waiting in a task
/// doesn't deadlock: to any depth (where a stack is half full, a thread is made for the next task),
/// with one worker, with a pool that was shut down. A task of another pool runs none of them, and
/// waits for the workers. Tasks that a task puts into a group begin before others that are queued.
/// A group can be used again after a wait.
///
/// `run`, `tryRun`, `cancel` and the counts may be called from any thread, its own tasks too.
/// `wait` from any other thread. Constructing and destroying it belong to one thread. It can't be
/// copied. It shares the pool, and its tasks own their callables.
///
/// When a wait has ended, by returning or by what it throws of a task, the caller sees all that
/// the tasks wrote, and their callables have been destroyed. The group may be destroyed then, once
/// the calls of all other threads have returned: none of these tasks touches it any more. It may
/// be destroyed earlier, and waits then; before or after its pool.
///
/// \ingroup ktasync
class KTASYNC_EXPORT KTTaskGroup {
public:
    /// What a thread does that waits for the group, or for a place in it.
    enum class Waiters {
        help,  ///< it runs tasks of the group
        sleep  ///< it leaves them to the workers: no more run at once than the pool has of these
    };

    /// An empty group. Throws KTError if `limit` is negative, std::bad_alloc.
    ///
    /// \param pool     where its tasks run
    /// \param limit    tasks in flight at most, queued or running; 0: no limit
    /// \param waiters  outside the pool; its own tasks always help
    explicit KTTaskGroup(const KTPoolRef& pool, int limit = 0, Waiters waiters = Waiters::help);

    /// Blocks as `wait`. Cancels first if it is left by an exception, by a task that was asked to
    /// stop, or by a thread that was cancelled in one of the group's operations. An exception that
    /// no `wait` has thrown is logged (category "ktasync"). In one of its own tasks it cancels the
    /// others, and doesn't wait.
    ~KTTaskGroup();

    KTTaskGroup(const KTTaskGroup&) = delete;
    KTTaskGroup& operator=(const KTTaskGroup&) = delete;

    /// Has `callable` called with copies of `args`, as `submit` does; what it returns is dropped.
    /// With `limit` tasks in flight it blocks until one of them has ended, and runs some itself
    /// meanwhile; in a task of this group it runs the callable on the spot instead. In a group that
    /// was cancelled it does nothing. Throws std::bad_alloc. A cancellation point.
    ///
    /// \param callable  copied, or moved in, as are the arguments
    /// \param args      what it is called with
    template <typename F, typename... Args, std::enable_if_t<!detail::isName<F>, int> = 0>
    void run(F&& callable, Args&&... args)
    {
        run(group->name().view(), std::forward<F>(callable), std::forward<Args>(args)...);
    }

    /// The same, with a task name.
    ///
    /// \param name      of the task; copied
    /// \param callable  copied, or moved in, as are the arguments
    /// \param args      what it is called with
    template <typename F, typename... Args>
    void run(std::string_view name, F&& callable, Args&&... args)
    {
        detail::Place place(*group, true);
        start(place, make<detail::GroupCall>(name, std::forward<F>(callable),
                                             std::forward<Args>(args)...));
    }

    /// As `run`, but instead of blocking it does nothing and says false.
    ///
    /// \param callable  copied, or moved in, as are the arguments
    /// \param args      what it is called with
    /// \return          whether there was room
    template <typename F, typename... Args, std::enable_if_t<!detail::isName<F>, int> = 0>
    bool tryRun(F&& callable, Args&&... args)
    {
        return tryRun(group->name().view(), std::forward<F>(callable), std::forward<Args>(args)...);
    }

    /// The same, with a task name.
    ///
    /// \param name      of the task; copied
    /// \param callable  copied, or moved in, as are the arguments
    /// \param args      what it is called with
    /// \return          whether there was room
    template <typename F, typename... Args>
    bool tryRun(std::string_view name, F&& callable, Args&&... args)
    {
        detail::Place place(*group, false);
        if (!place) {
            return false;
        }
        start(place, make<detail::GroupCall>(name, std::forward<F>(callable),
                                             std::forward<Args>(args)...));
        return true;
    }

    /// As `run`, and gives a future of the result. What the callable throws reaches the future
    /// alone: `wait` doesn't throw it, and counts it. So does the end of a task that was dropped.
    ///
    /// \param callable  copied, or moved in, as are the arguments
    /// \param args      what it is called with
    /// \return          as of the function `submit`
    template <typename F, typename... Args, std::enable_if_t<!detail::isName<F>, int> = 0>
    auto submit(F&& callable, Args&&... args)
    {
        return submit(group->name().view(), std::forward<F>(callable), std::forward<Args>(args)...);
    }

    /// The same, with a task name.
    ///
    /// \param name      of the task; copied
    /// \param callable  copied, or moved in, as are the arguments
    /// \param args      what it is called with
    /// \return          as of the function `submit`
    template <typename F, typename... Args>
    auto submit(std::string_view name, F&& callable, Args&&... args)
    {
        detail::Place place(*group, true);
        auto job = make<detail::GroupFutureCall>(name, std::forward<F>(callable),
                                                 std::forward<Args>(args)...);
        auto future = detail::Start::futureOf(job);
        start(place, std::move(job));
        return future;
    }

    /// Blocks until all tasks have ended, and throws the first exception of those that ended since
    /// the last wait; the others are counted. Throws KTCancelled if a shutdown dropped one or cut
    /// one off. Throws KTError in a task of the group, which would wait for itself. A cancellation
    /// point.
    void wait();

    /// As `wait`, for a limited time. It runs tasks of the group only on a worker of its pool,
    /// which may be the only one, and may take longer by one of them there; any other thread just
    /// waits.
    ///
    /// \param milliseconds  that it may take; no limit if negative
    /// \return              whether all have ended; false without looking at exceptions
    bool waitFor(int milliseconds);

    /// Drops the tasks that nobody has begun, and any that come until the next wait has ended;
    /// requests the others to stop. Doesn't wait.
    void cancel();

    /// How many tasks have thrown something. Doesn't block.
    ///
    /// \return  tasks since the group was made
    int failures() const { return group->failures(); }

    /// How many were cancelled, dropped or cut off. Doesn't block.
    ///
    /// \return  tasks since the group was made
    int cancellations() const { return group->cancellations(); }

private:
    template <template <typename> class JobOf, typename F, typename... Args>
    auto make(std::string_view name, F&& callable, Args&&... args);
    template <typename JobType>
    void start(detail::Place& place, boost::intrusive_ptr<JobType> job);

    boost::intrusive_ptr<detail::Group> group;
    int exceptionsAround;
};

template <template <typename> class JobOf, typename F, typename... Args>
auto KTTaskGroup::make(std::string_view name, F&& callable, Args&&... args)
{
    using Call = detail::BoundOf<F, Args...>;
    static_assert(Call::Call::possible,
                  "the callable can't be called with these arguments: it gets moved copies of them "
                  "(std::ref passes a reference), after a const KTStopToken& if it takes one");
    if constexpr (Call::Call::possible) {
        return boost::intrusive_ptr<JobOf<Call>>(
            new JobOf<Call>(group, name, std::forward<F>(callable), std::forward<Args>(args)...));
    } else {
        return boost::intrusive_ptr<detail::ResultJob<void>>();
    }
}

template <typename JobType>
void KTTaskGroup::start(detail::Place& place, boost::intrusive_ptr<JobType> job)
{
    // Otherwise the assertion of `make` has failed, and says why.
    if constexpr (std::is_base_of_v<detail::GroupMember, JobType>) {
        detail::GroupMember& member = *job;
        group->start(member, std::move(job), place.passOn());
    }
}

}  // namespace KT
