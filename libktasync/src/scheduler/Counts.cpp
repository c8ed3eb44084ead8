// What a scheduler counts: work that hasn't ended, and its share in the pool's figures.
#include <algorithm>
#include <mutex>

#include "../base/ParkingPlace.h"
#include "Carrier.h"
#include "Scheduler.h"

namespace KT {
namespace detail {

void Scheduler::workEnded()
{
    Runner* const runner = Carrier::runnerOfThisThread(*this);
    if (runner != nullptr) {
        const std::uint64_t before = runner->ended.load(std::memory_order_relaxed);
        runner->ended.store(before + 1, std::memory_order_release);
    } else {
        endedElsewhere.fetch_add(1, std::memory_order_release);
    }
    if (waiters.load(std::memory_order_relaxed) != 0) {
        tellWaiters(runner);
    }
}

// A carrier that has to wait for the mutex here isn't blocked in a client's call.
void Scheduler::tellWaiters(Runner* runner)
{
    const bool isInWork =
        runner != nullptr && runner->isInWork.exchange(false, std::memory_order_relaxed);
    {
        ParkingPlace& place = ParkingPlace::of(this);
        const std::lock_guard<std::mutex> hold(place.mutex);
        place.changed.notify_all();
    }
    if (isInWork) {
        runner->isInWork.store(true, std::memory_order_relaxed);
    }
}

std::uint64_t Scheduler::ended() const
{
    std::uint64_t sum = endedElsewhere.load(std::memory_order_acquire);
    const int known = runnerCount;
    for (int i = 0; i < known; ++i) {
        sum += runners[static_cast<std::size_t>(i)].load()->ended.load(std::memory_order_acquire);
    }
    return sum;
}

// What has ended is counted first: where both counts are equal, they were equal in between.
int Scheduler::unfinished() const
{
    const std::uint64_t gone = ended();
    std::uint64_t pushed = 0;
    for (const std::unique_ptr<WorkQueue>& queue : outer) {
        pushed += queue->pushed();
    }
    for (int i = 0, all = runnerCount; i < all; ++i) {
        pushed += runners[static_cast<std::size_t>(i)].load()->own.pushed();
    }
    return static_cast<int>(pushed - gone);
}

bool Scheduler::waitUntilFinished(const Deadline& end)
{
    // A thread that ends work looks at `waiters` without an order: it may miss this waiter.
    const int longestMs = 10;
    const auto isStopped = [this] {
        const boost::shared_ptr<KTThreadPool> pool = target.lock();
        return !pool || pool->status().threads < 1;
    };
    ++waiters;
    int milliseconds = 1;
    while (unfinished() != 0 && !end.isOver() && !isStopped()) {
        ParkingPlace& place = ParkingPlace::of(this);
        std::unique_lock<std::mutex> hold(place.mutex);
        sooner(end, Deadline(milliseconds)).wait(hold, place.changed);
        milliseconds = std::min(milliseconds * 2, longestMs);
    }
    --waiters;
    return unfinished() == 0;
}

std::vector<ShortName> Scheduler::namesOfRunning()
{
    std::vector<ShortName> names;
    names.reserve(runners.size());
    const std::lock_guard<BriefMutex> hold(mutex);
    for (int i = 0; i < runnerCount; ++i) {
        CurrentWork* const current = runners[static_cast<std::size_t>(i)].load()->current;
        if (Work* const work = current != nullptr ? current->hold() : nullptr) {
            names.push_back(work->fixedName());
            current->release();
        }
    }
    return names;
}

int Scheduler::carriersWithoutWork() const
{
    // Those in the core's queue count as searching, too.
    return idle.size() + std::max(searching - unstarted, 0);
}

int Scheduler::busyCarriers() const
{
    return std::max(carriers - unstarted - carriersWithoutWork(), 0);
}

void Scheduler::amend(KTThreadPoolStatus& status) const
{
    const int waitingWork = static_cast<int>(waiting());
    status.queuedTasks = std::max(status.queuedTasks - unstarted, 0) + waitingWork;
    status.busyThreads = std::max(status.busyThreads - carriersWithoutWork(), 0);
}

}  // namespace detail
}  // namespace KT
