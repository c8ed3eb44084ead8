/// \file
/// Handing callables to a pool without asking for their results.
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <ktasync/KTPoolRef.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/detail/Bound.h>
#include <ktasync/detail/PostJob.h>
#include <ktasync/detail/RangeElement.h>

namespace KT {

/// As `submit`, for a task without a result, and without a future:
/// \code
/// KT::post(pool, "render", [row = n] { render(row); });
/// \endcode
/// It costs less: there is no future. What the callable returns is dropped; an exception is logged
/// (category "ktasync"), but for KTCancelled. A task that never runs, because the pool is shut
/// down, is destroyed with its callable and arguments.
///
/// Doesn't block. Any thread may call it, tasks too. Throws std::bad_alloc, and what copying the
/// arguments throws; the callable is never called then.
///
/// \param pool      where it runs
/// \param name      of the task: what turns into a std::string_view; copied
/// \param callable  what to call
/// \param args      what to call it with
/// \return          false if the pool was closed: the callable is never called then
/// \ingroup ktasync
template <typename Name, typename F, typename... Args,
          std::enable_if_t<detail::isName<Name>, int> = 0>
bool post(const KTPoolRef& pool, const Name& name, F&& callable, Args&&... args)
{
    return detail::enqueue(detail::makePost(pool.scheduler(), name, std::forward<F>(callable),
                                            std::forward<Args>(args)...));
}

/// The same for a task named after the place of this call: the function that it is in, or file and
/// line in a lambda.
///
/// \param pool      where it runs
/// \param callable  what to call
/// \param args      what to call it with
/// \return          false if the pool was closed: the callable is never called then
/// \ingroup ktasync
template <typename F, typename... Args, std::enable_if_t<!detail::isName<F>, int> = 0>
bool post(const KTPoolRef& pool, F&& callable, Args&&... args)
{
    return post(pool, pool.defaultName().view(), std::forward<F>(callable),
                std::forward<Args>(args)...);
}

/// Posts all callables of `range`, in its order and with nothing in between. Moves or copies them
/// as `submitAll` does. Throws std::bad_alloc; none is called then. Doesn't block. Any thread may
/// call it, tasks too.
/// \code
/// KT::postAll(pool, "part", split(work));
/// \endcode
///
/// \param pool   where they run
/// \param name   of each of the tasks; copied
/// \param range  of callables without arguments
/// \return       false if the pool was closed: none is ever called then
/// \ingroup ktasync
template <typename Range>
bool postAll(const KTPoolRef& pool, std::string_view name, Range&& range)
{
    using Passed = detail::PassedElement<Range>;
    std::vector<boost::intrusive_ptr<detail::Work>> jobs;
    for (auto&& callable : range) {
        jobs.push_back(detail::makePost(pool.scheduler(), name, static_cast<Passed>(callable)));
    }
    return detail::enqueueAll(pool.scheduler(), std::move(jobs));
}

/// The same for tasks named after the place of this call.
///
/// \param pool   where they run
/// \param range  of callables without arguments
/// \return       false if the pool was closed: none is ever called then
/// \ingroup ktasync
template <typename Range>
bool postAll(const KTPoolRef& pool, Range&& range)
{
    return postAll(pool, pool.defaultName().view(), std::forward<Range>(range));
}

}  // namespace KT
