#include <ktasync/detail/Job.h>

#include <atomic>
#include <cstdint>
#include <utility>

#include <pthread.h>

#include <ktasync/KTStopToken.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../base/ParkingPlace.h"
#include "../scheduler/Carrier.h"
#include "../scheduler/Scheduler.h"
#include "../scheduler/ThreadName.h"
#include "CurrentJob.h"
#include "StopListener.h"
#include "outcomeOf.h"

namespace KT {
namespace detail {

thread_local const CurrentJob* CurrentJob::innermost = nullptr;
thread_local bool CurrentJob::showsName = false;

// Each thread takes many at a time.
std::uintptr_t CurrentJob::numberOfInnermost()
{
    const std::uintptr_t atATime = 4096;
    static std::atomic<std::uintptr_t> firstFree{1};
    static thread_local std::uintptr_t next = 0;
    static thread_local std::uintptr_t end = 0;
    if (innermost->number == 0) {
        if (next == end) {
            next = firstFree.fetch_add(atATime, std::memory_order_relaxed);
            end = next + atATime;
        }
        innermost->number = next++;
    }
    return innermost->number;
}

namespace {

/// Names the calling thread after `job`, unless it is named after `before`, which is called the
/// same.
void show(const Job& job, const Job& before)
{
    if (!(job.fixedName() == before.fixedName()) &&
        (CurrentJob::showsName || Carrier::isThisThread())) {
        showTaskName(job.name());
    }
}

}  // namespace

/// The time in which the calling thread runs a job: ends the job, whichever way it is left.
class JobTurn {
public:
    explicit JobTurn(Job& jobToRun) : job(jobToRun), frame{&jobToRun, CurrentJob::innermost}
    {
        CurrentJob::innermost = &frame;
        if (frame.around != nullptr) {
            const std::uintptr_t maker = job.inner.number();
            frame.around->job->beginInner(job, maker != 0 && maker == frame.around->number);
            show(job, *frame.around->job);
        }
        if (job.queuedAt != Time::time_point()) {
            startedAt = Time::now();
        }
        job.home.probeStarted(job);
    }

    /// Left without `end`: the thread was cancelled.
    ~JobTurn()
    {
        if (!ended) {
            end(Outcome::lost, nullptr);
        }
    }

    JobTurn(const JobTurn&) = delete;
    JobTurn& operator=(const JobTurn&) = delete;

    void end(Outcome outcome, std::exception_ptr error)
    {
        ended = true;
        job.home.probeEnded(job);
        CurrentJob::innermost = frame.around;
        if (frame.around != nullptr) {
            frame.around->job->inner.end();
            show(*frame.around->job, job);
        }
        job.finish(outcome, std::move(error), startedAt);
    }

private:
    Job& job;
    const CurrentJob frame;
    Time::time_point startedAt;
    bool ended = false;
};

Job::Job(Scheduler& ofPool, std::string_view name)
    : Work(name),
      home(ofPool),
      queuedAt(ofPool.observers.isEmpty() ? Time::time_point() : Time::now()),
      inner(CurrentJob::numberOfThisThread())
{
}

Job::Job(Scheduler& ofPool, std::string_view name, NeverRun /*unused*/) : Work(name), home(ofPool)
{
}

Job::~Job() = default;

KTStopToken Job::token() const
{
    return KTStopToken(this);
}

bool Job::claim()
{
    if ((state.fetch_or(claimedMark) & claimedMark) != 0) {
        return false;
    }
    leaveQueue();
    home.admission.left();
    claimed();
    return true;
}

void Job::execute()
{
    if (claim()) {
        runBody(PTHREAD_CANCEL_ENABLE);
    }
}

void Job::run()
{
    const NoCancellation off;
    runBody(off.before());
}

// With cancellation disabled around the call.
void Job::runBody(int cancelStateOfCall)
{
    JobTurn turn(*this);
    std::exception_ptr error;
    const Outcome outcome = outcomeOf(
        [this, cancelStateOfCall] {
            const CancelState asGiven(cancelStateOfCall);
            invoke();
        },
        error);
    turn.end(outcome, std::move(error));
}

void Job::abandon()
{
    drop(Outcome::lost);
}

bool Job::drop(Outcome outcome)
{
    const NoCancellation off;
    if (!claim()) {
        return false;
    }
    finish(outcome, nullptr, Time::time_point());
    return true;
}

void Job::finish(Outcome outcome, std::exception_ptr error, Time::time_point startedAt)
{
    {
        // What the job was given is destroyed inside of it: a group or a pool in there must not
        // wait for this very job.
        const InJob frame(*this);
        discard();
    }
    // Before anybody hears of the end: who then looks at the figures finds the task in them.
    if (queuedAt != Time::time_point()) {
        report(outcome, startedAt);
    }
    conclude(outcome, std::move(error));
    if ((state.fetch_or(ended, std::memory_order_relaxed) & counted) != 0) {
        home.workEnded();
    }
}

void Job::report(Outcome outcome, Time::time_point startedAt) const
{
    const Time::time_point now = Time::now();
    const bool hasRun = startedAt != Time::time_point();
    const Time::time_point start = hasRun ? startedAt : now;
    home.observers.report({name(), outcome, start - queuedAt, hasRun, now - start});
}

void Job::requestStop()
{
    requestStop(CurrentWork::Stop::ofThread);
}

void Job::requestStopOfOwn()
{
    requestStop(CurrentWork::Stop::ofTask);
}

// Jobs may be nested deeply: without recursion. Each is kept from ending by the one around it. What
// a job runs after it has seen its mark is to begin with a mark, too: hence the mark comes second.
void Job::requestStop(CurrentWork::Stop stop)
{
    Job* job = this;
    CurrentWork* holding = nullptr;
    while (job != nullptr) {
        CurrentWork& next = job->inner;
        const bool isMeant = holding == nullptr || stop == CurrentWork::Stop::ofThread ||
                             (job->state & foreignMark) == 0;
        Job* const nested = isMeant ? static_cast<Job*>(next.stopAndHold(stop)) : nullptr;
        if (isMeant) {
            job->raiseMark();
        }
        if (holding != nullptr) {
            holding->release();
        }
        holding = nested != nullptr ? &next : nullptr;
        job = nested;
    }
}

void Job::raiseMark()
{
    ParkingPlace& place = ParkingPlace::of(this);
    const std::lock_guard<std::mutex> hold(place.mutex);
    state |= stopMark;
    place.changed.notify_all();
    StopListener::notifyLocked(place, *this);
}

// The job is noted first: a stop that comes afterwards finds it, and one that came before is seen.
void Job::beginInner(Job& job, bool isOwn)
{
    if (!isOwn) {
        job.state |= foreignMark;
    }
    if (!inner.begin(job)) {
        job.requestStop();
    } else if (isOwn && inner.isStopped(CurrentWork::Stop::ofTask)) {
        job.requestStopOfOwn();
    }
}

bool Job::waitForStop(int milliseconds) const
{
    const Deadline end(milliseconds);
    ParkingPlace& place = ParkingPlace::of(this);
    std::unique_lock<std::mutex> hold(place.mutex);
    while (!stopRequested()) {
        if (end.isOver()) {
            return false;
        }
        end.wait(hold, place.changed);
    }
    return true;
}

}  // namespace detail
}  // namespace KT
