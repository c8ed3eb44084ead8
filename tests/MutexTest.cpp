#include <atomic>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include <ktthread/KTMutex.h>

#include "Inside.h"
#include "Waiting.h"

namespace {

static_assert(!std::is_copy_constructible<KT::KTMutex>::value, "a mutex has one owner");
static_assert(!std::is_copy_constructible<KT::KTMutexRW>::value, "a lock has one owner");
static_assert(std::has_virtual_destructor<KT::KTMutex>::value, "destroyed through its pointer");
static_assert(std::has_virtual_destructor<KT::KTMutexRW>::value, "destroyed through its pointer");

TEST(Mutex, ExcludesOtherThreads)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    int counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 20000; ++i) {
            mutex->lock();
            ++counter;
            mutex->unlock();
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 40000);
}

TEST(Mutex, SecondLockByTheOwnerBlocks)
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
    // Still locked once, and no way on, until somebody else unlocks for it.
    EXPECT_NE(pthread_mutex_trylock(inside::mutex(mutex).get()), 0);
    EXPECT_EQ(locks, 1);
    mutex->unlock();
    twice.join();
    EXPECT_EQ(locks, 2);
}

TEST(Mutex, DoesNotCheckWhoUnlocks)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    mutex->lock();
    std::thread([&] { mutex->unlock(); }).join();
    EXPECT_EQ(pthread_mutex_trylock(inside::mutex(mutex).get()), 0);
    mutex->unlock();
}

TEST(Mutex, LockedOneMayBeDestroyed)
{
    auto mutex = KT::KTMutex::createKTMutex();
    mutex->lock();
    EXPECT_NO_THROW(mutex.reset());
}

TEST(MutexRW, ReadersShareAndAWriterWaitsForAllOfThem)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    lock->readLock();
    std::thread([&] {
        lock->readLock();  // passes beside the first
        lock->unlock();
    }).join();

    std::atomic<bool> written(false);
    std::atomic<bool> started(false);
    std::thread writer([&] {
        started = true;
        lock->writeLock();
        written = true;
        lock->unlock();
    });
    ASSERT_TRUE(eventually([&] { return started.load(); }));
    EXPECT_FALSE(written);
    lock->unlock();
    writer.join();
    EXPECT_TRUE(written);
}

TEST(MutexRW, UnlockReleasesEitherKindOfHold)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    int holds = 0;
    const auto writeElsewhere = [&] {
        std::thread([&] {
            lock->writeLock();
            ++holds;
            lock->unlock();
        }).join();
    };
    lock->readLock();
    lock->unlock();
    writeElsewhere();
    lock->writeLock();
    lock->unlock();
    writeElsewhere();
    EXPECT_EQ(holds, 2);
}

TEST(MutexRW, LockedOneMayBeDestroyed)
{
    auto lock = KT::KTMutexRW::createKTMutexRW();
    lock->readLock();
    EXPECT_NO_THROW(lock.reset());
}

}  // namespace
