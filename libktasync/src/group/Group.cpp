#include <ktasync/detail/Group.h>

#include <utility>

#include <kterror/KTError.h>
#include <ktthread/KTThreadPool.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../base/Pause.h"
#include "../job/CurrentJob.h"
#include "../scheduler/Scheduler.h"

namespace KT {
namespace detail {

namespace {

/// How often a group that is destroyed in a task looks whether that was asked to stop.
const int lookForStopMs = 20;

/// How often a waiter looks for work before it sleeps: some microseconds.
const int looksBeforeSleep = 50;

/// Marks a scope that the unwinding of a cancelled thread leaves: a destructor further out can't
/// tell that from a return.
class CutOff {
public:
    explicit CutOff(std::atomic<bool>& toSet) : mark(toSet) {}
    ~CutOff()
    {
        if (!isOver) {
            mark = true;
        }
    }
    CutOff(const CutOff&) = delete;
    CutOff& operator=(const CutOff&) = delete;

    void over() { isOver = true; }

private:
    std::atomic<bool>& mark;
    bool isOver = false;
};

}  // namespace

GroupMember::GroupMember(boost::intrusive_ptr<Group> ofGroup, Job& itself)
    : owner(std::move(ofGroup)), job(itself)
{
}

GroupMember::~GroupMember() = default;

void GroupMember::claimed()
{
    // A waiter that claims it has moved it before.
    if (!isRunning().load(std::memory_order_relaxed)) {
        const std::lock_guard<std::mutex> hold(owner->mutex);
        owner->moveToRunningLocked(*this);
        Runner* const runner = owner->home.runnerOfThisThread();
        owner->thief = runner != nullptr && runner->own.isEmpty() ? runner : nullptr;
    }
}

void GroupMember::concluded(Outcome outcome, std::exception_ptr error, bool told)
{
    const std::lock_guard<std::mutex> hold(owner->mutex);
    owner->unlistLocked(*this);
    owner->countLocked(outcome, std::move(error), told);
}

GroupJob::GroupJob(const boost::intrusive_ptr<Group>& ofGroup, std::string_view jobName)
    : Job(ofGroup->scheduler(), jobName), GroupMember(ofGroup, *this)
{
}

GroupJob::~GroupJob() = default;

Group::Group(const KTPoolRef& ofPool, int limitOfPlaces, bool waitersHelp)
    : pool(ofPool.pool()),
      home(ofPool.scheduler()),
      usualName(ofPool.defaultName()),
      limit(limitOfPlaces),
      helps(waitersHelp)
{
}

Group::~Group() = default;

bool Group::isCallersOwn() const
{
    return CurrentJob::isAny([this](const Job& job) { return job.group() == this; });
}

Group::Entry Group::enter(bool block)
{
    if (limit == 0) {
        ++places;
        return Entry::within;
    }
    const bool mayWait = block && !isCallersOwn();
    Lock hold(mutex);
    while (isFullLocked() && mayWait && !isCancelled) {
        runOneOrWait(hold, Deadline(-1));
    }
    if (isFullLocked() && !block) {
        return Entry::refused;
    }
    const Entry entry = isFullLocked() ? Entry::beyond : Entry::within;
    ++places;
    return entry;
}

void Group::leave()
{
    const Lock hold(mutex);
    --places;
    changed.notify_all();
}

bool Group::listLocked(GroupMember& member)
{
    if (!isCancelled) {
        waiting.push_back(member);
        // Who waits may be the only one left to run it.
        changed.notify_all();
    }
    return !isCancelled;
}

void Group::moveToRunningLocked(GroupMember& member)
{
    if (member.hook.is_linked() && !member.isRunning()) {
        waiting.erase(waiting.iterator_to(member));
        running.push_back(member);
        member.isRunning() = true;
    }
}

void Group::unlistLocked(GroupMember& member)
{
    if (member.hook.is_linked()) {
        Members& list = member.isRunning() ? running : waiting;
        list.erase(list.iterator_to(member));
    }
}

void Group::start(GroupMember& member, Entry place)
{
    const boost::intrusive_ptr<Job> job(&member.job);
    bool isListed = false;
    {
        const Lock hold(mutex);
        isListed = listLocked(member);
    }
    if (!isListed) {
        job->drop();
    } else if (place == Entry::within) {
        home.submitNear(job);
    } else if (job->claim()) {
        runForWaiter(*job);
    }
}

void Group::startAll(const std::vector<boost::intrusive_ptr<GroupJob>>& jobs)
{
    std::vector<WorkPointer> batch(jobs.begin(), jobs.end());
    {
        const Lock hold(mutex);
        places += static_cast<int>(jobs.size());
        for (const boost::intrusive_ptr<GroupJob>& job : jobs) {
            listLocked(*job);
        }
    }
    home.submitAll(std::move(batch));
}

bool Group::wait(int milliseconds)
{
    if (places == 0) {
        return true;
    }
    const Deadline end(milliseconds);
    bool mayBlock = false;
    Lock hold(mutex);
    while (places != 0) {
        if (waiting.empty() && !std::exchange(mayBlock, true) && isCallersOwn()) {
            throw KTError("KTTaskGroup", "wait",
                          "called in a task of the group, which it waits for", __FILE__, __LINE__);
        }
        if (!runOneOrWait(hold, end)) {
            return false;
        }
    }
    return true;
}

// The group's next task; null if all have begun.
boost::intrusive_ptr<Job> Group::takeWaitingLocked()
{
    if (waiting.empty()) {
        return nullptr;
    }
    GroupMember& member = waiting.front();
    moveToRunningLocked(member);
    return &member.job;
}

// In a task, a thread that waits for what a carrier has taken runs what that one has submitted
// since. No other work is in the carrier's queue before it has ended the group's task, for which it
// needs `mutex`. So a waiting task runs none but those that it waits for in the end, and the locks
// that it holds do no harm.
boost::intrusive_ptr<Job> Group::takeDescendantLocked()
{
    if (thief == nullptr || CurrentJob::innermost == nullptr ||
        thief == home.runnerOfThisThread()) {
        return nullptr;
    }
    return boost::static_pointer_cast<Job>(thief->own.takeFirst());
}

// Whether a waiter runs tasks. In one of this pool there may be no other worker left to do it; one
// of another pool leaves them to this one's workers, whose number may be a promise. Anywhere else
// it depends on whether a task may take longer than the waiter wants to wait.
bool Group::mayRunTasks(const Deadline& end) const
{
    if (CurrentJob::innermost != nullptr) {
        return CurrentJob::isAnyOf(home);
    }
    return (helps && end.isNever()) || pool->runningInThisThread();
}

bool Group::runOneOrWait(Lock& hold, const Deadline& end)
{
    if (end.isOver()) {
        return false;
    }
    CutOff cutOff(wasCutOff);
    if (mayRunTasks(end)) {
        runOneOrSleep(hold, end);
    } else {
        end.wait(hold, changed);
    }
    cutOff.over();
    return true;
}

void Group::runOneOrSleep(Lock& hold, const Deadline& end)
{
    boost::intrusive_ptr<Job> job = takeWaitingLocked();
    for (int looks = 0; !job && places != 0 && thief != nullptr && looks < looksBeforeSleep;
         ++looks) {
        job = takeDescendantLocked();
        if (!job) {
            hold.unlock();
            pause();
            hold.lock();
        }
    }
    if (job) {
        hold.unlock();
        if (job->claim()) {
            runForWaiter(*job);
        }
        job.reset();
        hold.lock();
    } else if (places != 0 && waiting.empty()) {
        end.wait(hold, changed);
    }
}

void Group::dropWaiting()
{
    for (;;) {
        boost::intrusive_ptr<Job> job;
        {
            const Lock hold(mutex);
            isCancelled = true;
            isUnsettled = true;
            job = takeWaitingLocked();
        }
        if (!job) {
            return;
        }
        job->drop();
    }
}

void Group::cancel()
{
    dropWaiting();
    // None begins from here on. Those that run are asked one by one without the lock, since letting
    // go of a job may run a client's destructor.
    Lock hold(mutex);
    for (std::size_t left = running.size(); left > 0 && !running.empty(); --left) {
        const boost::intrusive_ptr<Job> job(&running.front().job);
        running.splice(running.end(), running, running.begin());
        hold.unlock();
        job->requestStopOfOwn();
        hold.lock();
    }
}

Group::Account Group::close(bool isUnwinding)
{
    if (places == 0) {
        return settle();
    }
    const NoCancellation off;
    const Job* const around = CurrentJob::ofThisThread();
    bool isToEnd = isUnwinding || wasCutOff;
    if (places != 0 && isCallersOwn()) {
        cancel();
        return Account();
    }
    do {
        isToEnd = isToEnd || (around != nullptr && around->stopRequested());
        if (isToEnd) {
            cancel();
        }
    } while (!wait(isToEnd || around == nullptr ? -1 : lookForStopMs));
    return settle();
}

Group::Account Group::settle()
{
    if (!isUnsettled) {
        return Account();
    }
    const Lock hold(mutex);
    isCancelled = false;
    isUnsettled = false;
    return std::exchange(account, Account());
}

void Group::countLocked(Outcome outcome, std::exception_ptr error, bool told)
{
    if (thief == home.runnerOfThisThread()) {
        thief = nullptr;
    }
    failed += outcome == Outcome::failed;
    const bool isCancellation = outcome == Outcome::cancelled || outcome == Outcome::lost;
    cancelled += isCancellation;
    // In a cancelled group, that a task gives up is no failure.
    if (error && !account.first && !(isCancellation && isCancelled)) {
        account.first = std::move(error);
    }
    account.lost = account.lost || (told && isCancellation && !isCancelled);
    isUnsettled = isUnsettled || account.first || account.lost;
    --places;
    if (places == 0 || limit > 0) {
        changed.notify_all();
    }
}

int Group::failures() const
{
    const Lock hold(mutex);
    return failed;
}

int Group::cancellations() const
{
    const Lock hold(mutex);
    return cancelled;
}

}  // namespace detail
}  // namespace KT
