#include <pthread.h>

#include <ktasync/detail/Job.h>

#include "CurrentJob.h"

namespace KT {
namespace detail {

namespace {

/// The address in the middle of the calling thread's stack, which grows down.
const char* middleOfStack()
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return nullptr;
    }
    void* lowest = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    return static_cast<const char*>(lowest) + size / 2;
}

bool isStackHalfFull()
{
    static thread_local const char* const middle = middleOfStack();
    return static_cast<const char*>(__builtin_frame_address(0)) < middle;
}

/// A thread that runs one job, as if its maker did.
class OwnStack {
public:
    explicit OwnStack(Job& jobToRun)
        : job(jobToRun),
          around(CurrentJob::innermost),
          isStarted(pthread_create(&thread, nullptr, run, this) == 0)
    {
    }

    /// Unless `wait` has returned, the thread that waited was cancelled, and this one is too.
    ~OwnStack()
    {
        if (isStarted) {
            pthread_cancel(thread);
            pthread_join(thread, nullptr);
        }
    }

    OwnStack(const OwnStack&) = delete;
    OwnStack& operator=(const OwnStack&) = delete;

    /// Blocks until the job has ended; false if there is no thread for it. A cancellation point.
    bool wait()
    {
        if (!isStarted) {
            return false;
        }
        pthread_join(thread, nullptr);
        isStarted = false;
        return true;
    }

private:
    static void* run(void* self)
    {
        const OwnStack& stack = *static_cast<OwnStack*>(self);
        CurrentJob::innermost = stack.around;
        CurrentJob::showsName = true;
        stack.job.run();
        return nullptr;
    }

    Job& job;
    Job* const around;
    pthread_t thread = pthread_t();
    bool isStarted;
};

}  // namespace

void runForWaiter(Job& job)
{
    if (!isStackHalfFull() || !OwnStack(job).wait()) {
        job.run();
    }
}

}  // namespace detail
}  // namespace KT
