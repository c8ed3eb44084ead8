// How threads wait for a group's tasks, and run them meanwhile.
#include <ktasync/detail/Group.h>

#include <atomic>
#include <utility>

#include <kterror/KTError.h>
#include <ktthread/KTThreadPool.h>

#include "../base/Deadline.h"
#include "../base/Pause.h"
#include "../job/CurrentJob.h"
#include "../scheduler/Scheduler.h"

namespace KT {
namespace detail {

namespace {

/// How often a waiter looks for work before it sleeps: for about as long as a sleep and a wake-up
/// would cost, or, where the thread that it waits for may need the processor, some microseconds.
const int looksBeforeSleep = 600;
const int looksWhereCrowded = 50;

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

bool Group::wait(int milliseconds)
{
    if (places == 0) {
        return true;
    }
    const Deadline end(milliseconds);
    bool mayBlock = false;
    while (places != 0) {
        Lock hold(mutex);
        if (waiting.empty() && !std::exchange(mayBlock, true) && isCallersOwn()) {
            throw KTError("KTTaskGroup", "wait",
                          "called in a task of the group, which it waits for", __FILE__, __LINE__);
        }
        if (!runOneOrWait(std::move(hold), end)) {
            return false;
        }
    }
    return true;
}

// As `wait`, outside of the group's tasks: false as soon as `heeded` is asked to stop.
bool Group::waitUnlessStopped(const Job* heeded)
{
    while (places != 0) {
        Lock hold(mutex);
        if (heeded != nullptr && heeded->stopRequested()) {
            return false;
        }
        runOneOrWait(std::move(hold), Deadline(-1));
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

// Releases the lock before it returns: as a rule nothing is left then, and `places` tells that.
bool Group::runOneOrWait(Lock hold, const Deadline& end)
{
    if (end.isOver()) {
        return false;
    }
    CutOff cutOff(wasCutOff);
    if (mayRunTasks(end)) {
        runOneOrSleep(std::move(hold), end);
    } else {
        end.wait(hold, changed);
    }
    cutOff.over();
    return true;
}

void Group::runOneOrSleep(Lock hold, const Deadline& end)
{
    boost::intrusive_ptr<Job> job = takeWaitingLocked();
    const int most = home.isCrowded() ? looksWhereCrowded : looksBeforeSleep;
    for (int looks = 0; !job && places != 0 && thief != nullptr && looks < most; ++looks) {
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
    } else if (places != 0 && waiting.empty()) {
        end.wait(hold, changed);
    }
}

}  // namespace detail
}  // namespace KT
