/// Waiting for more than a job's stop.
#pragma once

#include <condition_variable>
#include <mutex>

namespace KT {
namespace detail {

class Job;
struct ParkingPlace;

/// For a scope: a thread that waits for `changed` is woken when a job is asked to stop, too.
class StopListener {
public:
    /// Null: no job. `ofWaiter` belongs to `toNotify`; it is locked after the job's parking place,
    /// so the calling thread mustn't hold it, here and at the end.
    StopListener(const Job* ofJob, std::mutex& ofWaiter, std::condition_variable& toNotify);
    ~StopListener();
    StopListener(const StopListener&) = delete;
    StopListener& operator=(const StopListener&) = delete;

    /// Wakes those of `job`, which has just been asked. Its parking place is locked.
    static void notifyLocked(const ParkingPlace& place, const Job& job);

private:
    const Job* const job;
    std::mutex& mutex;
    std::condition_variable& changed;
    StopListener* next = nullptr;  ///< at the same place
};

}  // namespace detail
}  // namespace KT
