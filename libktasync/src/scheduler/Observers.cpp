#include "Observers.h"

#include <algorithm>
#include <mutex>

#include "Scheduler.h"

namespace KT {
namespace detail {

void Observers::report(const TaskReport& report) const
{
    const std::shared_lock<std::shared_mutex> hold(mutex);
    for (TaskObserver* const observer : observers) {
        observer->taskEnded(report);
    }
}

void Observers::add(TaskObserver& observer)
{
    const std::unique_lock<std::shared_mutex> hold(mutex);
    observers.push_back(&observer);
    observed = true;
}

void Observers::remove(TaskObserver& observer)
{
    const std::unique_lock<std::shared_mutex> hold(mutex);
    observers.erase(std::remove(observers.begin(), observers.end(), &observer), observers.end());
    observed = !observers.empty();
}

void addObserver(Scheduler& pool, TaskObserver& observer)
{
    pool.observers.add(observer);
}

void removeObserver(Scheduler& pool, TaskObserver& observer)
{
    pool.observers.remove(observer);
}

}  // namespace detail
}  // namespace KT
