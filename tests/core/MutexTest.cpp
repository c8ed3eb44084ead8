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

TEST(MutexRW, ReadersShareAndAWriterWaitsForAllOfThem)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    lock->readLock();
    std::thread([&] {
        lock->readLock();  // shares the lock with the first
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

}  // namespace
