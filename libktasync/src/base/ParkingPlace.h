/// Where threads wait for a job.
#pragma once

#include <condition_variable>
#include <mutex>

namespace KT {
namespace detail {

class StopListener;

/// A mutex and a condition, in a process-wide table: an object with none of its own, such as a job,
/// uses the place that belongs to its address, and shares it with others. So a waiter sees wake-ups
/// that weren't for it, and no thread may hold two places.
///
/// Usable until the process ends, and in a child of it (fork), whatever the threads held that don't
/// exist there.
struct alignas(64) ParkingPlace {
    static ParkingPlace& of(const void* object);

    std::mutex mutex;
    std::condition_variable changed;
    StopListener* listeners = nullptr;  ///< of such objects; under `mutex`
};

}  // namespace detail
}  // namespace KT
