/// \file
/// A pool for a scope.
#pragma once

#include <sys/types.h>

#include <boost/shared_ptr.hpp>

#include <ktthread/KTThreadPool.h>
#include <ktthread/KTThreadPoolStatus.h>

#include <ktasync/KTPoolOptions.h>
#include <ktasync/KTPoolRef.h>
#include <ktasync/export.h>

namespace KT {

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
/// Work that is left undone by a time limit makes one log record (category "ktasync", a warning)
/// that says what was done about it. "Go on" holds for the tasks of this library; those derived
/// from KTTask by hand are asked to stop as soon as all have begun.
///
/// It may be moved; what is moved from has no pool. Any thread may submit to it. Moving, closing
/// and destroying it belong to one thread. Closed in one of its own tasks it can't wait: it is told
/// to stop and left, with a log record.
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

    /// Closes it early. Once closed, or moved from, it does nothing. What is submitted afterwards
    /// is dropped. Blocks as the table says; not a cancellation point.
    ///
    /// \return  whether all workers have ended
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

    void start(int threads, int maxThreads);
    int finishWork();
    bool isInOwnTask() const;
    bool stopWork(int unfinished);

    KTPoolOptions options;
    boost::shared_ptr<KTThreadPool> owned;
    detail::Scheduler* scheduler = nullptr;  ///< lives as long as the pool
    pid_t maker = 0;
    bool isClosed = false;
    bool hasEnded = false;
};

}  // namespace KT
