#include <ktasync/KTScopedPool.h>

#include <algorithm>
#include <exception>
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

#include "Cancellation.h"
#include "Deadline.h"
#include "PoolContext.h"
#include "Warnings.h"

namespace KT {

namespace {

/// More than any machine runs; a table of that many workers still fits.
const int mostThreads = 65536;

const int threadsPerProcessor = 8;

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
    const int automatic = std::min(processors * threadsPerProcessor, mostThreads);
    const int most = options.maxThreads.value_or(std::max(automatic, options.threads.value_or(1)));
    const int threads = options.threads.value_or(std::min(processors, most));
    check(threads >= 1 && threads <= mostThreads, "threads", threads, "1 to 65536");
    check(most >= threads && most <= mostThreads, "maxThreads", most,
          std::to_string(threads) + " (threads) to 65536");
    check(options.monitorPeriod >= 0, "monitorPeriod", options.monitorPeriod, "0 or more");
    check(options.stopTimeoutMs >= 0, "stopTimeoutMs", options.stopTimeoutMs, "0 or more");
    start(threads, most);
}

void KTScopedPool::start(int threads, int most)
{
    maker = getpid();
    owned = boost::make_shared<KTThreadPool>(threads, most, options.monitorPeriod, 0, 0);
    try {
        context = detail::PoolContext::of(owned);
        owned->init(threads, most, options.monitorPeriod, 0, 0);
    } catch (...) {
        closeSurely(*owned, false, -1);
        throw;
    }
}

KTScopedPool::~KTScopedPool()
{
    close();
}

KTScopedPool::KTScopedPool(KTScopedPool&& other) noexcept = default;

KTScopedPool& KTScopedPool::operator=(KTScopedPool&& other) noexcept
{
    if (this != &other) {
        close();
        options = other.options;
        owned = std::move(other.owned);
        context = std::move(other.context);
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
    const detail::Job* job = detail::Job::current();
    while (job != nullptr && !job->belongsTo(context.get())) {
        job = job->around();
    }
    return job != nullptr;
}

// Returns how many tasks haven't ended in time.
int KTScopedPool::finishWork()
{
    if (options.queued == KTPoolOptions::Queued::drop) {
        return 0;
    }
    // The last one in the queue: when it has ended, all that the core queued have begun too.
    boost::intrusive_ptr<detail::FutureJob> last;
    try {
        last = detail::Start::make(KTPoolRef(*this), "close", [] {});
        detail::enqueue(*this, last, "close");
    } catch (const std::bad_alloc&) {
        // Then only the tasks of this library are waited for.
    }
    if (context->waitForNone(detail::Deadline(options.finishTimeoutMs)) ||
        owned->status().threads < 1) {
        return 0;
    }
    const int itself = last && !last->isReady() ? 1 : 0;
    return context->jobsInFlight() - itself;
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
