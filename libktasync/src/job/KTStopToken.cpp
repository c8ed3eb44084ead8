#include <ktasync/KTStopToken.h>

#include <string>
#include <thread>

#include <ktasync/KTCancelled.h>

#include "../base/Deadline.h"

namespace KT {

void KTStopToken::throwIfStopRequested() const
{
    if (stopRequested()) {
        throw KTCancelled(std::string(job->name()));
    }
}

bool KTStopToken::waitFor(int milliseconds) const
{
    if (job) {
        return job->waitForStop(milliseconds);
    }
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock<std::mutex> hold(mutex);
    const detail::Deadline end(milliseconds);
    while (!end.isOver()) {
        end.wait(hold, never);
    }
    return false;
}

}  // namespace KT
