#include <ktasync/KTScopedPool.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

#include <boost/make_shared.hpp>

#include <kterror/KTError.h>
#include <ktthread/KTThread.h>
#include <ro/os.h>

#include <ktasync/detail/Start.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../base/Warnings.h"
#include "../job/CurrentJob.h"
#include "../scheduler/Scheduler.h"

namespace KT {

namespace {

/// More than any machine runs; a table of that many workers still fits.
const int mostThreads = 65536;

/// The limit of a pool for which none is chosen. Only tasks that block make it grow that far.
const int usualMost = 64;
const int usualMostPerProcessor = 8;

void check(bool isSensible, const char* option, int value, const std::string& range)
{
    if (!isSensible) {
        throw KTError(
            "KTPoolOptions", option,
            std::string(option) + " is " + std::to_string(value) + ": it must be " + range,
            __FILE__, __LINE__);
    }
}

const char* textOf(KTPoolOptions::Stuck stuck)
{
    switch (stuck) {
        case KTPoolOptions::Stuck::keepWaiting: return "waiting for them";
        case KTPoolOptions::Stuck::leave: return "leaving them";
        default: return "cutting them off";
    }
}

/// As KTThreadPool::close, for destructors: waits for memory that has run out, as for the rest.
bool closeSurely(KTThreadPool& pool, bool force, int timeoutMs)
{
    for (;;) {
        try {
            return pool.close(force, timeoutMs);
        } catch (const std::bad_alloc&) {
            ro::os::msleep(1);
        }
    }
}

/// Has the pool closed when its last task ends, whenever that is.
void closeLater(const boost::shared_ptr<KTThreadPool>& pool)
{
    try {
        std::thread([pool] {
            KTThread::setThreadName("KTPool closing");
            closeSurely(*pool, false, -1);
        }).detach();
    } catch (const std::exception&) {
        // No thread to be had: the pool then stays, unused, until the process ends.
    }
}

/// The last task in the core's queue: when a worker has released it, all that clients queued there
/// have begun.
class LastTask : public KTTask {
public:
    struct Release {
        std::mutex mutex;
        std::condition_variable changed;
        bool hasCome = false;  ///< under `mutex`
    };

