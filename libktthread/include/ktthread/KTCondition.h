/// A condition variable that can be shared.
#pragma once

#include <memory>

#include <pthread.h>

#include <boost/shared_ptr.hpp>

#include <ktthread/KTMutex.h>
#include <ktthread/export.h>

namespace KT {

/// A thin wrapper over the POSIX condition variable, made by its factory and held by
/// boost::shared_ptr. Every operation may be called from any thread while the object is alive. The
/// status of the platform calls is ignored, as with KTMutex.
///
///     KT::KTCriticalSection hold(mutex);
///     while (!ready) {
///         condition->wait(mutex);
///     }
class KTTHREAD_EXPORT KTCondition {
public:
    /// A new condition. Throws std::bad_alloc, and then leaks nothing.
    static boost::shared_ptr<KTCondition> createKTCondition();

    KTCondition();

    /// Wakes who still waits, as a spurious wake-up would, and blocks until they have left the
    /// condition. They need their mutex for that, not the condition.
    virtual ~KTCondition();

    KTCondition(const KTCondition&) = delete;
    KTCondition& operator=(const KTCondition&) = delete;

    /// Wakes at least one of the waiters, if there are any. Not remembered otherwise.
    void signal();

    /// Wakes all waiters. Not remembered where there are none.
    void broadcast();

    /// Blocks until one wake-up of any kind, a spurious one too: the caller checks what it waits
    /// for again. The caller holds `mutex`, which is free during the wait and held again on return.
    /// The caller's copy keeps the mutex alive. A cancellation point; a cancelled waiter unwinds
    /// with the mutex held.
    void wait(boost::shared_ptr<KTMutex> mutex);

    /// As `wait`, but for at most `milliseconds` on the monotonic clock; 0 or less doesn't block.
    /// True: woken, in whatever way; false: the time ran out. The mutex is held again either way.
    bool waitFor(boost::shared_ptr<KTMutex> mutex, int milliseconds);

private:
    std::unique_ptr<pthread_cond_t, KTPlatformObjectDeleter> condition;
};

}  // namespace KT
