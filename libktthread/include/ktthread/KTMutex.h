/// \file
/// The two locks: a mutex and a reader/writer lock, thin wrappers over the POSIX ones that can be
/// shared. Both are made by their factory, held by boost::shared_ptr and taken through the guards
/// of KTCriticalSection.h. A thread that takes a lock sees what was written before its release.
/// Every operation may be called from any thread while the object is alive.
///
/// No operation looks at the status of the platform call or passes it on: a failing call (an unlock
/// by a thread that doesn't hold it, a destroy of a locked mutex) is not reported. Only those
/// that make a lock throw.
///
/// \ingroup ktthread
#pragma once

#include <memory>

#include <pthread.h>

#include <boost/shared_ptr.hpp>

#include <ktthread/export.h>

namespace KT {

/// How the primitives free the platform's objects that they own. Not for clients.
///
/// \ingroup ktthread_own
struct KTPlatformObjectDeleter {
    /// Frees the memory. Throws nothing; any thread.
    ///
    /// \param object  one that the library has made; null does nothing
    void operator()(void* object) const;
};

/// A mutex of the platform's default kind: not recursive (a thread that locks it twice deadlocks),
/// and it doesn't notice an unlock by a thread that doesn't own it. A KTCriticalSection makes
/// neither mistake. It can't be copied; pointers to it are.
/// \code
/// boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
/// {
///     KT::KTCriticalSection hold(mutex);
///     // one thread at a time
/// }
/// \endcode
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTMutex {
public:
    /// A new unlocked mutex. Throws std::bad_alloc, and then leaks nothing.
    ///
    /// \return  its first owner
    static boost::shared_ptr<KTMutex> createKTMutex();

    /// An unlocked mutex without an owner: for members and other smart pointers. Throws
    /// std::bad_alloc.
    KTMutex();
    /// No thread may hold it or wait for it. Doesn't block.
    virtual ~KTMutex();
    KTMutex(const KTMutex&) = delete;
    KTMutex& operator=(const KTMutex&) = delete;

    /// Blocks until the calling thread owns the mutex. Not a cancellation point.
    void lock();

    /// Releases the mutex; its holder calls it. Doesn't block.
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
/// | no thread      | passes   | passes    |
/// | readers        | passes   | waits     |
/// | a writer       | waits    | waits     |
/// \code
/// boost::shared_ptr<KT::KTMutexRW> lock = KT::KTMutexRW::createKTMutexRW();
/// {
///     KT::KTCriticalSectionRead hold(lock);
///     // any number of readers at a time, and no writer
/// }
/// \endcode
/// The table is for different threads; a thread takes the lock once at a time. A thread that holds
/// it shared and requests it exclusively deadlocks. A thread that holds it exclusively and requests
/// it again goes on at once, since the platform refuses, and the first unlock releases everything.
/// Readers pass while a writer waits, so readers that never pause can starve writers: where that
/// can happen, use a KTMutex. It can't be copied.
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTMutexRW {
public:
    /// A new free lock. Throws std::bad_alloc, and then leaks nothing.
    ///
    /// \return  its first owner
    static boost::shared_ptr<KTMutexRW> createKTMutexRW();

    /// A free lock without an owner: for members and other smart pointers. Throws std::bad_alloc.
    KTMutexRW();
    /// No thread may hold it or wait for it. Doesn't block.
    virtual ~KTMutexRW();
    KTMutexRW(const KTMutexRW&) = delete;
    KTMutexRW& operator=(const KTMutexRW&) = delete;

    /// Blocks until the calling thread has a shared hold. Not a cancellation point.
    void readLock();

    /// Blocks until the calling thread has the exclusive hold. Not a cancellation point.
    void writeLock();

    /// Releases the calling thread's hold, of either kind. Doesn't block.
    void unlock();

private:
    std::unique_ptr<pthread_rwlock_t, KTPlatformObjectDeleter> lock;
};

}  // namespace KT
