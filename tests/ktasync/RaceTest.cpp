/// Races, many times over.
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Async.h"

namespace {

#ifdef __SANITIZE_THREAD__
const int rounds = 200;
#else
const int rounds = 1000;
#endif

/// A task either ran once or was cancelled, and its future says which.
void checkEnded(KT::KTFuture<int>& future, int timesRun)
{
    const bool cancelled = thrownBy<KT::KTCancelled>([&future] { future.get(); }).has_value();
    ASSERT_EQ(timesRun, cancelled ? 0 : 1);
}

TEST(Race, OfCancelAgainstStartAgainstShutdown)
{
    const int tasks = 8;
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::atomic<int>> ran(tasks);
        std::vector<KT::KTFuture<int>> futures;
        {
            KT::KTPoolOptions options = fixedSize(2);
            options.queued = KT::KTPoolOptions::Queued::drop;
            KT::KTScopedPool pool(options);
            for (std::atomic<int>& count : ran) {
                futures.push_back(KT::submit(pool, [&count] { return ++count; }));
            }
            std::thread canceller([&futures] {
                for (KT::KTFuture<int>& future : futures) {
                    future.cancel();
                }
            });
            if (round % 2 == 0) {
                pool.close();
            }
            canceller.join();
        }
        for (std::size_t i = 0; i < futures.size(); ++i) {
            ASSERT_NO_FATAL_FAILURE(checkEnded(futures[i], ran[i]));
        }
    }
}

TEST(Race, OfForcedShutdownAgainstEverything)
{
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> inside(0);
        KT::KTScopedPool pool(fixedSize(3));
        std::vector<KT::KTFuture<void>> futures;
        for (int i = 0; i < 6; ++i) {
            futures.push_back(KT::submit(pool, [&] {
                KT::KTTaskGroup group(pool);
                for (int j = 0; j < 4; ++j) {
                    group.run([&inside] {
                        ++inside;
                        KT::KTStopToken().waitFor(1);
                        --inside;
                    });
                }
                group.wait();
            }));
        }
        // At a different moment in each round.
        std::this_thread::sleep_for(std::chrono::microseconds(round * 37 % 1000));
        ASSERT_TRUE(pool.pool()->close(true, 60000));
        for (KT::KTFuture<void>& future : futures) {
            ASSERT_TRUE(future.isReady());
        }
    }
}

void nestIn(const KT::KTScopedPool& pool, int depth)
{
    if (depth > 0) {
        KT::KTTaskGroup group(pool);
        group.run(nestIn, std::cref(pool), depth - 1);
        group.wait();
    }
}

TEST(Race, OfForcedShutdownAgainstThreadsMadeForDeepNesting)
{
    for (int round = 0; round < rounds / 4; ++round) {
        KT::KTScopedPool pool(fixedSize(1));
        std::atomic<int> trips(0);
        KT::KTFuture<void> future = KT::submit(pool, [&] {
            for (;;) {
                nestIn(pool, 500);
                ++trips;
            }
        });
        ASSERT_TRUE(eventually(pool, [&trips] { return trips > 0; }));
        // At a different moment in each round.
        std::this_thread::sleep_for(std::chrono::microseconds(round * 37 % 1000));
        ASSERT_TRUE(pool.pool()->close(true, 60000));
        ASSERT_TRUE(future.isReady());
    }
}

TEST(Race, OfWaitersAgainstAShutdownWithoutAClose)
{
    // Not closed: a task that is queued during the shutdown stays in the queue.
    for (int round = 0; round < rounds / 10; ++round) {
        const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
        pool->init(1, 1, 0, 0, 0);
        std::atomic<bool> begun(false);
        std::thread client([&] {
            for (int i = 0; i < 50; ++i) {
                KT::KTFuture<void> future = KT::submit(pool, [] {});
                begun = true;
                thrownBy<KT::KTCancelled>([&future] { future.get(); });
            }
        });
        while (!begun) {
            std::this_thread::yield();
        }
        pool->shutdown(false);
        client.join();
        ASSERT_TRUE(pool->close());
    }
}

