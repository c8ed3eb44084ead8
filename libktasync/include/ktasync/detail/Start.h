/// How futures come to be.
#pragma once

#include <future>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/KTFuture.h>
#include <ktasync/detail/Bound.h>
#include <ktasync/detail/FutureJob.h>
#include <ktasync/detail/PromiseJob.h>

namespace KT {
namespace detail {

/// The callable of a task that `then` makes.
template <typename R, typename F>
class Continuation {
public:
    using OnResult = std::conditional_t<std::is_void_v<R>, CallOf<F>, CallOf<F, R>>;
    using OnFuture = CallOf<F, KTFuture<R>>;
    static constexpr bool possible = OnResult::possible || OnFuture::possible;
    using Chosen = std::conditional_t<OnResult::possible, OnResult, OnFuture>;
    using Result = typename Chosen::Result;

    /// What it is made of. It is made in place, when there is memory for it: what throws
    /// std::bad_alloc has moved nothing.
    template <typename G>
    struct Parts {
        ResultJob<R>& front;
        G&& callable;
    };

    template <typename G>
    explicit Continuation(const Parts<G>& parts)
        : callable(std::forward<G>(parts.callable)), source(&parts.front)
    {
    }

    Result operator()(const KTStopToken& token);

private:
    F callable;
    FutureShare<ResultJob<R>> source;  // last: no exception follows
};

struct Start {
    template <typename JobType>
    static auto futureOf(boost::intrusive_ptr<JobType> job)
    {
        return KTFuture<typename JobType::Result>(std::move(job));
    }
    template <typename R>
    static KTFuture<R> futureOf(FutureShare<ResultJob<R>>&& share)
    {
        return KTFuture<R>(std::move(share));
    }

    /// A job, not queued yet.
    template <typename F, typename... Args>
    static auto make(Scheduler& pool, std::string_view name, F&& callable, Args&&... args)
    {
        using Call = BoundOf<F, Args...>;
        static_assert(Call::Call::possible,
                      "the callable can't be called with these arguments: it gets moved copies of "
                      "them (std::ref passes a reference), after a const KTStopToken& if it takes "
                      "one");
        if constexpr (Call::Call::possible) {
            return boost::intrusive_ptr<FutureCall<Call>>(new FutureCall<Call>(
                pool, name, std::forward<F>(callable), std::forward<Args>(args)...));
        } else {
            return boost::intrusive_ptr<ResultJob<void>>();
        }
    }

    template <typename R, typename F>
    static auto after(FutureShare<ResultJob<R>>& share, std::string_view name, F&& callable)
    {
        using Next = Continuation<R, std::decay_t<F>>;
        static_assert(Next::possible,
                      "the callable of then can't be called with the result (moved), nor with the "
                      "ready KTFuture, nor after a const KTStopToken&");
        if constexpr (Next::possible) {
            using Call = Bound<Next>;
            ResultJob<R>& source = *share.job();
            const typename Next::template Parts<F> parts{source, std::forward<F>(callable)};
            const boost::intrusive_ptr<FutureCall<Call>> job(
                new FutureCall<Call>(source.scheduler(), name, parts));
            share.setTaken();
            source.attach(job);
            return futureOf(job);
        }
    }

    template <typename R>
    static std::future<R> toStd(KTFuture<R>& future)
    {
        ResultJob<R>& source = future.checked("toStdFuture");
        const boost::intrusive_ptr<StdRelay<R>> relay(new StdRelay<R>(source));
        std::future<R> result = relay->future();
        future.share.setTaken();
        source.attach(relay);
        return result;
    }
};

template <typename R, typename F>
auto Continuation<R, F>::operator()(const KTStopToken& token) -> Result
{
    const auto sameToken = [&token]() -> const KTStopToken& { return token; };
    if constexpr (!OnResult::possible) {
        return OnFuture::call(std::move(callable), sameToken, Start::futureOf(std::move(source)));
    } else if constexpr (std::is_void_v<R>) {
        source.take();
        return OnResult::call(std::move(callable), sameToken);
    } else {
        return OnResult::call(std::move(callable), sameToken, source.take());
    }
}

}  // namespace detail

template <typename R>
template <typename F>
auto KTFuture<R>::then(F&& callable)
{
    return then(checked("then").name(), std::forward<F>(callable));
}

template <typename R>
template <typename F>
auto KTFuture<R>::then(std::string_view name, F&& callable)
{
    checked("then");
    return detail::Start::after(share, name, std::forward<F>(callable));
}

}  // namespace KT
