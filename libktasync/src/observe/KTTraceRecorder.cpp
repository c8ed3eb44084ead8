#include <ktasync/KTTraceRecorder.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>

#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <kterror/KTError.h>
#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPool.h>
#include <ktthread/annotations.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../base/Warnings.h"
#include "../scheduler/Scheduler.h"
#include "TraceFile.h"

namespace KT {

namespace {

using Clock = std::chrono::steady_clock;

/// How old what isn't in the file may become.
const std::chrono::seconds flushPeriod(1);

/// Lanes whose names are known to be in the file. A name too many does no harm; a pool that grows
/// and shrinks for months has no end of threads.
const std::size_t mostLanes = 4096;

[[noreturn]] void refuse(const std::string& why)
{
    throw KTError("KTTraceRecorder", "KTTraceRecorder", why, __FILE__, __LINE__);
}

const char* nameOf(detail::Outcome outcome)
{
    switch (outcome) {
        case detail::Outcome::done: return "done";
        case detail::Outcome::failed: return "failed";
        default: return "cancelled";
    }
}

/// Microseconds, in which the format counts.
std::string microseconds(Clock::duration time)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.3f",
                  std::chrono::duration<double, std::micro>(time).count());
    return text;
}

}  // namespace

class KTASYNC_HIDDEN KTTraceRecorder::Recording : public detail::TaskObserver {
public:
    Recording(const KTPoolRef& poolToWatch, std::string pathOfFile,
              std::unique_ptr<detail::TraceFile> fileToWrite, int sampleMs);
    ~Recording() override;
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    void taskEnded(const detail::TaskReport& report) override;
    void flush();
    /// Or of the one that this was forked from.
    bool isOfThisProcess() const { return getpid() == maker; }

private:
    struct AtExit;
    struct All;

    /// The beginning of an event of this process.
    std::string event(const char* kind, const std::string& name) const;
    void nameLaneLocked(pid_t thread);
    void addTaskLocked(const detail::TaskReport& report, pid_t thread, Clock::time_point end);
    void addStatusLocked(const KTThreadPoolStatus& status);
    void sampleUntilTheEnd(int sampleMs);
    template <typename Action>
    void writeLocked(const Action& action);

    const boost::shared_ptr<KTThreadPool> pool;
    const std::string path;
    const pid_t maker;
    const Clock::time_point start;
    detail::Observers& observers;  ///< as long as the pool
    std::mutex mutex;
    // `mutex`
    const std::unique_ptr<detail::TraceFile> file;
    bool hasFailed = false;
    std::unordered_set<pid_t> lanes;
    std::optional<KTThreadPoolStatus> shown;
    bool isEnding = false;
    std::condition_variable ending;
    std::thread sampler;
};

/// Those that there are, for the end of the process.
struct KTTraceRecorder::Recording::All {
    /// Never destroyed: static objects may record until the very end.
    static All& instance()
    {
        static All* const all = new All;
        return *all;
    }

    void add(Recording* added)
    {
        const std::lock_guard<std::mutex> hold(mutex);
        if (owner != getpid()) {
            recordings.clear();  // those of the process that this one was forked from
            owner = getpid();
        }
        recordings.insert(added);
    }

    void remove(Recording* removed)
    {
        const std::lock_guard<std::mutex> hold(mutex);
        recordings.erase(removed);
    }

    void flush()
    {
        if (owner != getpid()) {
            return;
        }
        const std::lock_guard<std::mutex> hold(mutex);
        for (Recording* const each : recordings) {
            each->flush();
        }
    }

private:
    std::mutex mutex;
    std::set<Recording*> recordings KT_GUARDED_BY(mutex);
    pid_t owner = 0;
};

/// Writes what those still have that nobody destroyed.
struct KTTraceRecorder::Recording::AtExit {
    ~AtExit() { All::instance().flush(); }
};

