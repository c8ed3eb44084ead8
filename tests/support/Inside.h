/// The private members of the library's classes, for tests that look at what no client can see.
///
/// An explicit instantiation may name private members; each one below hands its pointer out through
/// a friend function. So the product needs no hook for its tests.
#pragma once

#include <ktthread/ktthread.h>

namespace inside {
namespace {

template <typename Tag, typename Tag::Member member>
struct Expose {
    friend typename Tag::Member memberOf(Tag) { return member; }
};

#define KT_INSIDE(Class, name, ...)                                         \
    struct Class##_##name {                                                 \
        using Member = __VA_ARGS__ KT::Class::*;                            \
        friend Member memberOf(Class##_##name);                             \
    };                                                                      \
    template struct Expose<Class##_##name, &KT::Class::name>;               \
    [[maybe_unused]] auto& name(KT::Class& object)                          \
    {                                                                       \
        return object.*memberOf(Class##_##name());                          \
    }                                                                       \
    [[maybe_unused]] auto& name(const boost::shared_ptr<KT::Class>& object) \
    {                                                                       \
        return name(*object);                                               \
    }

using Workers = std::vector<boost::shared_ptr<KT::KTThread>>;
template <typename T>
using Platform = std::unique_ptr<T, KT::KTPlatformObjectDeleter>;
using Event = std::pair<boost::shared_ptr<KT::KTCondition>, boost::shared_ptr<KT::KTMutex>>;

KT_INSIDE(KTMutex, mutex, Platform<pthread_mutex_t>)
KT_INSIDE(KTMutexRW, lock, Platform<pthread_rwlock_t>)
KT_INSIDE(KTCondition, condition, Platform<pthread_cond_t>)

KT_INSIDE(KTTask, managingThread, boost::weak_ptr<KT::KTThread>)
KT_INSIDE(KTTask, state, std::atomic<std::int32_t>)
KT_INSIDE(KTTask, creationTime, ro::os::timeval)
KT_INSIDE(KTTask, executionTime, ro::os::timeval)
KT_INSIDE(KTTask, endTime, ro::os::timeval)

KT_INSIDE(KTThread, taskLock, boost::shared_ptr<KT::KTMutexRW>)
KT_INSIDE(KTThread, launchTime, ro::os::timeval)
KT_INSIDE(KTThread, idleTime, ro::os::timeval)
KT_INSIDE(KTThread, index, int)
KT_INSIDE(KTThread, killed, std::atomic<bool>)
KT_INSIDE(KTThread, currentTask, boost::shared_ptr<KT::KTTask>)
KT_INSIDE(KTThread, threadHandle, pthread_t)

KT_INSIDE(KTThreadPool, threads, Workers)
KT_INSIDE(KTThreadPool, retiredThreads, Workers)
KT_INSIDE(KTThreadPool, tasks, KT::KTTaskDeque)
KT_INSIDE(KTThreadPool, nbThreads, std::atomic<int>)
KT_INSIDE(KTThreadPool, monitor, boost::shared_ptr<KT::KTMonitor>)
KT_INSIDE(KTThreadPool, nbThreadsToRemove, std::atomic<int>)
KT_INSIDE(KTThreadPool, poolMutex, boost::shared_ptr<KT::KTMutex>)
KT_INSIDE(KTThreadPool, busyLock, boost::shared_ptr<KT::KTMutexRW>)
KT_INSIDE(KTThreadPool, queueMutex, boost::shared_ptr<KT::KTMutex>)
KT_INSIDE(KTThreadPool, wakeMutex, boost::shared_ptr<KT::KTMutex>)
KT_INSIDE(KTThreadPool, wakeCondition, boost::shared_ptr<KT::KTCondition>)
KT_INSIDE(KTThreadPool, nbBusyThreads, int)

KT_INSIDE(KTMonitor, mutex, boost::shared_ptr<KT::KTMutex>)
KT_INSIDE(KTMonitor, taskCount, int)
KT_INSIDE(KTMonitor, idleSeconds, int)
KT_INSIDE(KTMonitor, idleMicroseconds, int)

KT_INSIDE(KTConditionManager, events, std::map<std::string, Event>)

#undef KT_INSIDE

}  // namespace
}  // namespace inside
