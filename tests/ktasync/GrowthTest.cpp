/// How a pool of libktasync sizes itself, and what it shares with the core's tasks.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

#include "Async.h"
#include "Platform.h"

namespace {

KT::KTPoolOptions sizes(int threads, int maxThreads)
{
    KT::KTPoolOptions options;
    options.threads = threads;
    options.maxThreads = maxThreads;
    return options;
}

class Meeting : public testing::TestWithParam<int> {};

/// Each task blocks until all have begun, on two workers that may become 256.
TEST_P(Meeting, OfTasksThatWaitForEachOtherComesAbout)
{
    Gate gate;
    KT::KTScopedPool pool(sizes(2, 256));
    for (int i = 0; i < GetParam(); ++i) {
        KT::post(pool, [&gate] { gate.pass(); });
    }
    EXPECT_TRUE(gate.untilArrived(GetParam()));
    EXPECT_LE(pool.status().threads, GetParam() + 2);
    gate.open();
}

INSTANTIATE_TEST_SUITE_P(Of, Meeting, testing::Values(3, 8, 32, 128));

TEST(Growth, OfComputingTasksStaysNearTheProcessors)
{
    const int processors = KT::availableProcessors();
    std::atomic<int> now(0);
    std::atomic<int> most(0);
    KT::KTScopedPool pool(sizes(2, 64));
    for (int i = 0; i < 200; ++i) {
        KT::post(pool, [&] {
            const int together = ++now;
            int before = most;
            while (before < together && !most.compare_exchange_weak(before, together)) {
            }
            const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
            while (std::chrono::steady_clock::now() < end) {
            }
            --now;
        });
    }
    pool.close();
    // Some more where the machine stops a processor for a while, and far from all.
    EXPECT_LE(most, std::max(processors, 2) * 4);
}

TEST(Growth, OfTheMonitorFollowsTheCoresRule)
{
    KT::KTPoolOptions options = sizes(2, 32);
    options.growth = KT::KTPoolOptions::Growth::monitor;
    Gate gate;
    KT::KTScopedPool pool(options);
    for (int i = 0; i < 16; ++i) {
        KT::post(pool, [&gate] { gate.pass(); });
    }
    EXPECT_TRUE(gate.untilArrived(16));
    gate.open();
}

TEST(Growth, WithoutThreadsToBeHadGoesOn)
{
    const LogCapture log("core.thread");
    std::atomic<int> ran(0);
    KT::KTScopedPool pool(sizes(2, 64));
    KT::post(pool, [] {});
    {
        const platform::Failure failing(platform::Call::create, EAGAIN, [](int) { return true; });
        for (int i = 0; i < 40; ++i) {
            KT::post(pool, [&ran] {
                KT::KTStopToken().waitFor(2);
                ++ran;
            });
        }
        EXPECT_TRUE(eventually([&ran] { return ran == 40; }));
    }
    // Not one for each look.
    EXPECT_LE(log.records().size(), 10U);
}

TEST(Shrinking, RetiresWorkersThatNobodyNeeds)
{
    KT::KTPoolOptions options = sizes(2, 64);
    options.idleTimeoutMs = 20;
    std::atomic<int> ran(0);
    Gate gate;
    KT::KTScopedPool pool(options);
    for (int i = 0; i < 40; ++i) {
        KT::post(pool, [&gate] { gate.pass(); });
    }
    ASSERT_TRUE(gate.untilArrived(40));
    EXPECT_GE(pool.status().threads, 40);
    gate.open();
    // Not below what the core retires workers from.
    EXPECT_TRUE(eventually([&pool] { return pool.status().threads == 18; }));
    for (int i = 0; i < 100; ++i) {
        KT::post(pool, [&ran] { ++ran; });
    }
    EXPECT_TRUE(eventually([&ran] { return ran == 100; }));
}

TEST(Shrinking, IsLeftOutIfToldTo)
{
    KT::KTPoolOptions options = sizes(2, 64);
    options.idleTimeoutMs = -1;
    Gate gate;
    KT::KTScopedPool pool(options);
    for (int i = 0; i < 30; ++i) {
        KT::post(pool, [&gate] { gate.pass(); });
    }
    ASSERT_TRUE(gate.untilArrived(30));
    const int grown = pool.status().threads;
    gate.open();
    // The clock has looked for the last time for now. Before, it may have found that the pool
    // should grow further.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_GE(pool.status().threads, grown);
}

TEST(Shrinking, KeepsTheThreadsOfTheOptions)
{
    KT::KTPoolOptions options = sizes(30, 64);
    options.idleTimeoutMs = 20;
    Gate gate;
    KT::KTScopedPool pool(options);
    for (int i = 0; i < 50; ++i) {
        KT::post(pool, [&gate] { gate.pass(); });
    }
    ASSERT_TRUE(gate.untilArrived(50));
    gate.open();
    EXPECT_TRUE(eventually([&pool] { return pool.status().threads == 30; }));
}

/// Tasks of the core get a worker while tasks of libktasync keep coming.
TEST(SharedPool, GivesTheCoresTasksTheirTurn)
{
    std::atomic<bool> isToEnd(false);
    std::atomic<int> coreTasks(0);
    std::function<void()> again;
    KT::KTScopedPool pool(fixedSize(1));
    again = [&] {
        if (!isToEnd) {
            KT::post(pool, std::ref(again));
        }
    };
    KT::post(pool, std::ref(again));
    for (int i = 1; i <= 20; ++i) {
        pool.pool()->enqueue(boost::make_shared<CoreTask>(coreTasks));
        EXPECT_TRUE(eventually([&] { return coreTasks == i; }));
    }
    isToEnd = true;
}

/// And the other way round.
TEST(SharedPool, GetsItsTurnAmongTheCoresTasks)
{
    struct Again : KT::KTTask {
        Again(const boost::shared_ptr<KT::KTThreadPool>& itsPool, std::atomic<bool>& endMark)
            : pool(itsPool), isToEnd(endMark)
        {
        }
        void run() override
        {
            const boost::shared_ptr<KT::KTThreadPool> alive = pool.lock();
            if (alive && !isToEnd) {
                alive->enqueue(boost::make_shared<Again>(alive, isToEnd));
            }
        }
        const boost::weak_ptr<KT::KTThreadPool> pool;
        std::atomic<bool>& isToEnd;
    };
    std::atomic<bool> isToEnd(false);
    {
        KT::KTScopedPool pool(fixedSize(1));
        pool.pool()->enqueue(boost::make_shared<Again>(pool.pool(), isToEnd));
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(KT::submit(pool, [] {}).waitFor(60000));
        }
        isToEnd = true;
    }
}

/// Also where a worker waits for the next task of libktasync at that moment.
TEST(SharedPool, DoesNotKeepTheCoresTasksWaitingForAnIdleCarrier)
{
    std::atomic<int> coreTasks(0);
    KT::KTScopedPool pool(fixedSize(1));
    for (int i = 1; i <= 200; ++i) {
        KT::submit(pool, [] {}).get();
        pool.pool()->enqueue(boost::make_shared<CoreTask>(coreTasks));
        ASSERT_TRUE(eventually([&] { return coreTasks == i; }));
    }
}

/// Nobody waits, and nobody wakes the pool: the clock does, if the core has lost a wake-up.
TEST(Rescue, OfTasksThatNobodyWaitsFor)
{
    std::atomic<int> ran(0);
    KT::KTScopedPool pool(fixedSize(1));
    for (int round = 1; round <= 3000; ++round) {
        if (round % 2 == 0) {
            KT::post(pool, [&ran] { ++ran; });
        } else {
            pool.pool()->enqueue(boost::make_shared<CoreTask>(ran));
        }
        // By looking only.
        while (ran != round) {
            std::this_thread::yield();
        }
        if (round % 100 == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the carrier leaves
        }
    }
    EXPECT_EQ(ran, 3000);
}

}  // namespace
