/// \file
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
/// status of the platform calls is ignored, as with KTMutex. Only operations that make a condition
/// throw. It can't be copied; pointers to it are.
/// \code
/// KT::KTCriticalSection hold(mutex);
/// while (!ready) {
///     condition->wait(mutex);
/// }
/// \endcode
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTCondition {
public:
    /// A new condition. Throws std::bad_alloc, and then leaks nothing.
    ///
    /// \return  its first owner
    static boost::shared_ptr<KTCondition> createKTCondition();

    /// A condition without an owner: for members and other smart pointers. Throws std::bad_alloc.
    KTCondition();

    /// Wakes the threads that still wait, as a spurious wake-up would, and blocks until they have
    /// left the condition. They need their mutex for that, not the condition.
    virtual ~KTCondition();

    KTCondition(const KTCondition&) = delete;
    KTCondition& operator=(const KTCondition&) = delete;

    /// Wakes at least one of the waiters. Without any it has no effect, then or later. Doesn't
    /// block; may be called with the waiters' mutex held or not.
    void signal();

    /// Wakes all waiters. Without any it has no effect, then or later. Doesn't block.
    void broadcast();

    /// Blocks until a wake-up, which may be spurious: the caller then checks again what it waits
    /// for. The caller holds `mutex`, which is free during the wait and held again on return.
    /// The caller's copy keeps the mutex alive. A cancellation point; a cancelled waiter unwinds
    /// with the mutex held.
    ///
    /// \param mutex  not empty, and the same for all threads that wait at a time
    void wait(boost::shared_ptr<KTMutex> mutex);

    /// As `wait`, but for at most `milliseconds` on the monotonic clock; 0 or less doesn't block.
    /// The mutex is held again either way. A cancellation point, as `wait`.
    ///
    /// \param mutex         as for `wait`
    /// \param milliseconds  the limit
    /// \return              true: woken, in whatever way; false: the time ran out
    bool waitFor(boost::shared_ptr<KTMutex> mutex, int milliseconds);

private:
    std::unique_ptr<pthread_cond_t, KTPlatformObjectDeleter> condition;
};

}  // namespace KT
