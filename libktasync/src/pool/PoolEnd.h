/// How a pool for a scope ends.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include <sys/types.h>

#include <boost/shared_ptr.hpp>

#include <ktasync/KTPoolOptions.h>

namespace KT {

class KTThreadPool;

namespace detail {

class Scheduler;

/// Closes a pool in the steps of its options, once, whichever thread calls it.
///
/// Any thread may call any operation, also while another one closes the pool. None is a
/// cancellation point.
class PoolEnd {
public:
    PoolEnd(const KTPoolOptions& options, boost::shared_ptr<KTThreadPool> pool,
            Scheduler& scheduler);

    /// Does the steps, or waits for the thread that does them; whether all workers have ended. A
    /// task of the pool can't wait for that: there it only has the pool refuse what is submitted
    /// from then on, and says false.
    bool close();

    /// The same for the end of the scope, after which nobody can close the pool any more. In a task
    /// of the pool it tells the pool to stop, and leaves the rest to a thread made for that.
    void closeForGood();

private:
    template <typename MakeText>
    void report(const MakeText& makeText) const;
    bool isInOwnTask() const;
    int finishWork();
    bool stopWork(int unfinished);
    std::string textOfUnfinished(int unfinished) const;
    std::string textOfStuck() const;
    std::string textOfRunning() const;

    const KTPoolOptions options;
    const boost::shared_ptr<KTThreadPool> pool;
    Scheduler& scheduler;  ///< lives as long as the pool
    const pid_t maker;
    std::mutex mutex;
    // Under `mutex`, which the thread that closes the pool holds.
    bool isDone = false;
    bool hasEnded = false;
};

/// As KTThreadPool::close, for destructors: waits for memory that has run out, as for the rest.
bool closeSurely(KTThreadPool& pool, bool force, int timeoutMs);

}  // namespace detail
}  // namespace KT
