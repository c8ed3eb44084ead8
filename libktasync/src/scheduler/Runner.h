/// The place of a carrier that runs.
#pragma once

#include <atomic>
#include <cstdint>

#include <sys/types.h>

#include <ktasync/detail/CurrentWork.h>

#include "../clock/Clock.h"
#include "WorkQueue.h"

namespace KT {
namespace detail {

/// What a carrier uses while it has a worker. A scheduler has as many as carriers ever ran at once,
/// and keeps them: other threads look at them at any time.
struct Runner {
    /// Work that the carrier's own work has submitted; idle carriers take from its other end.
    WorkQueue own;

    /// The kernel's number of the thread; 0 while no carrier has the place.
    std::atomic<pid_t> thread{0};
    /// Whether it is a client's call that the thread may be blocked in. Only the carrier writes it.
    std::atomic<bool> isInWork{false};
    /// How much counted work has ended on the thread. Only the carrier writes it.
    std::atomic<std::uint64_t> ended{0};
    // Under the scheduler's mutex.
    Runner* nextFree = nullptr;
    CurrentWork* current = nullptr;  ///< of the carrier that has the place

    // Of the set of idle runners.
    Runner* nextIdle = nullptr;
    std::atomic<bool> isIdle{false};
    Time::time_point idleSince;  ///< a look of the clock's; never: none has seen it there
    /// What an idle carrier sleeps on.
    std::atomic<int> call{noCall};
    static constexpr int noCall = 0;
    static constexpr int callToWork = 1;
    static constexpr int callToLeave = 2;

    std::size_t shard = 0;  ///< that it takes work from first

    // The carrier's own.
    bool isSearching = false;         ///< counted as such
    unsigned turns = 0;               ///< searches for work
    int worker = -1;                  ///< its slot, for the probes
    std::uint64_t coreTasksSeen = 0;  ///< that had been queued before the carrier was
    Time::time_point overtimeFrom;    ///< it gives its worker back then
    ShortName shownName{""};          ///< of the task that the thread shows; empty: of none
};

}  // namespace detail
}  // namespace KT
