#include "LiveThreadCount.h"

#include <utility>

#include <pthread.h>
#include <unistd.h>

#include <ktthread/KTCriticalSection.h>

namespace KT {

namespace {

thread_local const KTLiveThreadCount* countOfThisThread = nullptr;

void removeEndedThread(void* liveThreadCount)
{
    const boost::intrusive_ptr<KTLiveThreadCount> threads(
        static_cast<KTLiveThreadCount*>(liveThreadCount), false);
    threads->remove();
}

/// The key whose destructor removes the thread. An invalid one if the process has no keys left.
pthread_key_t endedThreadKey()
{
    static const pthread_key_t key = [] {
        pthread_key_t made = 0;
        return pthread_key_create(&made, removeEndedThread) == 0 ? made : ~pthread_key_t(0);
    }();
    return key;
}

}  // namespace

KTLiveThreadCount::KTLiveThreadCount()
    : mutex(KTMutex::createKTMutex()), ended(KTCondition::createKTCondition()), count(0), process(0)
{
}

void KTLiveThreadCount::add()
{
    const KTCriticalSection hold(mutex);
    ++count;
    process = getpid();
}

void KTLiveThreadCount::remove()
{
    const KTCriticalSection hold(mutex);
    --count;
    ended->broadcast();
}

bool KTLiveThreadCount::inForkedChild() const
{
    const pid_t starter = process;
    return starter != 0 && starter != getpid();
}

bool KTLiveThreadCount::waitForNone(int milliseconds)
{
    const KTCriticalSection hold(mutex);
    if (count != 0) {
        ended->waitFor(mutex, milliseconds);
    }
    return count == 0;
}

const KTLiveThreadCount* KTLiveThreadCount::ofThisThread()
{
    return countOfThisThread;
}

void KTLiveThreadCount::countThisThreadAs(const KTLiveThreadCount* count)
{
    countOfThisThread = count;
}

namespace core {

LiveThread::LiveThread(boost::intrusive_ptr<KTLiveThreadCount> count) : threads(std::move(count))
{
    if (!threads) {
        return;
    }
    countOfThisThread = threads.get();
    if (pthread_setspecific(endedThreadKey(), threads.get()) == 0) {
        threads.detach();  // removeEndedThread has this reference now
    }
}

LiveThread::~LiveThread()
{
    if (threads) {
        threads->remove();
    }
}

}  // namespace core
}  // namespace KT
