/// \file
/// Futures for results that come from elsewhere, and futures of the standard library.
#pragma once

#include <exception>
#include <future>
#include <string_view>
#include <type_traits>
#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/KTFuture.h>
#include <ktasync/KTPoolRef.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/KTStopToken.h>
#include <ktasync/detail/PromiseJob.h>

namespace KT {

/// The other end of a KTFuture whose result doesn't come from a task but from a callback, say, of a
/// library for the network:
/// \code
/// KT::KTPromise<int> promise(pool, "reply");
/// KT::KTFuture<int> reply = promise.future();
/// request(path, [promise = std::move(promise)](int n) mutable { promise.setValue(n); });
/// reply.then([](int n) { use(n); });
/// \endcode
/// The future works like any other: what `then` is given runs in `pool`; a task may wait for it,
/// and keeps its worker meanwhile. No worker is needed to keep the promise, nor is the pool: its
/// end leaves the promise alone, and drops only what `then` was given.
///
/// `cancel` of the future ends it at once, as KTCancelled, and raises the mark of `stopToken`, so
/// that whoever was to keep the promise can give up. A promise that is destroyed before it was kept
/// is broken: the future throws KTError, with its name, or KTCancelled if it was cancelled before.
///
/// It may be moved, not copied. Its operations belong to one thread at a time; the future to any
/// other. All throw KTError on a promise that was moved from or, but for `future`, kept. Nothing
/// here blocks.
///
/// \tparam T  of the result: a value, a reference or void
/// \ingroup ktasync
template <typename T>
class KTPromise {
public:
    /// Throws std::bad_alloc.
    ///
    /// \param pool  runs what `then` of the future is given
    /// \param name  for errors, and for what `then` is given; copied
    explicit KTPromise(const KTPoolRef& pool, std::string_view name = "promise")
        : job(new detail::PromiseJob<T>(pool.scheduler(), name)), unused(job)
    {
    }

    /// Takes the promise over.
    ///
    /// \param other  has no promise afterwards
    KTPromise(KTPromise&& other) noexcept = default;

    /// Breaks the promise that it has so far.
    ///
    /// \param other  has no promise afterwards
    /// \return       this
    KTPromise& operator=(KTPromise&& other) noexcept
    {
        const KTPromise broken(std::move(*this));
        job = std::move(other.job);
        unused = std::move(other.unused);
        return *this;
    }

    /// Breaks the promise, unless it was kept.
    ~KTPromise()
    {
        unused = Share();  // a future has it now
        if (job) {
            detail::breakPromise(*job);
        }
    }

    /// The future, once. Throws KTError the second time.
    ///
    /// \return  ready when the promise is kept, broken or cancelled
    KTFuture<T> future()
    {
        if (unused.isEmpty()) {
            detail::refuseSecondFuture();
        }
        return detail::Start::futureOf(std::move(unused));
    }

    /// Keeps the promise; what the copy or the move of the value throws goes into the future.
    /// Continuations are queued by this.
    ///
    /// \param value  what the result is made of: one, or none for void
    /// \return       false if the future was cancelled before
    template <typename... Value>
    bool setValue(Value&&... value)
    {
        constexpr bool isPossible = isResult<Value...>();
        static_assert(isPossible,
                      "the promise is kept with one value that turns into its result, "
                      "or with none for void");
        if constexpr (isPossible) {
            checked("setValue");
            return std::exchange(job, nullptr)->settleBy([&]() -> T {
                return (std::forward<Value>(value), ...);
            });
        } else {
            return false;
        }
    }

    /// Keeps the promise with an exception, which `get` of the future throws. Throws KTError for a
    /// null pointer.
    ///
    /// \param error  shared
    /// \return       false if the future was cancelled before
    bool setException(const std::exception_ptr& error)
    {
        checked("setException");
        if (!error) {
            detail::refuseEmptyException(*job);
        }
        return std::exchange(job, nullptr)->settleBy([&error]() -> T {
            std::rethrow_exception(error);
        });
    }

    /// Says whether the result is still wanted. May be copied, kept for longer than the promise,
    /// and used by any thread.
    ///
    /// \return  raised when the future is cancelled
    KTStopToken stopToken() const { return checked("stopToken").stopToken(); }

private:
    using Share = detail::FutureShare<detail::ResultJob<T>>;

    template <typename... Value>
    static constexpr bool isResult()
    {
        if constexpr (std::is_void_v<T>) {
            return sizeof...(Value) == 0;
        } else {
            return sizeof...(Value) == 1 && (std::is_convertible_v<Value&&, T> && ...);
        }
    }

    detail::PromiseJob<T>& checked(const char* method) const
    {
        if (!job) {
            detail::refuseEmptyPromise(method);
        }
        return *job;
    }

    boost::intrusive_ptr<detail::PromiseJob<T>> job;
    Share unused;  ///< until the future is asked for
};

/// The std::future of a task, for code that knows those only:
/// \code
/// std::future<int> lines = KT::toStdFuture(KT::submit(pool, "count", countLines, path));
/// \endcode
/// It is ready when the task has ended, however it ends, and throws what `get` would: KTCancelled
/// too. No worker is needed for that: the result is moved over on the thread that ends the task. A
/// task that waits for a std::future keeps its worker, and runs nothing meanwhile. Throws KTError
/// for a future without a task; std::bad_alloc, and changes nothing then. Doesn't block.
///
/// \param future  has no task any more
/// \return        with the same result
/// \ingroup ktasync
template <typename R>
std::future<R> toStdFuture(KTFuture<R>&& future)
{
    return detail::Start::toStd(future);
}

}  // namespace KT