KTTraceRecorder::Recording::Recording(const KTPoolRef& poolToWatch, std::string pathOfFile,
                                      std::unique_ptr<detail::TraceFile> fileToWrite, int sampleMs)
    : pool(poolToWatch.pool()),
      path(std::move(pathOfFile)),
      maker(getpid()),
      start(Clock::now()),
      observers(poolToWatch.scheduler().observers),
      file(std::move(fileToWrite))
{
    static const AtExit atExit;
    file->add(event("M", "\"process_name\"") +
              ",\"args\":{\"name\":" + detail::quoted(program_invocation_short_name) + "}}");
    All::instance().add(this);
    try {
        observers.add(*this);
        sampler = std::thread([this, sampleMs] { sampleUntilTheEnd(sampleMs); });
    } catch (...) {
        observers.remove(*this);
        All::instance().remove(this);
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
    All::instance().remove(this);
}

void KTTraceRecorder::Recording::taskEnded(const detail::TaskReport& report)
{
    if (!isOfThisProcess()) {
        return;
    }
    const detail::NoCancellation off;
    const Clock::time_point end = Clock::now();
    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    const std::lock_guard<std::mutex> hold(mutex);
    writeLocked([&] { addTaskLocked(report, thread, end); });
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

std::string KTTraceRecorder::Recording::event(const char* kind, const std::string& name) const
{
    return std::string("{\"ph\":\"") + kind + "\",\"name\":" + name +
           ",\"pid\":" + std::to_string(maker);
}

void KTTraceRecorder::Recording::nameLaneLocked(pid_t thread)
{
    if (lanes.count(thread) != 0) {
        return;
    }
    if (lanes.size() >= mostLanes) {
        lanes.clear();
    }
    file->add(event("M", "\"thread_name\"") + ",\"tid\":" + std::to_string(thread) +
              ",\"args\":{\"name\":\"worker\"}}");
    lanes.insert(thread);
}

void KTTraceRecorder::Recording::addTaskLocked(const detail::TaskReport& report, pid_t thread,
                                               Clock::time_point end)
{
    nameLaneLocked(thread);
    std::string text = event(report.hasRun ? "X" : "i", detail::quoted(report.name)) +
                       ",\"tid\":" + std::to_string(thread) +
                       ",\"ts\":" + microseconds(end - report.ran - start);
    text += report.hasRun ? ",\"dur\":" + microseconds(report.ran) : ",\"s\":\"t\"";
    file->add(text + ",\"args\":{\"waited_us\":" + microseconds(report.waited) + ",\"outcome\":\"" +
              nameOf(report.outcome) + "\"}}");
}

void KTTraceRecorder::Recording::addStatusLocked(const KTThreadPoolStatus& status)
{
    const std::string time = ",\"ts\":" + microseconds(Clock::now() - start);
    file->add(event("C", "\"workers\"") + time +
              ",\"args\":{\"busy\":" + std::to_string(status.busyThreads) + ",\"idle\":" +
              std::to_string(std::max(status.threads - status.busyThreads, 0)) + "}}");
    file->add(event("C", "\"queue\"") + time +
              ",\"args\":{\"queued\":" + std::to_string(status.queuedTasks) + "}}");
    shown = status;
}

void KTTraceRecorder::Recording::sampleUntilTheEnd(int sampleMs)
{
    KTThread::setThreadName("KTTrace");
    Clock::time_point flushed = Clock::now();
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
    if (hasFailed) {
        return;
    }
    try {
        action();
    } catch (const std::system_error& error) {
        hasFailed = true;
        detail::logWarning("KTTraceRecorder", [&] {
            return "'" + path +
                   "' can't be written, and records no more: " + error.code().message();
        });
    } catch (const std::bad_alloc&) {
        // Left out.
    }
}

KTTraceRecorder::KTTraceRecorder(const KTPoolRef& pool, const std::string& file, int sampleMs)
{
    if (sampleMs < 1) {
        refuse("sampleMs is " + std::to_string(sampleMs) + ": it must be 1 or more");
    }
    std::unique_ptr<detail::TraceFile> opened;
    try {
        opened = std::make_unique<detail::TraceFile>(file);
    } catch (const std::system_error& error) {
        refuse("'" + file + "' can't be written: " + error.code().message());
    }
    recording = std::make_unique<Recording>(pool, file, std::move(opened), sampleMs);
}

KTTraceRecorder::~KTTraceRecorder()
{
    if (!recording->isOfThisProcess()) {
        // Its thread isn't there, and its locks may be held by others that aren't.
        static_cast<void>(recording.release());
    }
}

void KTTraceRecorder::flush()
{
    recording->flush();
}

}  // namespace KT
