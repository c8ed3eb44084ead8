/// The two locks: a mutex and a reader/writer lock, thin wrappers over the POSIX ones that can be
/// shared. Both are made by their factory, held by boost::shared_ptr and taken through the guards
/// of KTCriticalSection.h. Every operation may be called from any thread while the object is alive.
///
/// No operation looks at the status of the platform call or passes it on: a failing call (an unlock
/// by a stranger, a destroy of a locked mutex) goes by silently.
#pragma once

#include <memory>

#include <pthread.h>

#include <boost/shared_ptr.hpp>

#include <ktthread/export.h>

namespace KT {

/// How the primitives give back the platform's objects that they own.
struct KTPlatformObjectDeleter {
    void operator()(void* object) const;
};

/// A mutex of the platform's default kind: not recursive (a thread that locks it twice deadlocks),
/// and it doesn't notice an unlock by a thread that doesn't own it.
///
///     boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
///     {
///         KT::KTCriticalSection hold(mutex);
///         // one thread at a time
///     }
class KTTHREAD_EXPORT KTMutex {
public:
    /// A new unlocked mutex. Throws std::bad_alloc, and then leaks nothing.
    static boost::shared_ptr<KTMutex> createKTMutex();

    KTMutex();
    virtual ~KTMutex();
    KTMutex(const KTMutex&) = delete;
    KTMutex& operator=(const KTMutex&) = delete;

    /// Blocks until the calling thread owns the mutex. Not a cancellation point.
    void lock();

    /// Gives the mutex back; the owner calls it.
    void unlock();

private:
    friend class KTCondition;
    friend class KTCriticalTrueIfLocked;

    std::unique_ptr<pthread_mutex_t, KTPlatformObjectDeleter> mutex;
};

/// A reader/writer lock of the platform's default policy.
///
/// | held by        | readLock | writeLock |
/// |----------------|----------|-----------|
/// | nobody         | passes   | passes    |
/// | readers        | passes   | waits     |
/// | a writer       | waits    | waits     |
class KTTHREAD_EXPORT KTMutexRW {
public:
    /// A new free lock. Throws std::bad_alloc, and then leaks nothing.
    static boost::shared_ptr<KTMutexRW> createKTMutexRW();

    KTMutexRW();
    virtual ~KTMutexRW();
    KTMutexRW(const KTMutexRW&) = delete;
    KTMutexRW& operator=(const KTMutexRW&) = delete;

    /// Blocks until the calling thread has a shared hold.
    void readLock();

    /// Blocks until the calling thread has the exclusive hold.
    void writeLock();

    /// Gives back the hold that the calling thread has, of either kind.
    void unlock();

private:
    std::unique_ptr<pthread_rwlock_t, KTPlatformObjectDeleter> lock;
};

}  // namespace KT
