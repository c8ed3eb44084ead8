/// Misuse of locks whose outcome the headers document. Tools that check locks report all of it.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTMutex.h>

#include "Inside.h"
#include "Waiting.h"

namespace {

TEST(MutexMisuse, SecondLockByTheOwnerBlocks)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    std::atomic<int> locks(0);
    std::thread twice([&] {
        mutex->lock();
        ++locks;
        mutex->lock();
        ++locks;
        mutex->unlock();
    });
    ASSERT_TRUE(eventually([&] { return locks == 1; }));
    // Its second lock blocks until another thread unlocks the mutex.
    EXPECT_NE(pthread_mutex_trylock(inside::mutex(mutex).get()), 0);
    EXPECT_EQ(locks, 1);
    mutex->unlock();
    twice.join();
    EXPECT_EQ(locks, 2);
}

TEST(MutexMisuse, DoesNotCheckWhoUnlocks)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    mutex->lock();
    std::thread([&] { mutex->unlock(); }).join();
    EXPECT_EQ(pthread_mutex_trylock(inside::mutex(mutex).get()), 0);
    mutex->unlock();
}

TEST(MutexMisuse, LockedOneMayBeDestroyed)
{
    auto mutex = KT::KTMutex::createKTMutex();
    mutex->lock();
    EXPECT_NO_THROW(mutex.reset());
}

TEST(MutexMisuse, LockedRWOneMayBeDestroyed)
{
    auto lock = KT::KTMutexRW::createKTMutexRW();
    lock->readLock();
    EXPECT_NO_THROW(lock.reset());
}

TEST(MutexMisuse, ForcedUnlockOfAFailedAttemptTakesTheMutexFromItsHolder)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    mutex->lock();
    bool busy = false;
    KT::KTCriticalTrueIfLocked attempt(mutex, busy);
    ASSERT_TRUE(busy);
    attempt.forceUnlockNow();
    EXPECT_EQ(pthread_mutex_trylock(inside::mutex(mutex).get()), 0);
    mutex->unlock();
}

}  // namespace
