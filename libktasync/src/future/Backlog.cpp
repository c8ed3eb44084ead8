#include "Backlog.h"

#include <utility>

#include "../base/Cancellation.h"
#include "../scheduler/Scheduler.h"

namespace KT {
namespace detail {

// A mere pointer: there when a static object's pool is closed, after the thread's own objects.
thread_local Backlog* Backlog::current = nullptr;

void Backlog::passOn(boost::intrusive_ptr<FutureJob> job, bool isToDrop)
{
    const NoCancellation off;
    if (isToDrop) {
        job->setToDrop();
    }
    if (current != nullptr) {
        current->list.pushBack(std::move(job));
    } else {
        queue(std::move(job));
    }
}

void Backlog::queue(boost::intrusive_ptr<FutureJob> job)
{
    const NoCancellation off;
    Backlog backlog;
    Backlog* const around = std::exchange(current, &backlog);
    backlog.list.pushBack(std::move(job));
    while (!backlog.list.isEmpty()) {
        const WorkPointer front = backlog.list.remove(*backlog.list.front());
        FutureJob& due = static_cast<FutureJob&>(*front);
        if (due.isToDrop()) {
            due.drop(Outcome::lost);
        } else {
            due.scheduler().submitNear(front);
        }
    }
    current = around;
}

}  // namespace detail
}  // namespace KT
