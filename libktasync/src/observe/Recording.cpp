#include "Recording.h"

#include <new>
#include <system_error>
#include <utility>

#include <sys/syscall.h>

#include <ktthread/KTThread.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../base/Warnings.h"
#include "../scheduler/Scheduler.h"

namespace KT {

namespace {

using Clock = detail::TraceEvents::Clock;
using Time = detail::TraceEvents::Time;

/// How old what isn't in the file may become.
const std::chrono::seconds flushPeriod(1);

/// Lanes whose names are known to be in the file. A name too many does no harm; a pool that grows
/// and shrinks for months has no end of threads.
const std::size_t mostLanes = 4096;

}  // namespace

KTTraceRecorder::Recording::Recording(const KTPoolRef& poolToWatch, std::string pathOfFile,
                                      std::unique_ptr<detail::TraceFile> fileToWrite, int sampleMs)
    : pool(poolToWatch.pool()),
      path(std::move(pathOfFile)),
      maker(getpid()),
      events(maker, pool->name()),
      observers(poolToWatch.scheduler().observers),
      file(std::move(fileToWrite))
{
    file->add(events.processName());
    detail::RecordingsAtExit::instance().add(*this);
    try {
        observers.add(*this);
        sampler = std::thread([this, sampleMs] { sampleUntilTheEnd(sampleMs); });
    } catch (...) {
        observers.remove(*this);
        detail::RecordingsAtExit::instance().remove(*this);
        throw;
    }
}

KTTraceRecorder::Recording::~Recording()
{
    const detail::NoCancellation off;
    observers.remove(*this);
    {
        const std::lock_guard<std::mutex> hold(mutex);
        isEnding = true;
        ending.notify_one();
    }
    sampler.join();
    detail::RecordingsAtExit::instance().remove(*this);
}

void KTTraceRecorder::Recording::taskEnded(const detail::TaskReport& report)
{
    if (!isOfThisProcess()) {
        return;
    }
    const detail::NoCancellation off;
    const Time end = Clock::now();
    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    const std::lock_guard<std::mutex> hold(mutex);
    writeLocked([&] {
        nameLaneLocked(thread);
        file->add(events.task(report, thread, end));
    });
}

void KTTraceRecorder::Recording::flush()
{
    if (!isOfThisProcess()) {
        return;
    }
    const detail::NoCancellation off;
    const std::lock_guard<std::mutex> hold(mutex);
    writeLocked([this] { file->flush(); });
}

bool KTTraceRecorder::Recording::hasFailed() const
{
    if (!isOfThisProcess()) {
        return false;
    }
    const detail::NoCancellation off;
    const std::lock_guard<std::mutex> hold(mutex);
    return failed;
}

void KTTraceRecorder::Recording::nameLaneLocked(pid_t thread)
{
    if (lanes.count(thread) != 0) {
        return;
    }
    if (lanes.size() >= mostLanes) {
        lanes.clear();
    }
    file->add(events.laneName(thread));
    lanes.insert(thread);
}

void KTTraceRecorder::Recording::addStatusLocked(const KTThreadPoolStatus& status)
{
    const Time now = Clock::now();
    file->add(events.workers(now, status));
    file->add(events.queue(now, status));
    shown = status;
}

void KTTraceRecorder::Recording::sampleUntilTheEnd(int sampleMs)
{
    KTThread::setThreadName("KTTrace");
    Time flushed = Clock::now();
    std::unique_lock<std::mutex> hold(mutex);
    while (!isEnding) {
        hold.unlock();
        const KTThreadPoolStatus status = pool->status();
        hold.lock();
        if (!shown || status.threads != shown->threads ||
            status.busyThreads != shown->busyThreads || status.queuedTasks != shown->queuedTasks) {
            writeLocked([&] { addStatusLocked(status); });
        }
        const bool isStopped = status.threads < 1;
        if (Clock::now() - flushed >= flushPeriod || isStopped) {
            writeLocked([this] { file->flush(); });
            flushed = Clock::now();
        }
        if (!isEnding) {
            detail::Deadline(sampleMs).wait(hold, ending);
        }
    }
    writeLocked([this] { file->flush(); });
}

// Once the file can't be written, it is left alone.
template <typename Action>
void KTTraceRecorder::Recording::writeLocked(const Action& action)
{
    if (failed) {
        return;
    }
    try {
        action();
    } catch (const std::system_error& error) {
        failed = true;
        detail::logWarning("KTTraceRecorder", [&] {
            return detail::poolLabel(pool->name()) + "'" + path +
                   "' can't be written, and records no more: " + error.code().message();
        });
    } catch (const std::bad_alloc&) {
        // Left out.
    }
}

}  // namespace KT
