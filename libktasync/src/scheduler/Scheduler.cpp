// A scheduler as a whole; how work comes in, and how carriers are called.
#include "Scheduler.h"

#include <algorithm>
#include <exception>
#include <new>
#include <typeinfo>
#include <utility>

#include <boost/make_shared.hpp>

#include <ktasync/KTPoolOptions.h>
#include "../base/Cancellation.h"
#include "../base/Warnings.h"
#include "Carrier.h"

namespace KT {
namespace detail {

namespace {

/// One queue is the fastest, and keeps the order of all submissions, until so many processors use
/// it that its cache lines can't keep up.
const int processorsPerShard = 16;

/// The clock's first look comes after this. Shorter than the later ones: tasks that block at once
/// then have more workers soon.
const std::chrono::microseconds firstLook(100);

std::size_t shardsFor(const SchedulerOptions& options)
{
    const int automatic = (options.processors + processorsPerShard - 1) / processorsPerShard;
    return static_cast<std::size_t>(options.shards > 0 ? options.shards : automatic);
}

/// Which shard the calling thread submits to, always the same.
std::size_t shardOfThisThread()
{
    static std::atomic<std::size_t> threads{0};
    static thread_local const std::size_t mine = threads++;
    return mine;
}

}  // namespace

Scheduler::Scheduler(const boost::shared_ptr<KTThreadPool>& pool, const SchedulerOptions& chosen)
    : admission(outer, chosen.maxQueued, chosen.whenFull),
      options(chosen),
      target(pool),
      probed(pool.get()),
      poolsLabel(poolLabel(pool->name())),
      listeners(probeListeners()),
      outer(shardsFor(chosen)),
      runners(static_cast<std::size_t>(chosen.maxThreads)),
      most(chosen.isAdaptive ? std::min(chosen.threads, chosen.processors) : chosen.maxThreads),
      concurrency(most, chosen.maxThreads, chosen.processors),
      period(firstLook),
      mostNeeded(chosen.idleTimeout)
{
    for (std::unique_ptr<WorkQueue>& queue : outer) {
        queue = std::make_unique<WorkQueue>();
    }
}

Scheduler::~Scheduler()
{
    abandonAll();
    for (int i = 0; i < runnerCount; ++i) {
        delete runners[static_cast<std::size_t>(i)];
    }
}

Scheduler& Scheduler::attachTo(const boost::shared_ptr<KTThreadPool>& pool,
                               const SchedulerOptions& options)
{
    const boost::intrusive_ptr<Scheduler> made(new Scheduler(pool, options));
    pool->attach(made);
    // Or another thread has been faster.
    return static_cast<Scheduler&>(*pool->extension());
}

Scheduler& Scheduler::of(const boost::shared_ptr<KTThreadPool>& pool)
{
    if (KTPoolExtension* const known = pool->extension()) {
        return static_cast<Scheduler&>(*known);
    }
    const KTThreadPoolStatus status = pool->status();
    SchedulerOptions options;
    options.threads = status.threads;
    options.maxThreads = std::max({status.maxThreads, status.threads, 1});
    options.processors = availableProcessors();
    return attachTo(pool, options);
}

WorkQueue& Scheduler::outerQueue()
{
    return *(outer.size() == 1 ? outer.front() : outer[shardOfThisThread() % outer.size()]);
}

bool Scheduler::submit(WorkPointer work)
{
    probeQueued(*work);
    outerQueue().push(std::move(work));
    return call();
}

bool Scheduler::submitAll(std::vector<WorkPointer> batch)
{
    queueAll(std::move(batch));
    return call();
}

void Scheduler::queueAll(std::vector<WorkPointer> batch)
{
    for (const WorkPointer& work : batch) {
        probeQueued(*work);
    }
    outerQueue().pushAll(std::move(batch));
}

bool Scheduler::submitNear(WorkPointer work)
{
    Runner* const runner = Carrier::runnerOfThisThread(*this);
    if (runner == nullptr) {
        return submit(std::move(work));
    }
    probeQueued(*work);
    runner->own.push(std::move(work));
    return call();
}

bool Scheduler::hasWork() const
{
    const auto isBusy = [](const std::unique_ptr<WorkQueue>& queue) { return !queue->isEmpty(); };
    if (std::any_of(outer.begin(), outer.end(), isBusy)) {
        return true;
    }
    for (int i = 0, known = runnerCount; i < known; ++i) {
        if (!runners[static_cast<std::size_t>(i)].load()->own.isEmpty()) {
            return true;
        }
    }
    return false;
}

std::size_t Scheduler::waiting() const
{
    std::size_t sum = 0;
    for (const std::unique_ptr<WorkQueue>& queue : outer) {
        sum += queue->size();
    }
    for (int i = 0, known = runnerCount; i < known; ++i) {
        sum += runners[static_cast<std::size_t>(i)].load()->own.size();
    }
    return sum;
}

// Of tasks that clients queue with the core: a carrier that waits for work is in their way, and one
// that works is to give its worker back in time. The core may lose their wake-up, too.
void Scheduler::tasksQueued()
{
    ++coreTasks;
    idle.callOneToLeave();
    watch();
}

// Sees to it that somebody takes what has just been queued. False if the pool takes no carrier.
bool Scheduler::call()
{
    if (wasStopped && isRefused()) {
        return false;
    }
    if (searching != 0) {
        return true;
    }
    if (idle.callOneToWork(searching)) {
        return true;
    }
    if (mayStart()) {
        return start();
    }
    watch();
    return true;
}

// Counts one more carrier, unless there are enough.
bool Scheduler::mayStart()
{
    int now = carriers;
    while (now < most) {
        if (carriers.compare_exchange_weak(now, now + 1)) {
            return true;
        }
    }
    return false;
}

// Queues a carrier, which is counted already.
bool Scheduler::start()
{
    const NoCancellation off;
    ++searching;
    ++unstarted;
    Runner* place = nullptr;
    boost::shared_ptr<Carrier> carrier;
    bool isRefused = false;
    try {
        place = &takeRunner();
        carrier = boost::make_shared<Carrier>(*this, *place);
        const boost::shared_ptr<KTThreadPool> pool = target.lock();
        isRefused = !pool || !pool->enqueue(carrier);
        if (!isRefused) {
            watch();
            return true;
        }
    } catch (const std::bad_alloc&) {
        // The clock will try again.
    } catch (const std::exception&) {
        // Of the console, which the core writes to when it has queued the carrier.
        watch();
        return true;
    }
    if (carrier) {
        carrier->disown();
    }
    if (place != nullptr) {
        giveBack(*place);
    }
    --unstarted;
    --searching;
    const bool isLast = --carriers == 0;
    if (isRefused && isLast) {
        abandonAll();
    } else if (!isRefused) {
        watch();
    }
    return !isRefused;
}

// Wakes the clock, unless it looks at this pool anyway.
void Scheduler::watch()
{
    if (!isWatched && !isWatched.exchange(true)) {
        Clock::instance().watch(*this, firstLook);
    }
}

void Scheduler::fireQueued(const Work& work) const
{
    KTPoolExtension::probeQueued(probed, work.name().data(), waiting() + 1);
}

void Scheduler::fireStarted(const Work& work) const
{
    KTPoolExtension::probeStarted(probed, work.name().data(), Carrier::workerOfThisThread(),
                                  waiting());
}

void Scheduler::fireEnded(const Work& work) const
{
    KTPoolExtension::probeEnded(probed, work.name().data(), Carrier::workerOfThisThread(),
                                waiting());
}

Runner* Scheduler::runnerOfThisThread() const
{
    return Carrier::runnerOfThisThread(*this);
}

}  // namespace detail
}  // namespace KT
