/// Work that waits.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "../base/BriefMutex.h"
#include "WorkList.h"

namespace KT {
namespace detail {

/// Work in its order, taken from either end or from the middle. Any thread may use it, and none
/// blocks for longer than a few instructions. Throws nothing.
///
/// It has two ends with a mutex and a list each, in cache lines of their own, so that threads that
/// submit and threads that take aren't in each other's way. When the list at the old end is empty,
/// it takes over that of the new end as a whole.
class WorkQueue {
public:
    WorkQueue() = default;
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;
    /// There must be none left.
    ~WorkQueue() = default;

    /// Adds new work.
    void push(WorkPointer work);
    /// Adds much, with nothing in between.
    void pushAll(std::vector<WorkPointer> batch);
    /// Puts one back that was taken, as the oldest.
    void putBack(WorkPointer work);
    /// The oldest one; null if there is none.
    WorkPointer takeFirst();
    /// The newest one.
    WorkPointer takeLast();
    /// False if `work` isn't in this queue any more.
    bool remove(Work& work);

    /// Ordered with the other sequentially consistent accesses: what is pushed before one of them
    /// is seen after it.
    bool isEmpty() const { return length(added, taken) <= 0; }
    /// While threads push and take: not more than there were when it was called.
    std::size_t size() const;
    /// How much has ever been pushed.
    std::uint64_t pushed() const { return pushes.load(std::memory_order_acquire); }

private:
    /// Work that was put back may have been taken elsewhere.
    static std::int64_t length(std::uint64_t in, std::uint64_t out)
    {
        return static_cast<std::int64_t>(in - out);
    }
    void pushLocked(WorkPointer& work);
    WorkPointer takeOut(WorkPointer work);

    // The new end.
    alignas(64) BriefMutex newMutex;
    // Under `newMutex`.
    WorkList newer;
    std::atomic<std::uint64_t> added{0};  ///< less what was taken from this end
    std::atomic<std::uint64_t> pushes{0};

    // The old end. Its mutex is locked first.
    alignas(64) BriefMutex oldMutex;
    // Under `oldMutex`.
    WorkList older;
    std::atomic<std::uint64_t> taken{0};  ///< from this end
    std::atomic<bool> hasOlder{false};    ///< whether `older` has any
};

}  // namespace detail
}  // namespace KT
