/// What a group and its tasks share.
#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/intrusive/list.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <ktasync/KTPoolRef.h>
#include <ktasync/detail/Job.h>
#include <ktasync/export.h>

namespace KT {
namespace detail {

class Deadline;
class Group;
struct Runner;

/// A job of a group. It is in one of the group's two lists from `start` until it ends.
class KTASYNC_EXPORT GroupJob : public Job {
public:
    GroupJob(boost::intrusive_ptr<Group> ofGroup, std::string_view jobName);
    ~GroupJob() override;

    const Group* group() const override { return owner.get(); }

protected:
    void claimed() override;
    void conclude(Outcome outcome, std::exception_ptr error) override;

private:
    friend class Group;
    const boost::intrusive_ptr<Group> owner;
    // Written under the group's mutex.
    boost::intrusive::list_member_hook<> hook;
    std::atomic<bool> isRunning{false};
};

template <typename Bound>
class GroupCall final : public GroupJob {
public:
    template <typename... Parts>
    GroupCall(boost::intrusive_ptr<Group> ofGroup, std::string_view name, Parts&&... parts)
        : GroupJob(std::move(ofGroup), name), storage(std::in_place, std::forward<Parts>(parts)...)
    {
    }
    ~GroupCall() override
    {
        if (!hasEnded()) {
            discard();
        }
    }

protected:
    void invoke() override
    {
        static_cast<void>(storage.bound([this] { return token(); }));
    }
    void discard() override { storage.bound.~Bound(); }

private:
    BoundStorage<Bound> storage;
};

/// Counts the tasks of a group, and runs them for who waits. Shared by the group and its tasks: one
/// that was run by who waited may be in the pool's queue for longer than the group lives.
///
/// A task has a place from `enter` until it ends, or until `leave` if it doesn't come to be.
class KTASYNC_EXPORT Group : public boost::intrusive_ref_counter<Group> {
public:
    Group(const KTPoolRef& pool, int limit);
    ~Group();

    Scheduler& scheduler() const { return home; }
    /// What tasks are called that get no name.
    const ShortName& name() const { return usualName; }

    /// Takes a place. With all taken: false, or, if it is to block, waits for one. In a task of the
    /// group, which holds a place itself, it takes one beyond the limit instead of waiting.
    enum class Entry { refused, within, beyond };
    Entry enter(bool block);
    void leave();

    /// Has `job`, which has a place, run: by the pool or by a waiter, or here and now if the place
    /// is beyond the limit.
    void start(const boost::intrusive_ptr<GroupJob>& job, Entry place);

    /// Has jobs of this group run that have no places yet, whatever the limit. Throws
    /// std::bad_alloc, and none runs then.
    KTASYNC_HIDDEN void startAll(const std::vector<boost::intrusive_ptr<GroupJob>>& jobs);

    /// Runs what nobody has begun, but in a task of another pool, and outside of any task if the
    /// time is limited, and waits for the rest; whether all has ended. Throws KTError in a task of
    /// the group, which it would wait for.
    KTASYNC_HIDDEN bool wait(int milliseconds);

    /// Drops what nobody has begun, and what comes until the next `settle`.
    KTASYNC_HIDDEN void dropWaiting();

    /// The same, and raises the stop marks of the rest.
    KTASYNC_HIDDEN void cancel();

    struct Account {
        std::exception_ptr first;  ///< of what was thrown
        bool lost = false;         ///< some were dropped or cut off, though nobody cancelled
    };

    /// What came of the tasks since the last time; a cancelled group is as new again.
    KTASYNC_HIDDEN Account settle();

    /// Waits for the end of all, for a destructor: can't be cancelled. Cancels the group if an
    /// exception is on its way, and when the task around is asked to stop. In a task of the group
    /// it cancels and doesn't wait.
    KTASYNC_HIDDEN Account close(bool isUnwinding);

    int failures() const;
    int cancellations() const;

private:
    friend class GroupJob;
    using Jobs = boost::intrusive::list<
        GroupJob, boost::intrusive::member_hook< GroupJob, boost::intrusive::list_member_hook<>,
                                                 &GroupJob::hook>>;
    using Lock = std::unique_lock<std::mutex>;

    KTASYNC_HIDDEN bool isCallersOwn() const;
    KTASYNC_HIDDEN bool listLocked(GroupJob& job);
    KTASYNC_HIDDEN void moveToRunningLocked(GroupJob& job);
    bool isFullLocked() const { return limit > 0 && places >= limit; }
    KTASYNC_HIDDEN bool mayRunTasks(const Deadline& end) const;
    KTASYNC_HIDDEN bool runOneOrWait(Lock& hold, const Deadline& end);
    KTASYNC_HIDDEN boost::intrusive_ptr<Job> takeWaitingLocked();
    KTASYNC_HIDDEN boost::intrusive_ptr<Job> takeDescendantLocked();
    KTASYNC_HIDDEN void ended(GroupJob& job, Outcome outcome, std::exception_ptr error);

    /// Keeps the pool, which keeps the scheduler.
    const boost::shared_ptr<KTThreadPool> pool;
    Scheduler& home;
    const ShortName usualName;
    const int limit;
    mutable std::mutex mutex;
    std::condition_variable changed;
    /// Taken without `mutex` in a group without a limit, and given back under it.
    std::atomic<int> places{0};
    /// Whether there is anything to settle; set under `mutex`.
    std::atomic<bool> isUnsettled{false};
    // The rest under `mutex`.
    Jobs waiting;
    Jobs running;
    Runner* thief = nullptr;  ///< the last carrier that has begun a task, until it ends one
    int failed = 0;
    int cancelled = 0;
    bool isCancelled = false;
    Account account;
};

/// A place in a group, given back unless it is passed on to a job.
class Place {
public:
    Place(Group& inGroup, bool block) : group(inGroup), entry(group.enter(block)) {}
    ~Place()
    {
        if (entry != Group::Entry::refused) {
            group.leave();
        }
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    explicit operator bool() const { return entry != Group::Entry::refused; }
    Group::Entry passOn() { return std::exchange(entry, Group::Entry::refused); }

private:
    Group& group;
    Group::Entry entry;
};

}  // namespace detail
}  // namespace KT
