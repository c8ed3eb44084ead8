#include "PoolEnd.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

#include <boost/make_shared.hpp>

#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPool.h>
#include <ro/os.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../base/Warnings.h"
#include "../job/CurrentJob.h"
#include "../scheduler/Scheduler.h"

namespace KT {
namespace detail {

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

namespace {

/// The names of running tasks that a log record has room for.
const std::size_t mostNames = 8;

const char* textOf(KTPoolOptions::Stuck stuck)
{
    switch (stuck) {
        case KTPoolOptions::Stuck::keepWaiting: return "waiting for them";
        case KTPoolOptions::Stuck::leave: return "leaving them";
        default: return "cutting them off";
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

/// Null without memory: then only the tasks of this library are waited for.
boost::shared_ptr<LastTask::Release> queueLastTask(KTThreadPool& pool)
{
    try {
        auto release = boost::make_shared<LastTask::Release>();
        pool.enqueue(boost::make_shared<LastTask>(release));
        return release;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool waitFor(LastTask::Release& release, const Deadline& end)
{
    std::unique_lock<std::mutex> hold(release.mutex);
    while (!release.hasCome && !end.isOver()) {
        end.wait(hold, release.changed);
    }
    return release.hasCome;
}

}  // namespace

PoolEnd::PoolEnd(const KTPoolOptions& chosen, boost::shared_ptr<KTThreadPool> ofPool,
                 Scheduler& ofScheduler)
    : options(chosen), pool(std::move(ofPool)), scheduler(ofScheduler), maker(getpid())
{
}

template <typename MakeText>
void PoolEnd::report(const MakeText& makeText) const
{
    logWarning("close", [&] { return scheduler.label() + makeText(); });
}

bool PoolEnd::close()
{
    if (maker != getpid()) {
        return false;
    }
    const NoCancellation off;
    if (isInOwnTask()) {
        scheduler.admission.close();
        if (options.queued == KTPoolOptions::Queued::drop) {
            closeSurely(*pool, false, 0);
        }
        return false;
    }
    const std::lock_guard<std::mutex> hold(mutex);
    if (!std::exchange(isDone, true)) {
        hasEnded = stopWork(finishWork());
    }
    return hasEnded;
}

void PoolEnd::closeForGood()
{
    if (maker != getpid()) {
        return;
    }
    if (!isInOwnTask()) {
        close();
        return;
    }
    const NoCancellation off;
    const std::lock_guard<std::mutex> hold(mutex);
    if (!std::exchange(isDone, true)) {
        // Still running: what is in its queue is dropped, what runs is asked to stop.
        report([] { return "destroyed by a task of its own: leaving them"; });
        closeSurely(*pool, false, 0);
        closeLater(pool);
    }
}

bool PoolEnd::isInOwnTask() const
{
    // A task derived by hand, or what a worker releases between two tasks.
    if (pool->runningInThisThread()) {
        return true;
    }
    // A task that a thread elsewhere runs while it waits.
    return CurrentJob::isAnyOf(scheduler);
}

// Returns how many tasks haven't ended in time.
int PoolEnd::finishWork()
{
    if (options.queued == KTPoolOptions::Queued::drop) {
        return 0;
    }
    const Deadline end(options.finishTimeoutMs);
    const boost::shared_ptr<LastTask::Release> last = queueLastTask(*pool);
    const auto isFinishedBy = [&](const Deadline& limit) {
        return (!last || waitFor(*last, limit)) && scheduler.waitUntilFinished(limit);
    };
    const auto isStopped = [this] { return pool->status().threads < 1; };
    if (!isFinishedBy(sooner(end, Deadline(options.reportAfterMs))) && !end.isOver() &&
        !isStopped()) {
        report([this] {
            return "not finished after " + std::to_string(options.reportAfterMs) + " ms" +
                   textOfRunning() + ": waiting on";
        });
        isFinishedBy(end);
    }
    return isStopped() ? 0 : scheduler.unfinished();
}

bool PoolEnd::stopWork(int unfinished)
{
    if (closeSurely(*pool, false, options.stopTimeoutMs)) {
        if (unfinished > 0) {
            report([&] { return textOfUnfinished(unfinished); });
        }
        return true;
    }
    report([&] {
        const std::string before = textOfUnfinished(unfinished);
        return before + (before.empty() ? "" : "; ") + textOfStuck();
    });
    if (options.stuck == KTPoolOptions::Stuck::keepWaiting) {
        return closeSurely(*pool, false, -1);
    }
    if (options.stuck == KTPoolOptions::Stuck::force &&
        closeSurely(*pool, true, options.stopTimeoutMs)) {
        return true;
    }
    closeLater(pool);
    return false;
}

std::string PoolEnd::textOfUnfinished(int unfinished) const
{
    return unfinished == 0 ? std::string()
                           : "tasks unfinished after " + std::to_string(options.finishTimeoutMs) +
                                 " ms: " + std::to_string(unfinished) +
                                 ", those not begun dropped, the others asked to stop";
}

std::string PoolEnd::textOfStuck() const
{
    return "tasks go on " + std::to_string(options.stopTimeoutMs) +
           " ms after they were asked to stop" + textOfRunning() + ": " + textOf(options.stuck);
}

// The tasks of this library that workers run. A task derived by hand may change its name at any
// time.
std::string PoolEnd::textOfRunning() const
{
    std::string text;
    const std::vector<ShortName> names = scheduler.namesOfRunning();
    for (std::size_t i = 0; i < std::min(names.size(), mostNames); ++i) {
        text += (i == 0 ? " (" : ", ") + std::string(names[i].view());
    }
    if (names.size() > mostNames) {
        text += ", and " + std::to_string(names.size() - mostNames) + " more";
    }
    return text.empty() ? text : text + ")";
}

}  // namespace detail
}  // namespace KT
