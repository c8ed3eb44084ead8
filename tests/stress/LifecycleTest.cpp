/// Pools that come and go, over and over.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

#include <ro/log.h>

#include "Stress.h"

namespace {

void life(Dice& dice)
{
    std::atomic<int> ended(0);
    const int tasks = dice.roll(4);
    const Pool pool(new KT::KTThreadPool(1 + dice.roll(3), 4, dice.roll(3), 0, 0));
    pool->init(pool->status().threads, 4, 0, 0, 0);
    for (int i = 0; i < tasks; ++i) {
        pool->enqueue(makeTask([&ended] { ++ended; }));
    }
    if (dice.roll(2) == 0) {
        ASSERT_TRUE(wakingUntil(pool, [&] { return ended == tasks; }));
    }
    if (dice.roll(2) == 0) {
        pool->shutdown(dice.roll(2) == 0);
    }
    ASSERT_TRUE(pool->close(dice.roll(2) == 0, 60000));
    ASSERT_EQ(pool.use_count(), 1);
}

TEST(Lifecycle, OfManyPoolsLeavesNothingBehind)
{
    Dice dice;
    for (int round = 0; round < 50; ++round) {
        life(dice);
    }
    const std::size_t bytes = bytesInUse();
    const int threads = threadCount();
    const int rounds = scaled(1000);
    for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
        life(dice);
    }
    EXPECT_LE(bytesInUse(), bytes + 64 * 1024);
    EXPECT_TRUE(eventually([threads] { return threadCount() <= threads; }));
}

TEST(Lifecycle, OfManyRetiredWorkersLeavesNothingBehind)
{
    const QuietConsole quiet;
    std::thread([] {}).join();  // a sanitizer's own thread comes with the first
    const int threads = threadCount();
    const Pool pool(new KT::KTThreadPool(19, 60, 0, 0, 0));
    pool->init(19, 60, 0, 0, 0);
    const auto growAndRetire = [&pool] {
        while (pool->status().threads < 59) {
            pool->adjustThread(59 - pool->status().threads);
        }
        pool->adjustThread(-40);
        return wakingUntil(pool, [&pool] {
            pool->enqueue(makeTask());  // retirement is between tasks
            return pool->status().threads <= 19;
        });
    };
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(growAndRetire());
    }
    const std::size_t bytes = bytesInUse();
    const int maps = mappings();
    const int rounds = scaled(1000) / 40;
    for (int round = 0; round < rounds; ++round) {
        ASSERT_TRUE(growAndRetire());
    }
    EXPECT_LE(bytesInUse(), bytes + 256 * 1024);
    EXPECT_LE(mappings(), maps + 100);
    EXPECT_TRUE(pool->close(false, 60000));
    EXPECT_TRUE(eventually([threads] { return threadCount() <= threads; }));
}

TEST(Lifecycle, EndsInThePoolsOwnLastWorker)
{
    const int rounds = scaled(200);
    for (int round = 0; round < rounds; ++round) {
        std::atomic<bool> refused(false);
        Gate gate;
        Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
        pool->init(1, 1, 0, 0, 0);
        const boost::weak_ptr<KT::KTThreadPool> left = pool;
        pool->enqueue(makeTask([&refused, &gate, left] {
            gate.pass();
            const Pool own = left.lock();
            refused = !own->close();  // its own thread can't be waited for
        }));
        ASSERT_TRUE(wakingUntil(pool, [&gate] { return gate.arrived() == 1; }));
        gate.open();
        ASSERT_TRUE(wakingUntil(pool, [&refused] { return refused.load(); }));
        ASSERT_TRUE(pool->close(false, 60000));
        pool.reset();
        ASSERT_TRUE(eventually([&left] { return left.expired(); }));
    }
}

TEST(Lifecycle, OfAPoolThatATaskOfAnotherShutsDown)
{
    const int rounds = scaled(200);
    for (int round = 0; round < rounds; ++round) {
        const Pool first(new KT::KTThreadPool(1, 1, 0, 0, 0));
        const Pool second(new KT::KTThreadPool(2, 2, 0, 0, 0));
        first->init(1, 1, 0, 0, 0);
        second->init(2, 2, 0, 0, 0);
        std::atomic<bool> closed(false);
        second->enqueue(makeTask([] {}));
        first->enqueue(makeTask([&second, &closed] { closed = second->close(false, 60000); }));
        ASSERT_TRUE(wakingUntil(first, [&closed] { return closed.load(); }));
        ASSERT_TRUE(first->close(false, 60000));
    }
}

// Pool, monitor and workers hold each other: the pool goes on working, and whatever code reaches it
// can close it.
TEST(Lifecycle, GoesOnWithoutItsClient)
{
    const int rounds = scaled(200);
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> ended(0);
        boost::weak_ptr<KT::KTThreadPool> left;
        {
            const Pool pool(new KT::KTThreadPool(2, 4, 0, 0, 0));
            pool->init(2, 4, 0, 0, 0);
            for (int task = 0; task < 20; ++task) {
                pool->enqueue(makeTask([&ended] { ++ended; }));
            }
            left = pool;
        }
        const Pool found = left.lock();
        ASSERT_TRUE(found);
        ASSERT_TRUE(wakingUntil(found, [&ended] { return ended == 20; }));
        ASSERT_TRUE(found->close(false, 60000));
        ASSERT_EQ(found.use_count(), 1);
    }
}

/// A pool in static storage, at work when the process ends.
struct AtWork {
    explicit AtWork(bool closes) : isClosedAtExit(closes)
    {
        pool->init(4, 8, 1, 0, 0);
        for (int i = 0; i < 200; ++i) {
            pool->enqueue(makeTask(
                [] { ro::log::LogStream(7, "exit", "", "task", 0) << "a line" << std::endl; }));
        }
    }
    ~AtWork()
    {
        if (isClosedAtExit && !pool->close(false, 60000)) {
            std::_Exit(1);
        }
    }
    AtWork(const AtWork&) = delete;
    AtWork& operator=(const AtWork&) = delete;

    const bool isClosedAtExit;
    const Pool pool{new KT::KTThreadPool(4, 8, 1, 0, 0)};
};

TEST(LifecycleDeathTest, InStaticStorageEndsWithTheProcess)
{
    const int rounds = std::min(scaled(3), 100);
    for (int round = 0; round < rounds; ++round) {
        EXPECT_EXIT(
            {
                static const AtWork closed(true);
                std::exit(0);
            },
            testing::ExitedWithCode(0), "");
        EXPECT_EXIT(
            {
                static const AtWork left(false);
                std::exit(0);
            },
            testing::ExitedWithCode(0), "");
    }
}

}  // namespace
