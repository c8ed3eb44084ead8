#include <ktthread/KTCondition.h>

#include <algorithm>
#include <ctime>

#include <pthread.h>

#include "PlatformObject.h"

namespace KT {

boost::shared_ptr<KTCondition> KTCondition::createKTCondition()
{
    return boost::shared_ptr<KTCondition>(new KTCondition);
}

KTCondition::KTCondition() : condition(core::newPlatformObject<pthread_cond_t>())
{
    pthread_cond_init(condition.get(), nullptr);
}

KTCondition::~KTCondition()
{
    // The C library's destroy blocks until no thread is in a wait any more: wake them first.
    pthread_cond_broadcast(condition.get());
    pthread_cond_destroy(condition.get());
}

void KTCondition::signal()
{
    pthread_cond_signal(condition.get());
}

void KTCondition::broadcast()
{
    pthread_cond_broadcast(condition.get());
}

void KTCondition::wait(boost::shared_ptr<KTMutex> mutex)
{
    pthread_cond_wait(condition.get(), mutex->mutex.get());
}

bool KTCondition::waitFor(boost::shared_ptr<KTMutex> mutex, int milliseconds)
{
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const int wait = std::max(milliseconds, 0);
    end.tv_sec += wait / 1000;
    end.tv_nsec += wait % 1000 * 1000000L;
    if (end.tv_nsec >= 1000000000L) {
        ++end.tv_sec;
        end.tv_nsec -= 1000000000L;
    }
    return pthread_cond_clockwait(condition.get(), mutex->mutex.get(), CLOCK_MONOTONIC, &end) == 0;
}

}  // namespace KT
