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
#include <ktasync/detail/FutureJob.h>
#include <ktasync/detail/Job.h>
#include <ktasync/export.h>

namespace KT {
namespace detail {

class Deadline;
class Group;
struct Runner;

/// What makes a job one of a group. It is in one of the group's two lists from `start` until it
/// ends.
class KTASYNC_EXPORT GroupMember {
public:
    GroupMember(const GroupMember&) = delete;
    GroupMember& operator=(const GroupMember&) = delete;

protected:
    GroupMember(boost::intrusive_ptr<Group> ofGroup, Job& itself);
    ~GroupMember();

    /// For the job's operations of the same names. The group doesn't throw `error` if it isn't
    /// `told` how the job has ended.
    void claimed();
    void concluded(Outcome outcome, std::exception_ptr error, bool told);
    const Group* itsGroup() const { return owner.get(); }

private:
    friend class Group;
    const boost::intrusive_ptr<Group> owner;
    Job& job;
    std::atomic<bool>& isRunning() { return job.ownersFlag(); }
    boost::intrusive::list_member_hook<> hook;  ///< written under the group's mutex
};

/// A job that only its group asks about.
class KTASYNC_EXPORT GroupJob : public Job, public GroupMember {
public:
    GroupJob(const boost::intrusive_ptr<Group>& ofGroup, std::string_view jobName);
    ~GroupJob() override;

    const Group* group() const override { return itsGroup(); }

protected:
    void claimed() override { GroupMember::claimed(); }
    void conclude(Outcome outcome, std::exception_ptr error) override
    {
        concluded(outcome, std::move(error), true);
    }
};

template <typename Bound>
using GroupCall = CallWithoutResult<GroupJob, Bound>;

/// Counts the tasks of a group, and runs them for waiters. Shared by the group and its tasks: one
/// that a client keeps by its future may outlive the group.
///
/// A task has a place from `enter` until it ends, or until `leave` if it doesn't come to be.
class KTASYNC_EXPORT Group : public boost::intrusive_ref_counter<Group> {
public:
    /// `helps`: whether threads outside the pool run tasks while they wait.
    Group(const KTPoolRef& pool, int limit, bool helps = true);
    ~Group();

    Scheduler& scheduler() const { return home; }
    /// What tasks are called that get no name.
    const ShortName& name() const { return usualName; }

    /// Takes a place. With all taken: false, or, if it is to block, waits for one. In a task of the
    /// group, which holds a place itself, it takes one beyond the limit instead of waiting.
    enum class Entry { refused, within, beyond };
    Entry enter(bool block);
    void leave();

    /// Has `job`, which is that member and has a place, run: by the pool or by a waiter, or here
    /// and now if the place is beyond the limit.
    void start(GroupMember& member, boost::intrusive_ptr<Job> job, Entry place);

    /// Has jobs of this group run that have no places yet, whatever the limit. Throws
    /// std::bad_alloc, and none runs then.
    KTASYNC_HIDDEN void startAll(const std::vector<boost::intrusive_ptr<GroupJob>>& jobs);

    /// Runs what nobody has begun, but in a task of another pool, and outside of any task if the
    /// time is limited, and waits for the rest; whether all has ended. Throws KTError in a task of
    /// the group, which it would wait for.
    KTASYNC_HIDDEN bool wait(int milliseconds);

    /// Drops what nobody has begun, and what comes until the next `settle`.
    KTASYNC_HIDDEN void dropWaiting();

    /// The same, and requests the rest to stop.
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
    friend class GroupMember;
    using Members = boost::intrusive::list<
        GroupMember, boost::intrusive::member_hook<
                         GroupMember, boost::intrusive::list_member_hook<>, &GroupMember::hook>>;
    using Lock = std::unique_lock<std::mutex>;

    KTASYNC_HIDDEN bool isCallersOwn() const;
    KTASYNC_HIDDEN bool waitUnlessStopped(const Job* heeded);
    KTASYNC_HIDDEN bool listLocked(GroupMember& member);
    KTASYNC_HIDDEN void moveToRunningLocked(GroupMember& member);
    bool isFullLocked() const { return limit > 0 && places >= limit; }
    KTASYNC_HIDDEN bool mayRunTasks(const Deadline& end) const;
    KTASYNC_HIDDEN bool runOneOrWait(Lock hold, const Deadline& end);
    KTASYNC_HIDDEN void runOneOrSleep(Lock hold, const Deadline& end);
    KTASYNC_HIDDEN boost::intrusive_ptr<Job> takeWaitingLocked();
    KTASYNC_HIDDEN boost::intrusive_ptr<Job> takeDescendantLocked();
    KTASYNC_HIDDEN void unlistLocked(GroupMember& member);
    KTASYNC_HIDDEN void countLocked(Outcome outcome, std::exception_ptr error, bool told);

    /// Keeps the pool, which keeps the scheduler.
    const boost::shared_ptr<KTThreadPool> pool;
    Scheduler& home;
    const ShortName usualName;
    const int limit;
    const bool helps;
    mutable std::mutex mutex;
    std::condition_variable changed;
    /// Taken without `mutex` in a group without a limit, and given back under it.
    std::atomic<int> places{0};
    /// A thread was cancelled while it waited.
    std::atomic<bool> wasCutOff{false};
    /// Whether there is anything to settle; set under `mutex`.
    std::atomic<bool> isUnsettled{false};
    // The rest under `mutex`.
    Members waiting;
    Members running;
    Runner* thief = nullptr;  ///< the last carrier that has begun a task, until it ends one
    int failed = 0;
    int cancelled = 0;
    bool isCancelled = false;
    Account account;
};

/// A job whose result a future has.
template <typename Bound>
class GroupFutureCall final : public FutureCall<Bound>, public GroupMember {
    using Base = FutureCall<Bound>;

public:
    template <typename... Parts>
    GroupFutureCall(const boost::intrusive_ptr<Group>& ofGroup, std::string_view name,
                    Parts&&... parts)
        : Base(ofGroup->scheduler(), name, std::forward<Parts>(parts)...),
          GroupMember(ofGroup, *this)
    {
    }

    const Group* group() const override { return itsGroup(); }

protected:
    void claimed() override
    {
        Base::claimed();
        GroupMember::claimed();
    }
    void conclude(Outcome outcome, std::exception_ptr error) override
    {
        Base::conclude(outcome, std::move(error));
        concluded(outcome, nullptr, false);
    }
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
