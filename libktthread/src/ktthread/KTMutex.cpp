#include <ktthread/KTMutex.h>

#include <pthread.h>

#include "PlatformObject.h"

namespace KT {

void KTPlatformObjectDeleter::operator()(void* object) const
{
    ::operator delete(object, core::platformObjectAlignment);
}

boost::shared_ptr<KTMutex> KTMutex::createKTMutex()
{
    return boost::shared_ptr<KTMutex>(new KTMutex);
}

KTMutex::KTMutex() : mutex(core::newPlatformObject<pthread_mutex_t>())
{
    pthread_mutex_init(mutex.get(), nullptr);
}

KTMutex::~KTMutex()
{
    pthread_mutex_destroy(mutex.get());
}

void KTMutex::lock()
{
    pthread_mutex_lock(mutex.get());
}

void KTMutex::unlock()
{
    pthread_mutex_unlock(mutex.get());
}

boost::shared_ptr<KTMutexRW> KTMutexRW::createKTMutexRW()
{
    return boost::shared_ptr<KTMutexRW>(new KTMutexRW);
}

KTMutexRW::KTMutexRW() : lock(core::newPlatformObject<pthread_rwlock_t>())
{
    pthread_rwlock_init(lock.get(), nullptr);
}

KTMutexRW::~KTMutexRW()
{
    pthread_rwlock_destroy(lock.get());
}

void KTMutexRW::readLock()
{
    pthread_rwlock_rdlock(lock.get());
}

void KTMutexRW::writeLock()
{
    pthread_rwlock_wrlock(lock.get());
}

void KTMutexRW::unlock()
{
    pthread_rwlock_unlock(lock.get());
}

}  // namespace KT
