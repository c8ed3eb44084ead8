#include "StopListener.h"

#include "../base/ParkingPlace.h"

namespace KT {
namespace detail {

StopListener::StopListener(const Job* ofJob, std::mutex& ofWaiter,
                           std::condition_variable& toNotify)
    : job(ofJob), mutex(ofWaiter), changed(toNotify)
{
    if (job != nullptr) {
        ParkingPlace& place = ParkingPlace::of(job);
        const std::lock_guard<std::mutex> hold(place.mutex);
        next = place.listeners;
        place.listeners = this;
    }
}

StopListener::~StopListener()
{
    if (job != nullptr) {
        ParkingPlace& place = ParkingPlace::of(job);
        const std::lock_guard<std::mutex> hold(place.mutex);
        StopListener** link = &place.listeners;
        // A forked child has none in its list.
        while (*link != nullptr && *link != this) {
            link = &(*link)->next;
        }
        *link = *link != nullptr ? next : nullptr;
    }
}

void StopListener::notifyLocked(const ParkingPlace& place, const Job& job)
{
    for (StopListener* each = place.listeners; each != nullptr; each = each->next) {
        if (each->job == &job) {
            const std::lock_guard<std::mutex> hold(each->mutex);
            each->changed.notify_all();
        }
    }
}

}  // namespace detail
}  // namespace KT
