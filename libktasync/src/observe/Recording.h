/// A pool's timeline while it is written.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_set>

#include <sys/types.h>
#include <unistd.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <ktasync/KTTraceRecorder.h>
#include <ktthread/KTThreadPool.h>

#include "../scheduler/Observers.h"
#include "RecordingsAtExit.h"
#include "TraceEvents.h"
#include "TraceFile.h"

namespace KT {

/// Writes what the pool's observers are told, and what its own thread samples. Any thread may use
/// it.
class KTASYNC_HIDDEN KTTraceRecorder::Recording : public detail::TaskObserver,
                                                  public detail::Unwritten {
public:
    Recording(const KTPoolRef& poolToWatch, std::string pathOfFile,
              std::unique_ptr<detail::TraceFile> fileToWrite, int sampleMs);
    ~Recording() override;
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    void taskEnded(const detail::TaskReport& report) override;
    void flush() override;
    bool hasFailed() const;
    /// Or of the one that this was forked from.
    bool isOfThisProcess() const { return getpid() == maker; }

private:
    void nameLaneLocked(pid_t thread);
    void addStatusLocked(const KTThreadPoolStatus& status);
    void sampleUntilTheEnd(int sampleMs);
    template <typename Action>
    void writeLocked(const Action& action);

    const boost::shared_ptr<KTThreadPool> pool;
    const std::string path;
    const pid_t maker;
    const detail::TraceEvents events;
    detail::Observers& observers;  ///< as long as the pool
    mutable std::mutex mutex;
    // `mutex`
    const std::unique_ptr<detail::TraceFile> file;
    bool failed = false;
    std::unordered_set<pid_t> lanes;
    std::optional<KTThreadPoolStatus> shown;
    bool isEnding = false;
    std::condition_variable ending;
    std::thread sampler;
};

}  // namespace KT
