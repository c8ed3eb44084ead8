#include "WorkQueue.h"

#include <mutex>
#include <utility>

namespace KT {
namespace detail {

namespace {

using Lock = std::lock_guard<BriefMutex>;

/// Of a number that one thread at a time writes.
void add(std::atomic<std::uint64_t>& number, std::uint64_t summand, std::memory_order order)
{
    number.store(number.load(std::memory_order_relaxed) + summand, order);
}

const std::uint64_t minusOne = ~std::uint64_t(0);

}  // namespace

void WorkQueue::push(WorkPointer work)
{
    const Lock hold(newMutex);
    pushLocked(work);
}

void WorkQueue::pushAll(std::vector<WorkPointer> batch)
{
    const Lock hold(newMutex);
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
    work->queue.store(this, std::memory_order_relaxed);
    newer.pushBack(std::move(work));
    add(pushes, 1, std::memory_order_release);
    add(added, 1, std::memory_order_seq_cst);
}

void WorkQueue::putBack(WorkPointer work)
{
    const Lock hold(oldMutex);
    work->queue.store(this, std::memory_order_relaxed);
    older.pushFront(std::move(work));
    hasOlder.store(true, std::memory_order_relaxed);
    add(taken, minusOne, std::memory_order_seq_cst);
}

WorkPointer WorkQueue::takeOut(WorkPointer work)
{
    work->queue.store(nullptr, std::memory_order_relaxed);
    return work;
}

WorkPointer WorkQueue::takeFirst()
{
    // `size` would fetch the cache line that the threads which submit write to.
    if (!hasOlder.load(std::memory_order_relaxed) && size() == 0) {
        return nullptr;
    }
    const Lock hold(oldMutex);
    if (older.isEmpty()) {
        const Lock holdNew(newMutex);
        older.swap(newer);
    }
    if (older.isEmpty()) {
        return nullptr;
    }
    add(taken, 1, std::memory_order_relaxed);
    WorkPointer oldest = takeOut(older.popFront());
    hasOlder.store(!older.isEmpty(), std::memory_order_relaxed);
    // The next one was written by another processor. It is here by the time that it is asked for.
    __builtin_prefetch(older.front());
    return oldest;
}

WorkPointer WorkQueue::takeLast()
{
    if (size() == 0) {
        return nullptr;
    }
    {
        const Lock hold(newMutex);
        if (!newer.isEmpty()) {
            add(added, minusOne, std::memory_order_relaxed);
            return takeOut(newer.popBack());
        }
    }
    const Lock hold(oldMutex);
    const Lock holdNew(newMutex);
    if (newer.isEmpty()) {
        newer.swap(older);
        hasOlder.store(false, std::memory_order_relaxed);
    }
    if (newer.isEmpty()) {
        return nullptr;
    }
    add(added, minusOne, std::memory_order_relaxed);
    return takeOut(newer.popBack());
}

bool WorkQueue::remove(Work& work)
{
    WorkPointer removed;  // released after the mutexes
    {
        // As a rule it is the newest, which the thread that has pushed it runs itself.
        const Lock hold(newMutex);
        if (newer.back() == &work) {
            add(added, minusOne, std::memory_order_relaxed);
            removed = takeOut(newer.popBack());
            return true;
        }
    }
    const Lock hold(oldMutex);
    const Lock holdNew(newMutex);
    if (work.queue.load(std::memory_order_relaxed) != this) {
        return false;
    }
    // In the middle of a list it makes no difference whose it is.
    removed = takeOut((newer.hasAtAnEnd(work) ? newer : older).remove(work));
    hasOlder.store(!older.isEmpty(), std::memory_order_relaxed);
    add(added, minusOne, std::memory_order_relaxed);
    return true;
}

std::size_t WorkQueue::size() const
{
    // The other way round, a thread preempted in between would count all that came and went.
    const std::uint64_t in = added.load(std::memory_order_acquire);
    const std::int64_t present = length(in, taken.load(std::memory_order_relaxed));
    return present > 0 ? static_cast<std::size_t>(present) : 0;
}

}  // namespace detail
}  // namespace KT