TEST(Race, OfThenAgainstTheEndOfTheTaskInFront)
{
    KT::KTScopedPool pool(fixedSize(2));
    for (int round = 0; round < 20 * rounds; ++round) {
        ASSERT_EQ(KT::submit(pool, [] { return 1; }).then([](int n) { return n + 1; }).get(), 2);
    }
}

TEST(Race, OfCancelAgainstGetAndThen)
{
    KT::KTScopedPool pool(fixedSize(2));
    for (int round = 0; round < rounds; ++round) {
        KT::KTFuture<int> future = KT::submit(pool, [] { return 1; });
        std::thread canceller([&future] { future.cancel(); });
        KT::KTFuture<int> next;
        KT::KTFuture<int>& last =
            round % 2 == 0 ? future : next = future.then([](int n) { return n; });
        thrownBy<KT::KTCancelled>([&last] { EXPECT_EQ(last.get(), 1); });
        EXPECT_FALSE(future.valid());
        canceller.join();
    }
}

TEST(Race, OfCancelAgainstADestructorThatFollowsItsEffect)
{
    HeldPool held;
    for (int round = 0; round < rounds; ++round) {
        auto future = std::make_unique<KT::KTFuture<int>>(KT::submit(held.pool, [] { return 1; }));
        std::thread canceller([&shared = *future] { EXPECT_TRUE(shared.cancel()); });
        EXPECT_THROW(future->get(), KT::KTCancelled);
        future.reset();
        canceller.join();
    }
}

TEST(Race, OfKeepingAPromiseAgainstCancelAndThen)
{
    KT::KTScopedPool pool(fixedSize(2));
    for (int round = 0; round < rounds; ++round) {
        KT::KTPromise<std::string> promise(pool);
        KT::KTFuture<std::string> future = promise.future();
        bool isKept = false;
        std::thread keeper([&] { isKept = promise.setValue("kept"); });
        std::thread canceller([&future] { future.cancel(); });
        KT::KTFuture<std::string> next = future.then([](std::string text) { return text; });
        const bool isCancelled =
            thrownBy<KT::KTCancelled>([&next] { EXPECT_EQ(next.get(), "kept"); }).has_value();
        keeper.join();
        canceller.join();
        ASSERT_NE(isKept, isCancelled);
    }
}

TEST(Race, OfToStdFutureAgainstTheEndOfTheTask)
{
    KT::KTScopedPool pool(fixedSize(2));
    for (int round = 0; round < 5 * rounds; ++round) {
        ASSERT_EQ(KT::toStdFuture(KT::submit(pool, [round] { return round; })).get(), round);
    }
}

TEST(Race, OfGroupsUsedByManyThreads)
{
    KT::KTScopedPool pool(fixedSize(3));
    for (int round = 0; round < rounds / 10; ++round) {
        std::atomic<int> ran(0);
        KT::KTTaskGroup group(pool, 5);
        Threads producers;
        for (int i = 0; i < 4; ++i) {
            producers.start([&] {
                for (int j = 0; j < 100; ++j) {
                    group.run([&ran] { ++ran; });
                }
            });
        }
        producers.joinAll();
        group.wait();
        ASSERT_EQ(ran, 400);
    }
}

TEST(Race, OfCancelAgainstTheTasksOfAGroup)
{
    KT::KTScopedPool pool(fixedSize(3));
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> ran(0);
        KT::KTTaskGroup group(pool);
        std::thread canceller([&group] { group.cancel(); });
        for (int i = 0; i < 20; ++i) {
            group.run([&ran] { ++ran; });
        }
        canceller.join();
        const int before = group.cancellations();
        group.wait();
        ASSERT_GE(group.cancellations(), before);
        ASSERT_EQ(ran + group.cancellations(), 20);
    }
}

/// The core may lose a wake-up. This test ends because a wait for a future wakes the pool itself.
TEST(LostWakeUps, DelayNobodyForLong)
{
    KT::KTScopedPool pool(fixedSize(1));
    for (int round = 0; round < 20 * rounds; ++round) {
        ASSERT_EQ(KT::submit(pool, [round] { return round; }).get(), round);
    }
}

}  // namespace
