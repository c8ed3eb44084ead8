/// What may come into a pool's queue.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include <ktasync/KTPoolOptions.h>

#include "WorkQueue.h"

namespace KT {
namespace detail {

/// Lets work into queues of limited length, or, once it is closed, none. Work that threads submit
/// passes here; what a pool's own tasks put into groups and loops doesn't.
///
/// Any thread may use it.
class Admission {
public:
    using WhenFull = KTPoolOptions::WhenFull;

    /// `most` work at once; 0: no limit.
    Admission(const std::vector<std::unique_ptr<WorkQueue>>& queues, int most, WhenFull whenFull);
    Admission(const Admission&) = delete;
    Admission& operator=(const Admission&) = delete;

    /// Whether everything may come in.
    bool isOpen() const { return !isGuarded.load(std::memory_order_acquire); }

    enum class Entry { comesIn, runsHere, refused };
    using Lock = std::unique_lock<std::mutex>;
    /// Keeps others from coming in.
    Lock lock() { return Lock(mutex); }
    /// What becomes of the next work, or of a batch as a whole. Blocks while there is no room, if
    /// the pool is to do that: a cancellation point. A thread that must not block runs the work
    /// itself instead.
    Entry enterLocked(Lock& hold, bool mayBlock);

    /// Tells threads that wait for room that work has left the queues.
    void left()
    {
        // Not just a look: of a waiter that counts itself and this, the later one sees the other.
        if (most != 0 && blocked.fetch_add(0) != 0) {
            wakeOne();
        }
    }
    /// Refuses everything from here on.
    void close();
    /// Has threads that wait for room go on, since the pool was shut down.
    void stop();

private:
    bool isFull() const;
    bool waitForRoomLocked(Lock& hold);
    void wakeOne();

    const std::vector<std::unique_ptr<WorkQueue>>& queues;
    const std::size_t most;
    const WhenFull whenFull;
    std::atomic<bool> isGuarded;
    std::atomic<int> blocked{0};  ///< threads
    std::mutex mutex;
    std::condition_variable changed;
    // Under `mutex`.
    bool isClosed = false;
    unsigned stops = 0;
};

}  // namespace detail
}  // namespace KT
