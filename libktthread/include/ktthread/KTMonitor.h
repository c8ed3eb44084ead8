/// \file
/// The observer that makes a pool grow.
#pragma once

#include <atomic>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <ktthread/KTMutex.h>
#include <ktthread/KTTask.h>
#include <ktthread/export.h>

namespace KT {

class KTThread;
class KTThreadPool;

/// A pool's monitor: it adds up how long ended tasks waited and asks the pool for one more worker
/// when at most one is idle. The pool makes it; both operations may be called from any thread.
///
/// It looks at the pool after each enqueue and after every `period` ended tasks (after enqueues
/// only if `period` is 0 or negative). From 190 busy workers on it requests no more, whatever the
/// pool's maximum, and says so each time (see KTThreadPool::Messages).
///
/// It owns its pool and the pool owns it: KTThreadPool::close breaks that cycle. It can't be
/// copied. Its operations block for locks only, and for as long as the platform takes to make a
/// thread. A client doesn't need a monitor, but may use one to have a pool looked at out of turn:
/// \code
/// KT::KTMonitor(1, 0, 0, pool).adjustPool();  // one worker more, if at most one is idle
/// \endcode
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTMonitor {
public:
    /// Looks at nothing yet. Throws std::bad_alloc.
    ///
    /// \param period  in ended tasks: how often `assimilate` looks at the pool
    /// \param param2  kept, and used by nothing
    /// \param param3  kept, and used by nothing
    /// \param pool    not empty; shared
    KTMonitor(int period, int param2, int param3, boost::shared_ptr<KTThreadPool> pool);
    /// Releases the pool.
    ~KTMonitor();
    KTMonitor(const KTMonitor&) = delete;
    KTMonitor& operator=(const KTMonitor&) = delete;

    /// Counts an ended task and its waiting time (KTTask::getIdleTime). Ignores an empty pointer.
    /// Throws what adjustPool throws; the task is counted then, too.
    ///
    /// \param task  one that has ended; released here if its `autoDelete` is set
    void assimilate(boost::shared_ptr<KTTask> task);

    /// Asks the pool for one worker more if at most one is idle. Throws std::bad_alloc, and what a
    /// client has set std::cout to throw.
    void adjustPool();

private:
    void lookAtPool(std::vector<boost::shared_ptr<KTThread> >& displaced);

    boost::shared_ptr<KTThreadPool> pool;
    boost::shared_ptr<KTMutex> mutex;  // also held while assimilate looks at the pool
    int period;
    int param2 __attribute__((unused));  // kept for inspection, as is param3
    int param3 __attribute__((unused));
    int taskCount;         // under mutex; ended tasks since the last look at the pool
    int idleSeconds;       // under mutex
    int idleMicroseconds;  // under mutex
    std::atomic<bool> gate;
};

}  // namespace KT
