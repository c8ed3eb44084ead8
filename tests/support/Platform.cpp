#include "Platform.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <mutex>
#include <new>
#include <utility>

#include <dlfcn.h>
#include <sys/prctl.h>

#include "SpinLock.h"

namespace platform {
namespace {

struct State {
    SpinLock lock;
    bool recording = false;
    std::vector<Record> records;
    std::function<void(Call, const void*)> look;
    bool failing = false;
    Call failingCall = Call::name;
    int status = 0;
    int calls = 0;
    std::function<bool(int)> when;
};

/// Never destroyed, since threads make these calls until the process has ended. Made without an
/// allocation, which a test may make fail, and without the guard of a local static: that of
/// libc++abi is a mutex, and its lock is one of these calls.
State& state()
{
    alignas(State) static unsigned char memory[sizeof(State)];
    static SpinLock making;
    static std::atomic<State*> made(nullptr);
    if (made == nullptr) {
        const std::lock_guard<SpinLock> hold(making);
        if (made == nullptr) {
            made = new (memory) State;
        }
    }
    return *made;
}

/// Whether a call has to be noted. While it hasn't, the calls of two threads are in no order here:
/// one would hide from ThreadSanitizer what the libraries themselves don't order.
std::atomic<bool> inUse(false);

class Hold {
public:
    Hold() { state().lock.lock(); }
    ~Hold() { state().lock.unlock(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
};

/// For what changes the three that it looks at.
void setInUseLocked()
{
    inUse = state().recording || state().look || state().failing;
}

/// Records a call. Returns the status that it must fail with, or 0 if it is to be made.
int note(Call call, const void* object, long value = 0, const char* text = "")
{
    if (!inUse.load(std::memory_order_relaxed)) {
        return 0;
    }
    const Hold hold;
    if (state().recording) {
        state().records.push_back({call, object, value, text, pthread_self()});
    }
    if (state().look) {
        state().look(call, object);
    }
    if (state().failing && state().failingCall == call && state().when(++state().calls)) {
        return state().status;
    }
    return 0;
}

/// The C library's function of that name. A static one is initialised at compile time, and so
/// has no guard.
template <typename Function>
class Next {
public:
    constexpr explicit Next(const char* functionName) : name(functionName) {}

    template <typename... Args>
    int operator()(Args... args)
    {
        // Relaxed for the same reason.
        Function* function = found.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
            found.store(function, std::memory_order_relaxed);
        }
        return function(args...);
    }

private:
    const char* const name;
    std::atomic<Function*> found{nullptr};
};

}  // namespace

Recorder::Recorder()
{
    const Hold hold;
    state().records.clear();
    state().recording = true;
    setInUseLocked();
}

Recorder::~Recorder()
{
    const Hold hold;
    state().recording = false;
    setInUseLocked();
}

std::vector<Record> Recorder::records() const
{
    const Hold hold;
    return state().records;
}

std::vector<Record> Recorder::records(Call call) const
{
    std::vector<Record> found;
    for (Record& record : records()) {
        if (record.call == call) {
            found.push_back(std::move(record));
        }
    }
    return found;
}

std::size_t Recorder::count(Call call, const void* object) const
{
    std::size_t found = 0;
    for (const Record& record : records()) {
        found += record.call == call && (object == nullptr || record.object == object);
    }
    return found;
}

std::vector<std::string> Recorder::names() const
{
    std::vector<std::string> found;
    for (Record& record : records(Call::name)) {
        found.push_back(std::move(record.text));
    }
    return found;
}

std::vector<std::string> Recorder::names(pthread_t thread) const
{
    std::vector<std::string> found;
    for (Record& record : records(Call::name)) {
        if (pthread_equal(record.thread, thread) != 0) {
            found.push_back(std::move(record.text));
        }
    }
    return found;
}

Observer::Observer(std::function<void(Call, const void*)> look)
{
    const Hold hold;
    state().look = std::move(look);
    setInUseLocked();
}

Observer::~Observer()
{
    const Hold hold;
    state().look = nullptr;
    setInUseLocked();
}

Failure::Failure(Call call, int status, std::function<bool(int)> when)
{
    const Hold hold;
    state().failing = true;
    state().failingCall = call;
    state().status = status;
    state().calls = 0;
    state().when = std::move(when);
    setInUseLocked();
}

Failure::~Failure()
{
    const Hold hold;
    state().failing = false;
    setInUseLocked();
}

}  // namespace platform

using platform::Call;
using platform::Next;
using platform::note;

extern "C" {

int prctl(int option, ...)
{
    va_list list;
    va_start(list, option);
    unsigned long args[4];
    for (unsigned long& arg : args) {
        arg = va_arg(list, unsigned long);
    }
    va_end(list);
    if (option == PR_SET_NAME) {
        const int failed = note(Call::name, nullptr, 0, reinterpret_cast<const char*>(args[0]));
        if (failed != 0) {
            return -1;
        }
    }
    static Next<int(int, ...)> real("prctl");
    return real(option, args[0], args[1], args[2], args[3]);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* arg)
{
    static Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> real(
        "pthread_create");
    const int failed = note(Call::create, arg);
    return failed != 0 ? failed : real(thread, attributes, start, arg);
}

int pthread_attr_setstacksize(pthread_attr_t* attributes, size_t size)
{
    static Next<int(pthread_attr_t*, size_t)> real("pthread_attr_setstacksize");
    const int failed = note(Call::stackSize, attributes, static_cast<long>(size));
    return failed != 0 ? failed : real(attributes, size);
}

int pthread_attr_setinheritsched(pthread_attr_t* attributes, int inherit)
{
    static Next<int(pthread_attr_t*, int)> real("pthread_attr_setinheritsched");
    const int failed = note(Call::inheritSched, attributes, inherit);
    return failed != 0 ? failed : real(attributes, inherit);
}

int pthread_attr_setschedpolicy(pthread_attr_t* attributes, int policy)
{
    static Next<int(pthread_attr_t*, int)> real("pthread_attr_setschedpolicy");
    const int failed = note(Call::schedPolicy, attributes, policy);
    return failed != 0 ? failed : real(attributes, policy);
}

int pthread_attr_setschedparam(pthread_attr_t* attributes, const sched_param* param)
{
    static Next<int(pthread_attr_t*, const sched_param*)> real("pthread_attr_setschedparam");
    const int failed = note(Call::schedPriority, attributes, param->sched_priority);
    return failed != 0 ? failed : real(attributes, param);
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes)
{
    static Next<int(pthread_mutex_t*, const pthread_mutexattr_t*)> real("pthread_mutex_init");
    const int failed = note(Call::initMutex, mutex);
    return failed != 0 ? failed : real(mutex, attributes);
}

int pthread_rwlock_init(pthread_rwlock_t* lock, const pthread_rwlockattr_t* attributes)
{
    static Next<int(pthread_rwlock_t*, const pthread_rwlockattr_t*)> real("pthread_rwlock_init");
    const int failed = note(Call::initLock, lock);
    return failed != 0 ? failed : real(lock, attributes);
}

int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    static Next<int(pthread_mutex_t*)> real("pthread_mutex_lock");
    const int failed = note(Call::lock, mutex);
    return failed != 0 ? failed : real(mutex);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock)
{
    static Next<int(pthread_rwlock_t*)> real("pthread_rwlock_rdlock");
    const int failed = note(Call::readLock, lock);
    return failed != 0 ? failed : real(lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock)
{
    static Next<int(pthread_rwlock_t*)> real("pthread_rwlock_wrlock");
    const int failed = note(Call::writeLock, lock);
    return failed != 0 ? failed : real(lock);
}

int pthread_rwlock_unlock(pthread_rwlock_t* lock)
{
    static Next<int(pthread_rwlock_t*)> real("pthread_rwlock_unlock");
    const int failed = note(Call::rwUnlock, lock);
    return failed != 0 ? failed : real(lock);
}

int pthread_cond_signal(pthread_cond_t* condition)
{
    static Next<int(pthread_cond_t*)> real("pthread_cond_signal");
    const int failed = note(Call::signal, condition);
    return failed != 0 ? failed : real(condition);
}

int pthread_cond_broadcast(pthread_cond_t* condition)
{
    static Next<int(pthread_cond_t*)> real("pthread_cond_broadcast");
    const int failed = note(Call::broadcast, condition);
    return failed != 0 ? failed : real(condition);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    static Next<int(pthread_cond_t*, pthread_mutex_t*)> real("pthread_cond_wait");
    const int failed = note(Call::wait, condition);
    return failed != 0 ? failed : real(condition, mutex);
}

int pthread_cond_destroy(pthread_cond_t* condition)
{
    static Next<int(pthread_cond_t*)> real("pthread_cond_destroy");
    const int failed = note(Call::destroy, condition);
    return failed != 0 ? failed : real(condition);
}

int pthread_join(pthread_t thread, void** result)
{
    static Next<int(pthread_t, void**)> real("pthread_join");
    const int failed = note(Call::join, nullptr);
    return failed != 0 ? failed : real(thread, result);
}

int pthread_detach(pthread_t thread)
{
    static Next<int(pthread_t)> real("pthread_detach");
    const int failed = note(Call::detach, nullptr);
    return failed != 0 ? failed : real(thread);
}

int pthread_cancel(pthread_t thread)
{
    static Next<int(pthread_t)> real("pthread_cancel");
    const int failed = note(Call::cancel, nullptr);
    return failed != 0 ? failed : real(thread);
}

int nanosleep(const timespec* duration, timespec* left)
{
    static Next<int(const timespec*, timespec*)> real("nanosleep");
    const int failed =
        note(Call::sleep, nullptr, duration->tv_sec * 1000 + duration->tv_nsec / 1000000);
    if (failed != 0) {
        errno = failed;
        return -1;
    }
    return real(duration, left);
}

}  // extern "C"
