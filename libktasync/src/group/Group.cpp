#include <ktasync/detail/Group.h>

#include <utility>

#include <ktthread/KTThreadPool.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../job/CurrentJob.h"
#include "../job/StopListener.h"
#include "../scheduler/Scheduler.h"

namespace KT {
namespace detail {

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
        runOneOrWait(std::move(hold), Deadline(-1));
        hold = Lock(mutex);
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
        // A waiter may be the only one left to run it.
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

void Group::start(GroupMember& member, boost::intrusive_ptr<Job> job, Entry place)
{
    bool isListed = false;
    {
        const Lock hold(mutex);
        isListed = listLocked(member);
    }
    if (!isListed) {
        job->drop();
    } else if (place == Entry::within) {
        home.submitNear(std::move(job));
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
    if (places != 0 && isCallersOwn()) {
        cancel();
        return Account();
    }
    const Job* const around = CurrentJob::ofThisThread();
    const StopListener listener(around, mutex, changed);
    if (isUnwinding || wasCutOff || !waitUnlessStopped(around)) {
        cancel();
        waitUnlessStopped(nullptr);
    }
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
