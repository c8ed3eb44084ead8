// What a carrier does between two pieces of work.
#include <chrono>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

#include <ktthread/KTThread.h>

#include "../base/Futex.h"
#include "../base/Pause.h"
#include "Carrier.h"
#include "Scheduler.h"

namespace KT {
namespace detail {

namespace {

/// How long a carrier goes on while tasks of the core's queue wait for a worker.
const std::chrono::milliseconds slice(2);

/// Each so many turns a carrier looks at the outer queue first, so that work which submits more of
/// its own doesn't keep that waiting.
const unsigned turnsPerOuterLook = 61;

}  // namespace

// For a carrier that is to be queued. Throws std::bad_alloc.
Runner& Scheduler::takeRunner()
{
    const std::lock_guard<BriefMutex> hold(mutex);
    if (Runner* const free = freeRunners) {
        freeRunners = free->nextFree;
        return *free;
    }
    const auto number = static_cast<std::size_t>(runnerCount);
    runners[number] = new Runner;
    runners[number].load()->shard = number;
    ++runnerCount;
    return *runners[number];
}

void Scheduler::giveBack(Runner& runner)
{
    const std::lock_guard<BriefMutex> hold(mutex);
    runner.current = nullptr;
    runner.nextFree = freeRunners;
    freeRunners = &runner;
}

// A carrier has got a worker. It is counted as one that searches since it was queued.
void Scheduler::enter(Runner& runner, CurrentWork& current)
{
    --unstarted;
    {
        const std::lock_guard<BriefMutex> hold(mutex);
        runner.current = &current;
    }
    runner.isSearching = true;
    runner.overtimeFrom = Watched::never;
    runner.shownName = ShortName("");
    runner.thread = static_cast<pid_t>(syscall(SYS_gettid));
}

WorkPointer Scheduler::next(Runner& runner, const Carrier& carrier)
{
    while (!carrier.isStopped() && !mustLeave(runner)) {
        if (WorkPointer work = find(runner)) {
            return work;
        }
        setSearching(runner, true);
        if (!spin() && !park(runner, carrier)) {
            break;
        }
    }
    return nullptr;
}

// The carrier begins the work that it has found: it calls the next one if there is more.
void Scheduler::found(Runner& runner)
{
    if (runner.isSearching) {
        setSearching(runner, false);
        if (hasWork()) {
            call();
        }
    }
}

WorkPointer Scheduler::find(Runner& runner)
{
    const bool isOuterFirst = ++runner.turns % turnsPerOuterLook == 0;
    if (!isOuterFirst) {
        if (WorkPointer work = runner.own.takeLast()) {
            return work;
        }
    }
    const std::size_t shards = outer.size();
    for (std::size_t i = 0; i < shards; ++i) {
        if (WorkPointer work = outer[(runner.shard + i) % shards]->takeFirst()) {
            return work;
        }
    }
    return isOuterFirst ? runner.own.takeLast() : steal(runner);
}

WorkPointer Scheduler::steal(const Runner& thief)
{
    for (int i = 0, known = runnerCount; i < known; ++i) {
        Runner& victim = *runners[static_cast<std::size_t>(i)].load();
        if (&victim != &thief) {
            if (WorkPointer work = victim.own.takeFirst()) {
                return work;
            }
        }
    }
    return nullptr;
}

void Scheduler::setSearching(Runner& runner, bool searches)
{
    if (runner.isSearching != searches) {
        runner.isSearching = searches;
        searching += searches ? 1 : -1;
    }
}

// Looks for work for a while without sleeping, as long as a processor has nothing else to do;
// whether there is some.
bool Scheduler::spin() const
{
    if (options.spin == Time::duration::zero()) {
        return hasWork();
    }
    const Time::time_point end = Time::now() + options.spin;
    do {
        if (hasWork()) {
            return true;
        }
        pause();
    } while (!isCrowded() && Time::now() < end);
    return false;
}

// Waits for a call; false if the carrier is to leave.
bool Scheduler::park(Runner& runner, const Carrier& carrier)
{
    idle.add(runner);
    setSearching(runner, false);
    // From here on a submission calls it. What was pushed before is to be seen here.
    if (hasWork() || carrier.isStopped()) {
        if (idle.remove(runner)) {
            setSearching(runner, true);
            return true;
        }
    } else {
        KTThread::setThreadName("KTThread [sleeping]");
        runner.shownName = ShortName("");
        // Unless somebody else calls the carrier, the clock does. With a time limit of its own,
        // each wake-up would first have to take back a timer.
        watch();
    }
    // Called, or about to be.
    while (runner.call == Runner::noCall) {
        futexWait(runner.call, Runner::noCall);
    }
    runner.isSearching = runner.call == Runner::callToWork;
    return runner.isSearching;
}

// Whether there are too many carriers, or others need the worker.
bool Scheduler::mustLeave(Runner& runner)
{
    return carriers > most || (coreTasks != runner.coreTasksSeen && isOvertime(runner));
}

bool Scheduler::isOvertime(Runner& runner)
{
    const Time::time_point now = Time::now();
    if (runner.overtimeFrom == Watched::never) {
        runner.overtimeFrom = now + slice;
    }
    return now >= runner.overtimeFrom;
}

// Gives the place back. The last carrier of a pool that stops drops what is left, and any other one
// is replaced if there is work for it.
void Scheduler::leave(Runner& runner, bool isStopped)
{
    while (WorkPointer work = runner.own.takeLast()) {
        outerQueue().putBack(std::move(work));
    }
    runner.thread = 0;
    const bool wasSearching = std::exchange(runner.isSearching, false);
    giveBack(runner);
    searching -= wasSearching ? 1 : 0;
    const bool isLast = --carriers == 0;
    if (isStopped && isLast) {
        abandonAll();
    } else if (!isStopped && hasWork()) {
        call();
    }
}

}  // namespace detail
}  // namespace KT
