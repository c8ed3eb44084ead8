/// What this library keeps beside a pool.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <ktthread/KTThreadPool.h>

#include <ktasync/detail/Job.h>

#include "Deadline.h"

namespace KT {
namespace detail {

/// What is told of a task that has ended.
struct TaskReport {
    using Duration = std::chrono::steady_clock::duration;
    std::string_view name;
    Outcome outcome;
    Duration waited;  ///< until it began, or ended without having begun
    bool hasRun;
    Duration ran;
};

/// Told of each task of a pool that has ended, on the thread that ended it, several at once.
class TaskObserver {
public:
    virtual ~TaskObserver() = default;
    virtual void taskEnded(const TaskReport& report) = 0;
};

/// The jobs in flight on one pool, and who observes them. A pool has one only while a KTScopedPool
/// owns it or somebody observes it; the others do without its cost. Any thread may use it.
class PoolContext {
public:
    explicit PoolContext(const boost::shared_ptr<KTThreadPool>& pool);
    ~PoolContext();
    PoolContext(const PoolContext&) = delete;
    PoolContext& operator=(const PoolContext&) = delete;

    /// The one of `pool`; null if it has none.
    static std::shared_ptr<PoolContext> find(const boost::shared_ptr<KTThreadPool>& pool);
    /// The same, made if there is none.
    static std::shared_ptr<PoolContext> of(const boost::shared_ptr<KTThreadPool>& pool);

    void jobMade() { ++inFlight; }
    void jobEnded();
    int jobsInFlight() const { return inFlight; }
    /// Blocks until no job is in flight, or the pool has been shut down; whether none is.
    bool waitForNone(const Deadline& end);

    bool isObserved() const { return observed; }
    void report(const TaskReport& report) const;
    void add(TaskObserver& observer);
    /// `observer` is told no more once this returns.
    void remove(TaskObserver& observer);

private:
    static std::shared_ptr<PoolContext> findLocked(const boost::shared_ptr<KTThreadPool>& pool);
    bool isOf(const boost::shared_ptr<KTThreadPool>& pool) const;

    const boost::weak_ptr<KTThreadPool> target;
    std::atomic<int> inFlight{0};
    std::mutex mutex;
    std::condition_variable noneInFlight;
    std::atomic<bool> observed{false};
    mutable std::shared_mutex observersMutex;
    std::vector<TaskObserver*> observers;
};

}  // namespace detail
}  // namespace KT
