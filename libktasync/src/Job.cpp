#include <ktasync/detail/Job.h>

#include <cstdio>
#include <utility>

#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPool.h>

#include <ktasync/KTCancelled.h>
#include <ktasync/KTStopToken.h>

#include "Cancellation.h"
#include "CurrentJob.h"
#include "Deadline.h"
#include "PoolContext.h"

namespace KT {
namespace detail {

thread_local Job* CurrentJob::innermost = nullptr;
thread_local bool CurrentJob::showsName = false;

namespace {

using Clock = std::chrono::steady_clock;

/// Without an allocation: a job that is claimed must not fail to begin.
void showName(const Job& job)
{
    if (CurrentJob::showsName) {
        char name[40];
        const std::string_view task = job.name();
        std::snprintf(name, sizeof name, "KTTask: %.*s [running]", static_cast<int>(task.size()),
                      task.data());
        KTThread::setThreadName(name);
    }
}

}  // namespace

/// The time in which the calling thread runs a job: ends the job, whichever way it is left.
class Turn {
public:
    explicit Turn(Job& jobToRun) : job(jobToRun)
    {
        job.outer = std::exchange(CurrentJob::innermost, &job);
        if (job.outer != nullptr) {
            job.outer->setInner(&job);
            showName(job);
        }
        if (job.isTimed) {
            job.startedAt = Clock::now();
        }
    }

    /// Left without `end`: the thread was cancelled.
    ~Turn()
    {
        if (!ended) {
            end(Outcome::lost, nullptr);
        }
    }

    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    void end(Outcome outcome, std::exception_ptr error)
    {
        ended = true;
        CurrentJob::innermost = job.outer;
        if (job.outer != nullptr) {
            job.outer->setInner(nullptr);
            showName(*job.outer);
        }
        job.finish(outcome, std::move(error));
    }

private:
    Job& job;
    bool ended = false;
};

Job::Job(const KTPoolRef& pool, std::string_view name)
    : target(pool.pool()), context(pool.context()), shortName(name)
{
    begin();
}

Job::Job(const Job& other, std::string_view name)
    : boost::intrusive_ref_counter<Job>(),
      target(other.target),
      context(other.context),
      shortName(name)
{
    begin();
}

void Job::begin()
{
    if (context) {
        context->jobMade();
        isTimed = context->isObserved();
    }
    if (isTimed) {
        queuedAt = Clock::now();
    }
}

Job::~Job()
{
    if (context && !isFinished) {
        context->jobEnded();
    }
}

Job* Job::current()
{
    return CurrentJob::innermost;
}

KTStopToken Job::token() const
{
    return KTStopToken(this);
}

void Job::wakePool()
{
    const boost::shared_ptr<KTThreadPool> pool = target.lock();
    if (!pool || pool->status().threads < 1) {
        drop(Outcome::lost);
    } else {
        pool->wake();
    }
}

bool Job::claim()
{
    if (isClaimed.exchange(true)) {
        return false;
    }
    claimed();
    return true;
}

void Job::run()
{
    const NoCancellation off;
    Turn turn(*this);
    Outcome outcome = Outcome::done;
    // Ends after the handlers do: nobody but who waits then holds the exception, and destroys it.
    std::exception_ptr error;
    try {
        const CancellationAsBefore asBefore(off);
        invoke();
    } catch (const KTCancelled&) {
        outcome = Outcome::cancelled;
        error = std::current_exception();
    } catch (...) {
        outcome = Outcome::failed;
        error = std::current_exception();
        if (!error) {
            unwindOn();
        }
    }
    turn.end(outcome, std::move(error));
}

bool Job::drop(Outcome outcome)
{
    const NoCancellation off;
    if (!claim()) {
        return false;
    }
    finish(outcome, nullptr);
    return true;
}

void Job::finish(Outcome outcome, std::exception_ptr error)
{
    isFinished = true;
    // What the job was given is destroyed inside of it: a group or a pool in there must not wait
    // for this very job.
    outer = std::exchange(CurrentJob::innermost, this);
    discard();
    CurrentJob::innermost = outer;
    // Before anybody hears of the end: who then looks at the figures finds the task in them.
    if (isTimed) {
        report(outcome);
    }
    conclude(outcome, std::move(error));
    if (context) {
        context->jobEnded();
    }
}

void Job::report(Outcome outcome) const
{
    const Clock::time_point now = Clock::now();
    const bool hasRun = startedAt != Clock::time_point();
    const Clock::time_point start = hasRun ? startedAt : now;
    context->report({name(), outcome, start - queuedAt, hasRun, now - start});
}

void Job::requestStop()
{
    boost::intrusive_ptr<Job> job(this);
    while (job) {
        boost::intrusive_ptr<Job> next;
        {
            const std::lock_guard<std::mutex> hold(job->mutex);
            job->stop = true;
            job->changed.notify_all();
            next = job->inner;
        }
        job = std::move(next);
    }
}

void Job::setInner(Job* job)
{
    boost::intrusive_ptr<Job> previous(job);
    bool stopped = false;
    {
        const std::lock_guard<std::mutex> hold(mutex);
        inner.swap(previous);
        stopped = stop;
    }
    if (stopped && job != nullptr) {
        job->requestStop();
    }
}

bool Job::waitForStop(int milliseconds) const
{
    const Deadline end(milliseconds);
    std::unique_lock<std::mutex> hold(mutex);
    while (!stop) {
        if (end.isOver()) {
            return false;
        }
        end.wait(hold, changed);
    }
    return true;
}

}  // namespace detail
}  // namespace KT
