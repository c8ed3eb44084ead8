#include <ktasync/detail/FutureJob.h>

#include <new>
#include <string>

#include <boost/make_shared.hpp>

#include <kterror/KTError.h>
#include <ro/log.h>

#include <ktasync/KTCancelled.h>
#include <ktasync/KTFuture.h>

#include "Cancellation.h"
#include "Deadline.h"
#include "PoolTask.h"
#include "Warnings.h"

namespace KT {
namespace detail {

void refuseEmptyFuture(const char* method)
{
    throw KTError("KTFuture", method, "the future has no task", __FILE__, __LINE__);
}

namespace {

void refuseIfAround(const Job& awaited)
{
    for (const Job* job = Job::current(); job != nullptr; job = job->around()) {
        if (job == &awaited) {
            throw KTError("KTFuture", "wait", "called in the task that it waits for", __FILE__,
                          __LINE__);
        }
    }
}

}  // namespace

FutureJob::~FutureJob()
{
    if (how == Outcome::failed && failure) {
        logUnseen(name(), failure);
    }
}

void FutureJob::claimed()
{
    boost::intrusive_ptr<FutureJob> done;
    const std::lock_guard<std::mutex> hold(mutex);
    done.swap(source);
}

void FutureJob::conclude(Outcome outcome, std::exception_ptr error)
{
    boost::shared_ptr<PoolTask> next;
    {
        const std::lock_guard<std::mutex> hold(mutex);
        how = outcome;
        failure = std::move(error);
        next.swap(continuation);
        ready.store(true, std::memory_order_release);
        changed.notify_all();
    }
    if (next) {
        // A pool that stops takes tasks for a moment yet, and never runs them.
        PoolTask::passOn(std::move(next), outcome == Outcome::lost);
    }
}

bool FutureJob::wait(int milliseconds)
{
    const Deadline end(milliseconds);
    Path path;
    while (!isReady()) {
        boost::intrusive_ptr<FutureJob> awaited(this);
        if (current() != nullptr) {
            // In a task there may be no other worker left to run it.
            awaited = firstUnfinished(path);
            if (!end.isOver() && awaited->claim()) {
                runForWaiter(*awaited);
                continue;
            }
            refuseIfAround(*awaited);
        }
        if (!awaited->waitForEnd(end)) {
            return isReady();
        }
    }
    return true;
}

// This job, or the one that must end before it can begin, or the one before that, and so on. `path`
// keeps the way there, or a long chain would be walked anew for each of its jobs.
boost::intrusive_ptr<FutureJob> FutureJob::firstUnfinished(Path& path)
{
    while (!path.empty() && path.back()->isReady()) {
        path.pop_back();
    }
    boost::intrusive_ptr<FutureJob> first = path.empty() ? this : path.back();
    for (;;) {
        boost::intrusive_ptr<FutureJob> before;
        {
            const std::lock_guard<std::mutex> hold(first->mutex);
            before = first->source;
        }
        if (!before || before->isReady()) {
            return first;
        }
        first = std::move(before);
        try {
            path.push_back(first);
        } catch (const std::bad_alloc&) {
            // Then some of it is walked again.
        }
    }
}

bool FutureJob::waitForEnd(const Deadline& end)
{
    std::unique_lock<std::mutex> hold(mutex);
    while (!isReady()) {
        if (!waitForWorkers(hold, changed, end, [this] { wakePool(); })) {
            return false;
        }
    }
    return true;
}

void FutureJob::rethrowFailure()
{
    if (how == Outcome::done) {
        return;
    }
    if (failure) {
        std::rethrow_exception(std::exchange(failure, nullptr));
    }
    throw KTCancelled(std::string(name()));
}

bool FutureJob::cancel()
{
    if (drop()) {
        return true;
    }
    requestStop();
    return false;
}

void FutureJob::attach(const boost::intrusive_ptr<FutureJob>& next, std::string_view nextName)
{
    boost::shared_ptr<PoolTask> task = boost::make_shared<PoolTask>(next, nextName);
    {
        const std::lock_guard<std::mutex> hold(mutex);
        if (!isReady()) {
            next->source = this;
            continuation = std::move(task);
            return;
        }
    }
    PoolTask::queue(std::move(task));
}

}  // namespace detail
}  // namespace KT
