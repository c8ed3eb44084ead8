/// How another library learns of the tasks of a pool.
#pragma once

#include <chrono>
#include <string_view>

#include <ktasync/detail/Outcome.h>
#include <ktasync/export.h>

namespace KT {
namespace detail {

class Scheduler;

/// What is told of a task that has ended.
struct TaskReport {
    using Duration = std::chrono::steady_clock::duration;
    std::string_view name;  ///< valid during the call
    Outcome outcome;
    Duration waited;  ///< until it began, or ended without having begun
    bool hasRun;
    Duration ran;
};

/// Told of each task of a pool that has ended, on the thread that ended it, several at once. It
/// throws nothing, and isn't cancelled.
class TaskObserver {
public:
    virtual ~TaskObserver() = default;
    virtual void taskEnded(const TaskReport& report) = 0;
};

/// `observer` is told of tasks of the pool that are submitted from here on. It must outlive that.
/// Any thread may call it; throws std::bad_alloc. Blocks only while others are told.
KTASYNC_EXPORT void addObserver(Scheduler& pool, TaskObserver& observer);

/// `observer` is told no more once this returns. Any thread may call it but one that is just told.
KTASYNC_EXPORT void removeObserver(Scheduler& pool, TaskObserver& observer);

}  // namespace detail
}  // namespace KT
