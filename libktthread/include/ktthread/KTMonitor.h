/// The observer that makes a pool grow.
#pragma once

#include <vector>

#include <boost/shared_ptr.hpp>

#include <ktthread/KTMutex.h>
#include <ktthread/KTTask.h>
#include <ktthread/KTTurnstile.h>
#include <ktthread/export.h>

namespace KT {

class KTThread;
class KTThreadPool;

/// A pool's monitor: it adds up how long ended tasks waited and asks the pool for one more worker
/// when at most one is idle. The pool makes it; both operations may be called from any thread.
///
/// It looks at the pool after each enqueue and after every `period` ended tasks (never on the
/// latter account if `period` is 0 or negative). From 190 busy workers on it asks for no more,
/// whatever the pool's maximum, and says so on standard output.
///
/// It holds its pool strongly and the pool holds it: KTThreadPool::close ends that cycle.
class KTTHREAD_EXPORT KTMonitor {
public:
    /// `param2` and `param3` are kept and used by nothing. Throws std::bad_alloc.
    KTMonitor(int period, int param2, int param3, boost::shared_ptr<KTThreadPool> pool);
    ~KTMonitor();
    KTMonitor(const KTMonitor&) = delete;
    KTMonitor& operator=(const KTMonitor&) = delete;

    /// Counts an ended task and its waiting time (KTTask::getIdleTime). An empty pointer counts as
    /// nothing. What adjustPool throws leaves it, with the task counted.
    void assimilate(boost::shared_ptr<KTTask> task);

    /// Asks the pool for one worker more if at most one is idle.
    void adjustPool();

private:
    void adjustPool(std::vector<boost::shared_ptr<KTThread> >& displaced);

    boost::shared_ptr<KTThreadPool> pool;
    /// Guards the three counters, and is held while assimilate calls adjustPool.
    boost::shared_ptr<KTMutex> mutex;
    int period;
    int param2 __attribute__((unused));  ///< kept for inspection, as is param3
    int param3 __attribute__((unused));
    int taskCount;  ///< ended tasks since the last look at the pool
    int idleSeconds;
    int idleMicroseconds;
    KTTurnstile turnstile;
};

}  // namespace KT
