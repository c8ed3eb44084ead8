/// Jobs that no thread ever runs.
#pragma once

#include <exception>
#include <future>
#include <string_view>
#include <type_traits>
#include <utility>

#include <ktasync/detail/FutureJob.h>
#include <ktasync/detail/FutureShare.h>
#include <ktasync/export.h>

namespace KT {
namespace detail {

/// The job behind a promise's future. It ends when the promise is kept, broken or cancelled.
template <typename R>
class PromiseJob final : public ResultJob<R> {
public:
    PromiseJob(Scheduler& ofPool, std::string_view name)
        : ResultJob<R>(ofPool, name, NeverRun::neverRun)
    {
    }

    /// Keeps what `make` returns or throws; false if the job has ended before: `make` isn't called
    /// then.
    template <typename Make>
    bool settleBy(Make&& make)
    {
        struct Context {
            PromiseJob& job;
            Make& make;
        } context{*this, make};
        return this->settle(
            [](void* of) {
                Context& self = *static_cast<Context*>(of);
                self.job.keepResultOf([&self]() -> R { return self.make(); });
            },
            &context);
    }

protected:
    void invoke() override {}
    void discard() override {}
};

/// Follows a job, and hands its result to a std::future on the thread that ends the job.
template <typename R>
class StdRelay final : public FutureJob {
public:
    explicit StdRelay(ResultJob<R>& front)
        : FutureJob(front.scheduler(), front.name(), NeverRun::neverRun), source(&front)
    {
        setToDrop();  // at the end of the job in front: that is when `discard` is called
    }

    std::future<R> future() { return promise.get_future(); }

protected:
    void invoke() override {}
    void destroyResult() override {}
    void discard() override
    {
        try {
            if constexpr (std::is_void_v<R>) {
                source.take();
                promise.set_value();
            } else {
                promise.set_value(source.take());
            }
        } catch (...) {
            const std::exception_ptr error = std::current_exception();
            if (!error) {
                throw;
            }
            promise.set_exception(error);
        }
    }

private:
    std::promise<R> promise;
    FutureShare<ResultJob<R>> source;
};

/// What a promise throws that has no task: it was kept, or moved from.
[[noreturn]] KTASYNC_EXPORT void refuseEmptyPromise(const char* method);
/// What it throws for a second future, and for an exception that is none.
[[noreturn]] KTASYNC_EXPORT void refuseSecondFuture();
[[noreturn]] KTASYNC_EXPORT void refuseEmptyException(const FutureJob& job);

/// Ends `job`, unless it has ended, with a KTError that says that nobody will ever keep the
/// promise. If nobody can ask for it, as cancelled.
KTASYNC_EXPORT void breakPromise(FutureJob& job);

}  // namespace detail
}  // namespace KT
