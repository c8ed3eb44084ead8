#include <ktthread/KTCriticalSection.h>

#include <utility>

#include <pthread.h>

namespace KT {

KTCriticalSection::KTCriticalSection(boost::shared_ptr<KTMutex> held) : mutex(std::move(held))
{
    mutex->lock();
}

KTCriticalSection::~KTCriticalSection()
{
    if (mutex) {
        mutex->unlock();
    }
}

void KTCriticalSection::forceUnlockNow()
{
    mutex->unlock();
    mutex.reset();
}

KTCriticalSectionRead::KTCriticalSectionRead(boost::shared_ptr<KTMutexRW> held)
    : lock(std::move(held))
{
    lock->readLock();
}

KTCriticalSectionRead::~KTCriticalSectionRead()
{
    lock->unlock();
}

KTCriticalSectionWrite::KTCriticalSectionWrite(boost::shared_ptr<KTMutexRW> held)
    : lock(std::move(held))
{
    lock->writeLock();
}

KTCriticalSectionWrite::~KTCriticalSectionWrite()
{
    lock->unlock();
}

KTCriticalTrueIfLocked::KTCriticalTrueIfLocked(boost::shared_ptr<KTMutex> tried,
                                               bool& alreadyLocked)
    : mutex(tried->mutex.get()), failed(pthread_mutex_trylock(mutex) != 0)
{
    alreadyLocked = failed;
}

KTCriticalTrueIfLocked::~KTCriticalTrueIfLocked()
{
    if (!failed && mutex != nullptr) {
        pthread_mutex_unlock(mutex);
    }
}

void KTCriticalTrueIfLocked::forceUnlockNow()
{
    // Even if `failed`, as the header says.
    pthread_mutex_unlock(mutex);
    mutex = nullptr;
}

}  // namespace KT
