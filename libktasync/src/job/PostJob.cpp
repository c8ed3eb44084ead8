#include <ktasync/detail/PostJob.h>

#include "../base/Warnings.h"
#include "../scheduler/Scheduler.h"

namespace KT {
namespace detail {

PostJob::~PostJob() = default;

void PostJob::conclude(Outcome outcome, std::exception_ptr error)
{
    if (outcome == Outcome::failed) {
        logUnseen(scheduler().label(), name(), error);
    }
}

}  // namespace detail
}  // namespace KT
