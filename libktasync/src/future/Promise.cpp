// How jobs end that no thread runs.
#include <ktasync/detail/PromiseJob.h>

#include <string>

#include <kterror/KTError.h>

#include <ktasync/KTCancelled.h>

#include "../base/Cancellation.h"
#include "../job/outcomeOf.h"

namespace KT {
namespace detail {

void refuseEmptyPromise(const char* method)
{
    throw KTError("KTPromise", method, "the promise was kept, or moved from", __FILE__, __LINE__);
}

void refuseSecondFuture()
{
    throw KTError("KTPromise", "future", "it was asked for before, or the promise moved from",
                  __FILE__, __LINE__);
}

void refuseEmptyException(const FutureJob& job)
{
    throw KTError("KTPromise", "setException",
                  "'" + std::string(job.name()) + "' is given a null pointer for an exception",
                  __FILE__, __LINE__);
}

void breakPromise(FutureJob& job)
{
    job.settle(
        [](void* of) {
            const FutureJob& broken = *static_cast<const FutureJob*>(of);
            const std::string name(broken.name());
            if (broken.isForsaken()) {
                throw KTCancelled(name);
            }
            throw KTError("KTPromise", "~KTPromise",
                          "the promise '" + name + "' was destroyed before it was kept", __FILE__,
                          __LINE__);
        },
        &job);
}

// Cancellation is disabled: a claimed job must end.
bool FutureJob::settle(void (*keep)(void*), void* context)
{
    const NoCancellation off;
    if (!claim()) {
        return false;
    }
    std::exception_ptr error;
    const Outcome outcome = outcomeOf([keep, context] { keep(context); }, error);
    finish(outcome, std::move(error), {});
    return true;
}

}  // namespace detail
}  // namespace KT
