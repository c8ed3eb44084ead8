/// \file
/// The scoped guards through which locks are taken. A guard takes its lock where it is constructed
/// and releases it at the end of its scope, exceptions and forced unwinding included.
///
/// The thread that constructs a guard also destroys it. The lock given to it must not be an empty
/// pointer. The status of a platform call is ignored, except that of the try-lock. No guard throws,
/// is a cancellation point or can be copied; releasing a lock doesn't block.
///
/// \ingroup ktthread
#pragma once

#include <pthread.h>

#include <boost/shared_ptr.hpp>

#include <ktthread/KTMutex.h>
#include <ktthread/export.h>

namespace KT {

/// Holds a mutex, and keeps it alive.
/// \code
/// KT::KTCriticalSection hold(mutex);
/// ++counter;
/// \endcode
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTCriticalSection {
public:
    /// Blocks until it holds `mutex`.
    ///
    /// \param mutex  not empty, and not held by the calling thread
    explicit KTCriticalSection(boost::shared_ptr<KTMutex> mutex);
    /// Unlocks.
    ~KTCriticalSection();
    KTCriticalSection(const KTCriticalSection&) = delete;
    KTCriticalSection& operator=(const KTCriticalSection&) = delete;

    /// Unlocks now and drops the reference to the mutex; the destructor then does nothing. Call it
    /// at most once.
    void forceUnlockNow();

private:
    boost::shared_ptr<KTMutex> mutex;
};

/// Holds a reader/writer lock shared, and keeps it alive.
/// \code
/// KT::KTCriticalSectionRead hold(lock);
/// std::puts(settings.at("colour").c_str());
/// \endcode
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTCriticalSectionRead {
public:
    /// Blocks until it has a shared hold on `lock`.
    ///
    /// \param lock  not empty, and not held by the calling thread
    explicit KTCriticalSectionRead(boost::shared_ptr<KTMutexRW> lock);
    /// Releases the hold.
    ~KTCriticalSectionRead();
    KTCriticalSectionRead(const KTCriticalSectionRead&) = delete;
    KTCriticalSectionRead& operator=(const KTCriticalSectionRead&) = delete;

private:
    boost::shared_ptr<KTMutexRW> lock;
};

/// Holds a reader/writer lock exclusively, and keeps it alive.
/// \code
/// KT::KTCriticalSectionWrite hold(lock);
/// settings["colour"] = "blue";
/// \endcode
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTCriticalSectionWrite {
public:
    /// Blocks until it has the exclusive hold on `lock`.
    ///
    /// \param lock  not empty, and not held by the calling thread
    explicit KTCriticalSectionWrite(boost::shared_ptr<KTMutexRW> lock);
    /// Releases the hold.
    ~KTCriticalSectionWrite();
    KTCriticalSectionWrite(const KTCriticalSectionWrite&) = delete;
    KTCriticalSectionWrite& operator=(const KTCriticalSectionWrite&) = delete;

private:
    boost::shared_ptr<KTMutexRW> lock;
};

/// Tries a mutex without blocking.
/// \code
/// bool busy = false;
/// KT::KTCriticalTrueIfLocked attempt(mutex, busy);
/// if (!busy) {
///     // the mutex is held until the end of this scope
/// }
/// \endcode
/// It does not keep the mutex alive: the caller's own reference must outlive the guard.
///
/// \ingroup ktthread
class KTTHREAD_EXPORT KTCriticalTrueIfLocked {
public:
    /// Never blocks. `alreadyLocked` becomes false if the guard now holds `mutex`, true if not.
    ///
    /// \param mutex               not empty
    /// \param[out] alreadyLocked  whether a thread, perhaps the calling one, holds it already
    KTCriticalTrueIfLocked(boost::shared_ptr<KTMutex> mutex, bool& alreadyLocked);
    /// Unlocks, if the guard has the mutex.
    ~KTCriticalTrueIfLocked();
    KTCriticalTrueIfLocked(const KTCriticalTrueIfLocked&) = delete;
    KTCriticalTrueIfLocked& operator=(const KTCriticalTrueIfLocked&) = delete;

    /// Unlocks now; the destructor then does nothing. Call it at most once. If the guard didn't get
    /// the mutex, it is unlocked all the same, and so taken from its holder: check `alreadyLocked`
    /// first.
    void forceUnlockNow();

private:
    pthread_mutex_t* mutex;
    bool failed;
};

}  // namespace KT