    explicit LastTask(boost::shared_ptr<Release> releaseToTell) : release(std::move(releaseToTell))
    {
        setTaskName("close");
    }
    ~LastTask() override
    {
        const std::lock_guard<std::mutex> hold(release->mutex);
        release->hasCome = true;
        release->changed.notify_all();
    }
    void run() override {}

private:
    const boost::shared_ptr<Release> release;
};

void waitUntilCoreTasksBegan(KTThreadPool& pool, const detail::Deadline& end)
{
    try {
        const auto release = boost::make_shared<LastTask::Release>();
        pool.enqueue(boost::make_shared<LastTask>(release));
        std::unique_lock<std::mutex> hold(release->mutex);
        while (!release->hasCome && !end.isOver()) {
            end.wait(hold, release->changed);
        }
    } catch (const std::bad_alloc&) {
        // Then only the tasks of this library are waited for.
    }
}

std::string textOfUnfinished(int unfinished, const KTPoolOptions& options)
{
    return unfinished == 0 ? std::string()
                           : "tasks unfinished after " + std::to_string(options.finishTimeoutMs) +
                                 " ms: " + std::to_string(unfinished) +
                                 ", those not begun dropped, the others asked to stop";
}

std::string textOfStuck(const KTPoolOptions& options)
{
    return "tasks go on " + std::to_string(options.stopTimeoutMs) +
           " ms after they were asked to stop: " + textOf(options.stuck);
}

}  // namespace

KTScopedPool::KTScopedPool(const KTPoolOptions& chosen) : options(chosen)
{
    const int processors = availableProcessors();
    const int automatic =
        std::min(std::max(usualMost, processors * usualMostPerProcessor), mostThreads);
    const int most = options.maxThreads.value_or(std::max(automatic, options.threads.value_or(1)));
    const int threads = options.threads.value_or(std::min(processors, most));
    check(threads >= 1 && threads <= mostThreads, "threads", threads, "1 to 65536");
    check(most >= threads && most <= mostThreads, "maxThreads", most,
          std::to_string(threads) + " (threads) to 65536");
    check(options.monitorPeriod >= 0, "monitorPeriod", options.monitorPeriod, "0 or more");
    check(options.idleTimeoutMs != 0, "idleTimeoutMs", options.idleTimeoutMs,
          "1 or more, or negative");
    check(options.spinUs >= 0, "spinUs", options.spinUs, "0 or more");
    check(options.stopTimeoutMs >= 0, "stopTimeoutMs", options.stopTimeoutMs, "0 or more");
    start(threads, most);
}

void KTScopedPool::start(int threads, int most)
{
    maker = getpid();
    detail::SchedulerOptions ofScheduler;
    ofScheduler.threads = threads;
    ofScheduler.maxThreads = most;
    ofScheduler.isAdaptive = options.growth == KTPoolOptions::Growth::adaptive;
    ofScheduler.shrinks = ofScheduler.isAdaptive && options.idleTimeoutMs > 0;
    ofScheduler.idleTimeout = std::chrono::milliseconds(options.idleTimeoutMs);
    ofScheduler.spin = std::chrono::microseconds(options.spinUs);
    ofScheduler.processors = availableProcessors();
    const int period = ofScheduler.isAdaptive ? 0 : options.monitorPeriod;
    owned = boost::make_shared<KTThreadPool>(threads, most, period, 0, 0);
    try {
        scheduler = &detail::Scheduler::attachTo(owned, ofScheduler);
        owned->init(threads, most, period, 0, 0);
    } catch (...) {
        closeSurely(*owned, false, -1);
        throw;
    }
}

KTScopedPool::~KTScopedPool()
{
    close();
}

KTScopedPool::KTScopedPool(KTScopedPool&& other) noexcept
    : options(other.options),
      owned(std::move(other.owned)),
      scheduler(std::exchange(other.scheduler, nullptr)),
      maker(other.maker),
      isClosed(other.isClosed),
      hasEnded(other.hasEnded)
{
}

KTScopedPool& KTScopedPool::operator=(KTScopedPool&& other) noexcept
{
    if (this != &other) {
        close();
        options = other.options;
        owned = std::move(other.owned);
        scheduler = std::exchange(other.scheduler, nullptr);
        maker = other.maker;
        isClosed = other.isClosed;
        hasEnded = other.hasEnded;
    }
    return *this;
}

KTThreadPoolStatus KTScopedPool::status() const
{
    return KTPoolRef(*this).pool()->status();
}

bool KTScopedPool::close()
{
    if (!owned || std::exchange(isClosed, true) || maker != getpid()) {
        return hasEnded;
    }
    const detail::NoCancellation off;
    if (isInOwnTask()) {
        // Still running: what is in its queue is dropped, what runs is asked to stop.
        detail::logWarning("close", [] { return "closed by a task of its own: leaving them"; });
        closeSurely(*owned, false, 0);
        closeLater(owned);
        return false;
    }
    hasEnded = stopWork(finishWork());
    return hasEnded;
}

bool KTScopedPool::isInOwnTask() const
{
    // A task derived by hand, or what a worker lets go of between two tasks.
    if (owned->runningInThisThread()) {
        return true;
    }
    // A task that a thread elsewhere runs while it waits.
    return detail::CurrentJob::isAny(
        [this](const detail::Job& job) { return &job.scheduler() == scheduler; });
}

// Returns how many tasks haven't ended in time.
int KTScopedPool::finishWork()
{
    if (options.queued == KTPoolOptions::Queued::drop) {
        return 0;
    }
    const detail::Deadline end(options.finishTimeoutMs);
    waitUntilCoreTasksBegan(*owned, end);
    if (scheduler->waitUntilFinished(end) || owned->status().threads < 1) {
        return 0;
    }
    return scheduler->unfinished();
}

bool KTScopedPool::stopWork(int unfinished)
{
    if (closeSurely(*owned, false, options.stopTimeoutMs)) {
        if (unfinished > 0) {
            detail::logWarning("close", [&] { return textOfUnfinished(unfinished, options); });
        }
        return true;
    }
    detail::logWarning("close", [&] {
        const std::string before = textOfUnfinished(unfinished, options);
        return before + (before.empty() ? "" : "; ") + textOfStuck(options);
    });
    if (options.stuck == KTPoolOptions::Stuck::keepWaiting) {
        return closeSurely(*owned, false, -1);
    }
    if (options.stuck == KTPoolOptions::Stuck::force &&
        closeSurely(*owned, true, options.stopTimeoutMs)) {
        return true;
    }
    closeLater(owned);
    return false;
}

}  // namespace KT
