/// Who is told of the tasks of a pool.
#pragma once

#include <atomic>
#include <shared_mutex>
#include <vector>

#include <ktasync/detail/TaskObserver.h>

namespace KT {
namespace detail {

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
