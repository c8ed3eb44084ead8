/// Who is told of the tasks of a pool.
#pragma once

#include <atomic>
#include <chrono>
#include <shared_mutex>
#include <string_view>
#include <vector>

#include <ktasync/detail/Outcome.h>

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

/// Any thread may use them. `isEmpty` costs nothing: tasks are timed only if somebody observes.
class Observers {
public:
    bool isEmpty() const { return !observed.load(std::memory_order_relaxed); }
    void report(const TaskReport& report) const;
    void add(TaskObserver& observer);
    /// `observer` is told no more once this returns.
    void remove(TaskObserver& observer);

private:
    std::atomic<bool> observed{false};
    mutable std::shared_mutex mutex;
    std::vector<TaskObserver*> observers;  ///< under `mutex`
};

}  // namespace detail
}  // namespace KT
