/// Work that waits.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "../base/BriefMutex.h"
#include "WorkList.h"

namespace KT {
namespace detail {

/// A list of work in its order, taken from either end or from the middle. Any thread may use it,
/// and none blocks for longer than a few instructions. In cache lines of its own.
class alignas(64) WorkQueue {
public:
    WorkQueue() = default;
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;
    /// There must be none left.
    ~WorkQueue() = default;

    /// Adds new work. Throws nothing, as the rest.
    void push(WorkPointer work);
    /// Adds many, with nothing in between.
    void pushAll(std::vector<WorkPointer> batch);
    /// Puts one back that was taken.
    void putBack(WorkPointer work);
    /// The oldest one; null if there is none.
    WorkPointer takeFirst();
    /// The newest one.
    WorkPointer takeLast();
    /// False if `work` isn't in this queue any more.
    bool remove(Work& work);

    /// Ordered with the other sequentially consistent accesses: what is pushed before one of them
    /// is seen after it.
    bool isEmpty() const { return length == 0; }
    std::size_t size() const { return length.load(std::memory_order_relaxed); }
    /// How much has ever been pushed.
    std::uint64_t pushed() const { return pushes.load(std::memory_order_acquire); }

private:
    void pushLocked(WorkPointer& work);
    void addedLocked(Work& work);
    WorkPointer takeLocked(Work* work);

    BriefMutex mutex;
    // Written under `mutex`.
    WorkList list;
    std::atomic<std::size_t> length{0};
    std::atomic<std::uint64_t> pushes{0};
};

}  // namespace detail
}  // namespace KT
