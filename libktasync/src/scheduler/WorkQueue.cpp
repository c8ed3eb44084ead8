#include "WorkQueue.h"

#include <utility>

namespace KT {
namespace detail {

void WorkQueue::push(WorkPointer work)
{
    const std::lock_guard<BriefMutex> hold(mutex);
    pushLocked(work);
}

void WorkQueue::pushAll(std::vector<WorkPointer> batch)
{
    const std::lock_guard<BriefMutex> hold(mutex);
    for (WorkPointer& work : batch) {
        pushLocked(work);
    }
}

void WorkQueue::pushLocked(WorkPointer& work)
{
    // It may be cancelled, and counted as ended, while nobody has queued it yet.
    if ((work->state.fetch_or(Work::counted, std::memory_order_relaxed) & Work::ended) != 0) {
        return;
    }
    pushes.store(pushes.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    addedLocked(*work);
    list.pushBack(std::move(work));
}

void WorkQueue::putBack(WorkPointer work)
{
    const std::lock_guard<BriefMutex> hold(mutex);
    addedLocked(*work);
    list.pushFront(std::move(work));
}

WorkPointer WorkQueue::takeFirst()
{
    if (size() == 0) {
        return nullptr;
    }
    const std::lock_guard<BriefMutex> hold(mutex);
    return takeLocked(list.front());
}

WorkPointer WorkQueue::takeLast()
{
    if (size() == 0) {
        return nullptr;
    }
    const std::lock_guard<BriefMutex> hold(mutex);
    return takeLocked(list.back());
}

bool WorkQueue::remove(Work& work)
{
    WorkPointer released;  // after the mutex
    const std::lock_guard<BriefMutex> hold(mutex);
    if (work.queue.load(std::memory_order_relaxed) != this) {
        return false;
    }
    released = takeLocked(&work);
    return true;
}

void WorkQueue::addedLocked(Work& work)
{
    work.queue.store(this, std::memory_order_relaxed);
    length.store(size() + 1);
}

WorkPointer WorkQueue::takeLocked(Work* work)
{
    if (work == nullptr) {
        return nullptr;
    }
    work->queue.store(nullptr, std::memory_order_relaxed);
    length.store(size() - 1, std::memory_order_relaxed);
    return list.remove(*work);
}

}  // namespace detail
}  // namespace KT
