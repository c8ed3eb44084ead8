/// \file
/// A pool for a scope.
#pragma once

#include <memory>

#include <boost/shared_ptr.hpp>

#include <ktthread/KTThreadPool.h>
#include <ktthread/KTThreadPoolStatus.h>

#include <ktasync/KTPoolOptions.h>
#include <ktasync/KTPoolRef.h>
#include <ktasync/export.h>

namespace KT {

namespace detail {
class PoolEnd;
}

/// Makes a pool, starts it, and closes it when the scope ends.
/// \code
/// KT::KTPoolOptions options;
/// options.maxThreads = 64;                 // the tasks block a lot
/// KT::KTScopedPool pool(options);
/// KT::submit(pool, "warm up", warmUp);
/// // here it waits for what was submitted
/// \endcode
/// Closing goes in steps; each one ends early when all the work has ended:
///
/// | step             | queued tasks             | running tasks          | at most           |
/// |------------------|--------------------------|------------------------|-------------------|
/// | finish           | are run (see `queued`)   | go on                  | `finishTimeoutMs` |
/// | stop             | are dropped: KTCancelled | are asked to stop      | `stopTimeoutMs`   |
/// | as `stuck` says  | dropped                  | awaited, left, cut off |                   |
///
/// So by default nothing is lost, and it takes as long as the tasks do. Closing that takes longer
/// than `reportAfterMs`, and work that is left undone by a time limit, make a log record each
/// (category "ktasync", a warning) that names running tasks and says what was done about them. "Go
/// on" holds for the tasks of this library; those derived from KTTask by hand are asked to stop as
/// soon as all have begun.
///
/// It writes nothing to standard output: the lines that the core writes there (a worker retires, a
/// limit is reached) are debug records of the category "KTThread". For another place,
/// `pool()->setMessages`.
///
/// It may be moved; what is moved from has no pool. Any thread may submit to it, and close it.
/// Moving and destroying it belong to one thread. One of its own tasks can't wait for it: closed
/// there, it refuses what is submitted from then on, and drops what waits if `queued` says so; its
/// destructor still does all the steps. Destroyed in a task of its own it is told to stop and left,
/// with a log record.
///
/// Futures, promises, tokens and groups may outlive it. It may be destroyed once no other thread is
/// in a call that is given it; its own tasks may go on using it until then, but not those that are
/// left alone. When it has ended without any left, the caller sees all that its tasks wrote.
///
/// In a child of the process that made it (fork) it does nothing: see KTThreadPool.
///
/// \ingroup ktasync
class KTASYNC_EXPORT KTScopedPool {
public:
    /// Starts the workers. Throws KTError for nonsense in `options` and if the threads can't be
    /// created, std::bad_alloc.
    ///
    /// \param options  copied
    explicit KTScopedPool(const KTPoolOptions& options = KTPoolOptions());

    /// Closes it. Blocks as the table says; not a cancellation point.
    ~KTScopedPool();

    /// Takes the pool over. Doesn't block.
    ///
    /// \param other  has no pool afterwards
    KTScopedPool(KTScopedPool&& other) noexcept;

    /// Closes the pool that it has so far, and blocks for that.
    ///
    /// \param other  has no pool afterwards
    /// \return       this
    KTScopedPool& operator=(KTScopedPool&& other) noexcept;

    /// Closes it early. What is submitted afterwards is dropped. Blocks as the table says, or until
    /// another thread has closed it; in a task of its own it only begins to (see above). Any thread
    /// may call it; not a cancellation point.
    ///
    /// \return  whether all workers have ended; false in a task of its own, or when moved from
    bool close();

    /// The pool itself, for what the core offers. To be closed by this object only. Throws nothing.
    ///
    /// \return  null when moved from
    const boost::shared_ptr<KTThreadPool>& pool() const { return owned; }

    /// What the pool does at the moment. Any thread may call it. Throws KTError when moved from.
    ///
    /// \return  its figures
    KTThreadPoolStatus status() const;

private:
    friend class KTPoolRef;

    void start(const KTPoolOptions& options, int threads, int maxThreads);

    boost::shared_ptr<KTThreadPool> owned;
    detail::Scheduler* scheduler = nullptr;  ///< lives as long as the pool
    std::unique_ptr<detail::PoolEnd> end;
};

}  // namespace KT
