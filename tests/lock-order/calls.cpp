/// The platform's calls, recorded: to be loaded in front of the C library (LD_PRELOAD).
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include "Order.h"

using order::Mode;

namespace {

/// Whether this process is one of those to look at: its program is below the folder that the
/// environment's KT_LOCK_ORDER_PROGRAMS names. The compilers and shells that tests start are not.
bool isLookedAt()
{
    const char* const folder = std::getenv("KT_LOCK_ORDER_PROGRAMS");
    char program[4096] = {};
    return folder != nullptr && readlink("/proc/self/exe", program, sizeof program - 1) > 0 &&
           std::strncmp(program, folder, std::strlen(folder)) == 0;
}

/// Set from the time on when the recorder is ready.
bool isOn = false;

__attribute__((destructor)) void end()
{
    if (isOn) {
        isOn = false;
        order::write();
    }
}

/// A call of the C library. It is no static of the function that makes the call: a child of a
/// process in which another thread was just initialising that one would wait for it for ever.
class Call {
public:
    constexpr explicit Call(const char* itsName) : name(itsName) {}
    void* find()
    {
        void* function = found.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = dlsym(RTLD_NEXT, name);
            found.store(function, std::memory_order_relaxed);
        }
        return function;
    }

private:
    const char* const name;
    std::atomic<void*> found{nullptr};
};

Call of_pthread_mutex_init("pthread_mutex_init");
Call of_pthread_mutex_destroy("pthread_mutex_destroy");
Call of_pthread_mutex_lock("pthread_mutex_lock");
Call of_pthread_mutex_trylock("pthread_mutex_trylock");
Call of_pthread_mutex_unlock("pthread_mutex_unlock");
Call of_pthread_rwlock_init("pthread_rwlock_init");
Call of_pthread_rwlock_destroy("pthread_rwlock_destroy");
Call of_pthread_rwlock_rdlock("pthread_rwlock_rdlock");
Call of_pthread_rwlock_wrlock("pthread_rwlock_wrlock");
Call of_pthread_rwlock_unlock("pthread_rwlock_unlock");
Call of_pthread_cond_wait("pthread_cond_wait");
Call of_pthread_cond_timedwait("pthread_cond_timedwait");
Call of_pthread_cond_clockwait("pthread_cond_clockwait");

#define KT_NEXT(function) \
    const auto real = reinterpret_cast<decltype(&(function))>(of_##function.find())

/// Finds all of them while there is one thread: the loader's lock is inherited across fork, too.
void findCalls()
{
    for (Call* const call :
         {&of_pthread_mutex_init, &of_pthread_mutex_destroy, &of_pthread_mutex_lock,
          &of_pthread_mutex_trylock, &of_pthread_mutex_unlock, &of_pthread_rwlock_init,
          &of_pthread_rwlock_destroy, &of_pthread_rwlock_rdlock, &of_pthread_rwlock_wrlock,
          &of_pthread_rwlock_unlock, &of_pthread_cond_wait, &of_pthread_cond_timedwait,
          &of_pthread_cond_clockwait}) {
        call->find();
    }
}

__attribute__((constructor)) void begin()
{
    findCalls();
    order::begin();
    isOn = isLookedAt();
}

template <typename Lock>
int take(int (*real)(Lock*), Lock* lock, Mode mode, void* place)
{
    if (!isOn) {
        return real(lock);
    }
    order::wanted(lock, mode, place);
    const int status = real(lock);
    if (status == 0) {
        order::taken(lock, mode, place);
    }
    return status;
}

/// A wait releases its mutex and takes it again, also if the thread is cancelled in the wait.
class GivenBack {
public:
    explicit GivenBack(pthread_mutex_t* mutex) : held(order::released(mutex)) {}
    ~GivenBack() { order::takenAgain(held); }
    GivenBack(const GivenBack&) = delete;
    GivenBack& operator=(const GivenBack&) = delete;

private:
    const order::Held held;
};

}  // namespace

extern "C" {

#define KT_CALLER __builtin_return_address(0)

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes)
{
    KT_NEXT(pthread_mutex_init);
    if (isOn) {
        order::made(mutex);
    }
    return real(mutex, attributes);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex)
{
    KT_NEXT(pthread_mutex_destroy);
    order::destroyed(mutex);
    return real(mutex);
}

int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    KT_NEXT(pthread_mutex_lock);
    return take(real, mutex, Mode::exclusive, KT_CALLER);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex)
{
    KT_NEXT(pthread_mutex_trylock);
    const int status = real(mutex);
    if (isOn && status == 0) {
        order::taken(mutex, Mode::exclusive, KT_CALLER);
    }
    return status;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    KT_NEXT(pthread_mutex_unlock);
    order::released(mutex);
    return real(mutex);
}

int pthread_rwlock_init(pthread_rwlock_t* lock, const pthread_rwlockattr_t* attributes)
{
    KT_NEXT(pthread_rwlock_init);
    if (isOn) {
        order::made(lock);
    }
    return real(lock, attributes);
}

int pthread_rwlock_destroy(pthread_rwlock_t* lock)
{
    KT_NEXT(pthread_rwlock_destroy);
    order::destroyed(lock);
    return real(lock);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock)
{
    KT_NEXT(pthread_rwlock_rdlock);
    return take(real, lock, Mode::shared, KT_CALLER);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock)
{
    KT_NEXT(pthread_rwlock_wrlock);
    return take(real, lock, Mode::exclusive, KT_CALLER);
}

int pthread_rwlock_unlock(pthread_rwlock_t* lock)
{
    KT_NEXT(pthread_rwlock_unlock);
    order::released(lock);
    return real(lock);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    KT_NEXT(pthread_cond_wait);
    if (!isOn) {
        return real(condition, mutex);
    }
    const GivenBack givenBack(mutex);
    return real(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* end)
{
    KT_NEXT(pthread_cond_timedwait);
    if (!isOn) {
        return real(condition, mutex, end);
    }
    const GivenBack givenBack(mutex);
    return real(condition, mutex, end);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* end)
{
    KT_NEXT(pthread_cond_clockwait);
    if (!isOn) {
        return real(condition, mutex, clock, end);
    }
    const GivenBack givenBack(mutex);
    return real(condition, mutex, clock, end);
}

}  // extern "C"
