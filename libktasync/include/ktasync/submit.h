/// \file
/// Handing callables to a pool.
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <ktasync/KTFuture.h>
#include <ktasync/KTPoolRef.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/KTStopToken.h>
#include <ktasync/detail/RangeElement.h>

namespace KT {

/// Has a worker of `pool` call `callable` with `args`, in arrival order with all other tasks:
/// \code
/// KT::KTFuture<int> lines = KT::submit(pool, "count", countLines, path);
/// \endcode
/// The task owns copies of callable and arguments, moved in where they can be, and moves from them
/// in the call; std::ref passes a reference, and an array becomes a pointer. They are destroyed
/// before the future is ready. While the call goes on, the worker's thread is named "KTTask: NAME
/// [running]", of which the kernel shows 15 characters: seven of NAME.
///
/// Whatever the callable throws goes into the future. A callable that takes a `const KTStopToken&`
/// first, and can't be called without, is given the task's stop token. If the pool doesn't run, the
/// future throws KTCancelled. A forced shutdown cuts the call off by unwinding it: a `catch (...)`
/// in it must rethrow, and no destructor or noexcept function in it reach a cancellation point.
/// With libc++ a rethrow is no help: see docs/compilers.md.
///
/// Doesn't block. Any thread may call it, tasks too. Throws std::bad_alloc, and what copying the
/// arguments throws; the callable is never called then.
///
/// \param pool      where it runs
/// \param name      of the task: what turns into a std::string_view; copied
/// \param callable  what to call
/// \param args      what to call it with
/// \return          the future of its result
/// \ingroup ktasync
template <typename Name, typename F, typename... Args,
          std::enable_if_t<detail::isName<Name>, int> = 0>
auto submit(const KTPoolRef& pool, const Name& name, F&& callable, Args&&... args)
{
    const auto job = detail::Start::make(pool.scheduler(), name, std::forward<F>(callable),
                                         std::forward<Args>(args)...);
    detail::enqueue(job);
    return detail::Start::futureOf(job);
}

/// The same for a task named after the place of this call: the function that it is in, or file and
/// line in a lambda.
///
/// \param pool      where it runs
/// \param callable  what to call
/// \param args      what to call it with
/// \return          the future of its result
/// \ingroup ktasync
template <typename F, typename... Args, std::enable_if_t<!detail::isName<F>, int> = 0>
auto submit(const KTPoolRef& pool, F&& callable, Args&&... args)
{
    return submit(pool, pool.defaultName().view(), std::forward<F>(callable),
                  std::forward<Args>(args)...);
}

/// Has all callables of `range` called, in its order; returns their futures, in its order too. The
/// queue and the wake-up are paid once for all. The pool looks once whether it should grow, and
/// then as tasks end. Moves the callables out of a container that is a temporary one or moved, and
/// copies them otherwise, out of a view too: the container behind it is somebody else's. Throws
/// std::bad_alloc; none is called then.
/// \code
/// std::vector<std::function<int()>> parts = split(work);
/// for (KT::KTFuture<int>& part : KT::submitAll(pool, "part", std::move(parts))) {
///     total += part.get();
/// }
/// \endcode
/// Doesn't block. Any thread may call it, tasks too.
///
/// \param pool   where they run
/// \param name   of each of the tasks; copied
/// \param range  of callables without arguments
/// \return       a std::vector of KTFuture
/// \ingroup ktasync
template <typename Range>
auto submitAll(const KTPoolRef& pool, std::string_view name, Range&& range)
{
    using Passed = detail::PassedElement<Range>;
    std::vector<KTFuture<typename detail::BoundOf<Passed>::Result>> futures;
    std::vector<boost::intrusive_ptr<detail::Work>> jobs;
    for (auto&& callable : range) {
        const auto job = detail::Start::make(pool.scheduler(), name, static_cast<Passed>(callable));
        jobs.push_back(job);
        futures.push_back(detail::Start::futureOf(job));
    }
    detail::enqueueAll(pool.scheduler(), std::move(jobs));
    return futures;
}

/// The same for tasks named after the place of this call.
///
/// \param pool   where they run
/// \param range  of callables without arguments
/// \return       a std::vector of KTFuture
/// \ingroup ktasync
template <typename Range>
auto submitAll(const KTPoolRef& pool, Range&& range)
{
    return submitAll(pool, pool.defaultName().view(), std::forward<Range>(range));
}

}  // namespace KT
