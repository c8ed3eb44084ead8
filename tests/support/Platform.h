/// The platform calls that the libraries make, observed and made to fail: the test program defines
/// these functions itself, in front of the C library's.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <pthread.h>

namespace platform {

enum class Call {
    name,           ///< prctl(PR_SET_NAME): text
    create,         ///< pthread_create: object = the argument for the thread
    stackSize,      ///< pthread_attr_setstacksize: value
    inheritSched,   ///< pthread_attr_setinheritsched: value
    schedPolicy,    ///< pthread_attr_setschedpolicy: value
    schedPriority,  ///< pthread_attr_setschedparam: value
    initMutex,      ///< pthread_mutex_init: object = the mutex
    initLock,       ///< pthread_rwlock_init: object = the lock
    lock,           ///< pthread_mutex_lock: object = the mutex; seen just before the lock
    readLock,       ///< pthread_rwlock_rdlock: object = the lock; seen just before the hold
    writeLock,      ///< pthread_rwlock_wrlock: object = the lock; seen just before the hold
    rwUnlock,       ///< pthread_rwlock_unlock: object = the lock; seen while it is still held
    signal,         ///< pthread_cond_signal: object = the condition
    broadcast,      ///< pthread_cond_broadcast: object
    wait,           ///< pthread_cond_wait: object; seen just before the wait
    destroy,        ///< pthread_cond_destroy: object
    join,           ///< pthread_join
    detach,         ///< pthread_detach
    cancel,         ///< pthread_cancel
    sleep,          ///< nanosleep: value = milliseconds
};

struct Record {
    Call call;
    const void* object;
    long value;
    std::string text;
    pthread_t thread;  ///< who called
};

/// Records the calls made while it lives. One at a time.
class Recorder {
public:
    Recorder();
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    std::vector<Record> records() const;
    std::vector<Record> records(Call call) const;
    std::size_t count(Call call, const void* object = nullptr) const;

    /// The names that threads gave themselves, in order; of one thread where it is given.
    std::vector<std::string> names() const;
    std::vector<std::string> names(pthread_t thread) const;
};

/// While it lives, `look` is called just before each call is made, on the thread that makes it, one
/// thread at a time. It must make none of the calls itself. One at a time.
class Observer {
public:
    explicit Observer(std::function<void(Call call, const void* object)> look);
    ~Observer();
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;
};

/// While it lives, `call` returns `status` instead of being made, where `when` says so of the
/// number of the call (1 for the first one). One at a time.
class Failure {
public:
    Failure(
        Call call, int status, std::function<bool(int)> when = [](int) { return true; });
    ~Failure();
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;
};

}  // namespace platform
