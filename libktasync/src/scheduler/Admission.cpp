#include "Admission.h"

#include <numeric>

#include "../base/Deadline.h"

namespace KT {
namespace detail {

Admission::Admission(const std::vector<std::unique_ptr<WorkQueue>>& itsQueues, int limit,
                     WhenFull what)
    : queues(itsQueues), most(static_cast<std::size_t>(limit)), whenFull(what), isGuarded(limit > 0)
{
}

bool Admission::isFull() const
{
    const auto add = [](std::size_t sum, const std::unique_ptr<WorkQueue>& queue) {
        return sum + queue->size();
    };
    return most > 0 && std::accumulate(queues.begin(), queues.end(), std::size_t(0), add) >= most;
}

Admission::Entry Admission::enterLocked(Lock& hold, bool mayBlock)
{
    if (isClosed) {
        return Entry::refused;
    }
    if (!isFull()) {
        return Entry::comesIn;
    }
    if (whenFull == WhenFull::refuse) {
        return Entry::refused;
    }
    if (whenFull == WhenFull::runHere || !mayBlock) {
        return Entry::runsHere;
    }
    return waitForRoomLocked(hold) ? Entry::comesIn : Entry::refused;
}

// False if the pool has closed meanwhile.
bool Admission::waitForRoomLocked(Lock& hold)
{
    /// Also where the thread is cancelled.
    struct Waiter {
        explicit Waiter(std::atomic<int>& ofAll) : number(ofAll) { ++number; }
        ~Waiter() { --number; }
        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;
        std::atomic<int>& number;
    };
    const Waiter waiter(blocked);
    const unsigned stopsBefore = stops;
    while (isFull() && !isClosed && stops == stopsBefore) {
        Deadline(-1).wait(hold, changed);
    }
    return !isClosed;
}

void Admission::wakeOne()
{
    const Lock hold(mutex);
    changed.notify_one();
}

void Admission::close()
{
    const Lock hold(mutex);
    isClosed = true;
    isGuarded = true;
    changed.notify_all();
}

void Admission::stop()
{
    const Lock hold(mutex);
    ++stops;
    changed.notify_all();
}

}  // namespace detail
}  // namespace KT
