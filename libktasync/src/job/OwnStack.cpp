#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>

#include <pthread.h>

#include <ktthread/KTPoolExtension.h>

#include <ktasync/detail/Job.h>

#include "../base/Cancellation.h"
#include "../base/Deadline.h"
#include "../scheduler/Scheduler.h"
#include "CurrentJob.h"

namespace KT {
namespace detail {

namespace {

/// The address in the middle of what the calling thread has left of its stack, which grows down.
/// Not of the whole stack: the thread-local objects of all libraries may take a good part of it.
const char* middleOfStack()
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return nullptr;
    }
    void* start = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &start, &size);
    pthread_attr_destroy(&attributes);
    const char* const lowest = static_cast<const char*>(start);
    return lowest + (static_cast<const char*>(__builtin_frame_address(0)) - lowest) / 2;
}

bool isStackHalfFull()
{
    static thread_local const char* const middle = middleOfStack();
    return static_cast<const char*>(__builtin_frame_address(0)) < middle;
}

/// Starts a thread with so many bytes of stack; 0: the system's default.
bool startThread(pthread_t& thread, std::size_t stackSize, void* (*run)(void*), void* argument)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    if (stackSize != 0) {
        pthread_attr_setstacksize(&attributes, stackSize);
    }
    const bool isStarted = pthread_create(&thread, &attributes, run, argument) == 0;
    pthread_attr_destroy(&attributes);
    return isStarted;
}

/// A thread that runs one job, as if its maker did.
class OwnStack {
public:
    explicit OwnStack(Job& jobToRun)
        : job(jobToRun),
          around(CurrentJob::innermost),
          worker(KTPoolExtension::workerOfThisThread()),
          isStarted(startThread(thread, job.scheduler().stackSize(), run, this))
    {
    }

    /// Unless `wait` has returned, the thread that waited was cancelled, and this one is too.
    ~OwnStack()
    {
        const NoCancellation off;
        if (isStarted) {
            if (!hasEnded) {
                pthread_cancel(thread);
            }
            pthread_join(thread, nullptr);
        }
    }

    OwnStack(const OwnStack&) = delete;
    OwnStack& operator=(const OwnStack&) = delete;

    /// Blocks until the job has ended; false if there is no thread for it. A cancellation point.
    bool wait()
    {
        std::unique_lock<std::mutex> hold(mutex);
        while (isStarted && !hasEnded) {
            Deadline(-1).wait(hold, ended);
        }
        return isStarted;
    }

private:
    /// Tells of the end, whichever way it comes.
    struct End {
        explicit End(OwnStack& ofStack) : stack(ofStack) {}
        ~End()
        {
            const std::lock_guard<std::mutex> hold(stack.mutex);
            stack.hasEnded = true;
            stack.ended.notify_one();
        }
        End(const End&) = delete;
        End& operator=(const End&) = delete;
        OwnStack& stack;
    };

    static void* run(void* self)
    {
        OwnStack& stack = *static_cast<OwnStack*>(self);
        const End end(stack);
        KTPoolExtension::standInFor(stack.worker);
        CurrentJob::innermost = stack.around;
        CurrentJob::showsName = true;
        stack.job.run();
        return nullptr;
    }

    Job& job;
    const CurrentJob* const around;
    const void* const worker;  ///< that waits for it
    std::mutex mutex;
    std::condition_variable ended;
    std::atomic<bool> hasEnded{false};
    pthread_t thread = pthread_t();
    const bool isStarted;  // last: the thread uses all of the above
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
