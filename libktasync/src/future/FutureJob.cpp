#include <ktasync/detail/FutureJob.h>

#include <new>
#include <string>

#include <kterror/KTError.h>

#include <ktasync/KTCancelled.h>
#include <ktasync/KTFuture.h>
#include <ktasync/KTStopToken.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../base/ParkingPlace.h"
#include "../base/Warnings.h"
#include "../job/CurrentJob.h"
#include "../scheduler/Scheduler.h"
#include "Backlog.h"

namespace KT {
namespace detail {

void refuseEmptyFuture(const char* method)
{
    throw KTError("KTFuture", method, "the future has no task", __FILE__, __LINE__);
}

namespace {

void refuseIfAround(const Job& awaited)
{
    if (CurrentJob::isAny([&awaited](const Job& job) { return &job == &awaited; })) {
        throw KTError("KTFuture", "wait", "called in the task that it waits for", __FILE__,
                      __LINE__);
    }
}

}  // namespace

FutureJob::FutureJob(Scheduler& ofPool, std::string_view name) : Job(ofPool, name)
{
    intrusive_ptr_add_ref(&ofPool);
}

FutureJob::FutureJob(Scheduler& ofPool, std::string_view name, NeverRun never)
    : Job(ofPool, name, never)
{
    intrusive_ptr_add_ref(&ofPool);
    state = neverRunMark;
}

FutureJob::~FutureJob()
{
    intrusive_ptr_release(&scheduler());
}

Outcome FutureJob::outcome() const
{
    return static_cast<Outcome>(state >> outcomeShift);
}

void FutureJob::claimed()
{
    if ((state & followsMark) != 0) {
        boost::intrusive_ptr<FutureJob> done;
        const std::lock_guard<std::mutex> hold(ParkingPlace::of(this).mutex);
        done.swap(source);
    }
}

void FutureJob::conclude(Outcome outcome, std::exception_ptr error)
{
    failure = std::move(error);
    const auto how = static_cast<unsigned short>(static_cast<unsigned>(outcome) << outcomeShift);
    const unsigned short before = state.fetch_or(readyMark | how);
    if ((before & (awaitedMark | followedMark)) != 0) {
        tellOfEnd(outcome);
    }
    if ((before & forsakenMark) != 0) {
        const InJob frame(*this);
        forget();
    }
}

void FutureJob::tellOfEnd(Outcome outcome)
{
    boost::intrusive_ptr<FutureJob> next;
    {
        ParkingPlace& place = ParkingPlace::of(this);
        const std::lock_guard<std::mutex> hold(place.mutex);
        next.swap(continuation);
        place.changed.notify_all();
    }
    if (next) {
        // A pool that stops takes tasks for a moment yet, and never runs them.
        Backlog::passOn(std::move(next), outcome == Outcome::lost);
    }
}

void FutureJob::forsake()
{
    if ((state.fetch_or(forsakenMark) & readyMark) != 0) {
        forget();
    }
}

// Of the end and the last share, what comes second does it.
void FutureJob::forget()
{
    if (failure && outcome() == Outcome::failed) {
        logUnseen(scheduler().label(), name(), failure);
    }
    failure = nullptr;
    destroyResult();
}

bool FutureJob::wait(int milliseconds)
{
    const Deadline end(milliseconds);
    Path path;
    while (!isReady()) {
        boost::intrusive_ptr<FutureJob> awaited(this);
        if (CurrentJob::innermost != nullptr) {
            awaited = firstUnfinished(path);
            // In a task of this pool there may be no other worker left to run it. One of another
            // pool leaves it to this one's workers: their number may be a promise.
            if ((awaited->state & neverRunMark) == 0 && CurrentJob::isAnyOf(scheduler()) &&
                !end.isOver() && awaited->claim()) {
                runForWaiter(*awaited);
                continue;
            }
            refuseIfAround(*awaited);
        }
        if (!awaited->waitForEnd(*this, end)) {
            return isReady();
        }
    }
    return true;
}

// This job, or the one that must end before it can begin, or the one before that, and so on. `path`
// keeps the way there, or a long chain would be walked again for each of its jobs.
boost::intrusive_ptr<FutureJob> FutureJob::firstUnfinished(Path& path)
{
    while (!path.empty() && path.back()->isReady()) {
        path.pop_back();
    }
    boost::intrusive_ptr<FutureJob> first = path.empty() ? this : path.back();
    for (;;) {
        boost::intrusive_ptr<FutureJob> before = first->inFront();
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

// Until this job has ended, or `wanted`, which follows it: that may be cancelled before.
bool FutureJob::waitForEnd(const FutureJob& wanted, const Deadline& end)
{
    ParkingPlace& place = ParkingPlace::of(this);
    std::unique_lock<std::mutex> hold(place.mutex);
    while ((state.fetch_or(awaitedMark) & readyMark) == 0 && !wanted.isReady()) {
        if (end.isOver()) {
            return false;
        }
        end.wait(hold, place.changed);
    }
    return true;
}

void FutureJob::rethrowFailure()
{
    if (outcome() == Outcome::done) {
        return;
    }
    if (failure) {
        std::rethrow_exception(std::exchange(failure, nullptr));
    }
    throw KTCancelled(std::string(name()));
}

bool FutureJob::cancel()
{
    const boost::intrusive_ptr<FutureJob> front = inFront();
    if (!drop()) {
        requestStopOfOwn();
        return false;
    }
    if ((state & neverRunMark) != 0) {
        raiseMark();  // somebody is at it, though no thread runs it
    }
    if (front) {
        // A task that waits for this job sleeps where the first one before it ends.
        Path path;
        ParkingPlace& place = ParkingPlace::of(front->firstUnfinished(path).get());
        const std::lock_guard<std::mutex> hold(place.mutex);
        place.changed.notify_all();
    }
    return true;
}

boost::intrusive_ptr<FutureJob> FutureJob::inFront() const
{
    const std::lock_guard<std::mutex> hold(ParkingPlace::of(this).mutex);
    return source;
}

KTStopToken FutureJob::stopToken() const
{
    return token();
}

void FutureJob::attach(const boost::intrusive_ptr<FutureJob>& next)
{
    {
        const std::lock_guard<std::mutex> hold(ParkingPlace::of(this).mutex);
        continuation = next;
        next->source = this;
        next->state |= followsMark;
        if ((state.fetch_or(followedMark) & readyMark) == 0) {
            return;
        }
        // Too late: the end has been told already.
        continuation.reset();
        next->source.reset();
    }
    Backlog::queue(next);
}

}  // namespace detail
}  // namespace KT
