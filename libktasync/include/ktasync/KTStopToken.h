/// \file
/// How a running callable hears that it is to stop.
#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/detail/Job.h>
#include <ktasync/export.h>

namespace KT {

/// A task's stop request. A callable that takes a `const KTStopToken&` first is given its own:
/// \code
/// KT::submit(pool, "poll", [](const KT::KTStopToken& stop) {
///     while (!stop.waitFor(1000)) {
///         pollOnce();
///     }
/// });
/// \endcode
/// The mark is raised by `cancel` of the future or the group, and when the pool is shut down while
/// one of its workers runs the task; not if another thread runs it, while it waits for the task. A
/// `cancel` also reaches the task that the cancelled one runs itself, because it waits for it, if
/// it has made that task; one that it got from elsewhere goes on, and so may have a result for
/// others. The mark stays raised; who sees it sees what was written before the `cancel`, too.
/// Heeding it is up to the callable. A token may be copied, and kept for longer than the task runs;
/// every operation may be called from any thread.
///
/// \ingroup ktasync
class KTASYNC_EXPORT KTStopToken {
public:
    /// A token that is never raised.
    KTStopToken() = default;

    /// A look at the mark. Doesn't block, and throws nothing.
    ///
    /// \return  whether it is raised
    bool stopRequested() const { return job && job->stopRequested(); }

    /// Throws KTCancelled once the mark is raised: an exit from deep inside. Doesn't block.
    void throwIfStopRequested() const;

    /// Blocks until the mark is raised, or for a limited time. A cancellation point.
    ///
    /// \param milliseconds  that it may take; for ever if negative
    /// \return              whether the mark is raised
    bool waitFor(int milliseconds) const;

private:
    friend class detail::Job;
    explicit KTStopToken(const detail::Job* ofJob) : job(ofJob) {}

    boost::intrusive_ptr<const detail::Job> job;
};

}  // namespace KT
