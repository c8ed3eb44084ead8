/// Each task runs once, whatever carriers and workers do meanwhile.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>

#include "Async.h"

namespace {

#ifdef __SANITIZE_THREAD__
const int tasksOfEach = 500;
#else
const int tasksOfEach = 3000;
#endif
const int stormSubmitters = 4;

KT::KTPoolOptions restless()
{
    KT::KTPoolOptions options;
    options.threads = 2;
    options.maxThreads = 40;
    options.idleTimeoutMs = 1;
    return options;
}

/// Hands tasks in from several threads, in bursts with pauses of up to a few milliseconds, by all
/// ways there are. Each adds one to a counter of its own.
class Storm {
public:
    Storm() : ran(static_cast<std::size_t>(stormSubmitters * tasksOfEach)) {}

    void run(const KT::KTScopedPool& pool)
    {
        std::vector<std::thread> threads;
        for (int number = 0; number < stormSubmitters; ++number) {
            threads.emplace_back([this, &pool, number] { submitAll(pool, number); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    std::vector<std::atomic<int>> ran;
    std::atomic<int> refused{0};

private:
    void submitAll(const KT::KTScopedPool& pool, int number)
    {
        for (int i = 0; i < tasksOfEach; ++i) {
            const int task = number * tasksOfEach + i;
            submitOne(pool, task);
            if (i % 100 == 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(task * 37 % 6000));
            }
        }
    }

    void submitOne(const KT::KTScopedPool& pool, int task)
    {
        const auto body = [this, task] {
            if (task % 61 == 0) {
                // Not by a sleep of the system, whose cancellation the sanitizers don't follow.
                KT::KTStopToken().waitFor(task % 3);
            }
            ++ran[static_cast<std::size_t>(task)];
        };
        switch (task % 4) {
            case 0: refused += KT::post(pool, body) ? 0 : 1; break;
            case 1: KT::submit(pool, body); break;
            case 2: KT::submit(pool, [] {}).then(body); break;
            default:
                KT::post(pool, [&pool, body] {
                    KT::KTTaskGroup group(pool);
                    group.run(body);
                });
        }
    }
};

TEST(Storm, RunsEachTaskOnceWhileThePoolGrowsAndShrinks)
{
    Storm storm;
    {
        const KT::KTScopedPool pool(restless());
        storm.run(pool);
    }
    EXPECT_EQ(storm.refused, 0);
    for (const std::atomic<int>& times : storm.ran) {
        ASSERT_EQ(times, 1);
    }
}

/// And among tasks of the core in the same pool.
TEST(Storm, RunsEachTaskOnceAmongTasksOfTheCore)
{
    Storm storm;
    std::atomic<int> coreTasks(0);
    const int ofTheCore = 2000;
    {
        const KT::KTScopedPool pool(restless());
        std::thread core([&] {
            for (int i = 0; i < ofTheCore; ++i) {
                pool.pool()->enqueue(boost::make_shared<CoreTask>(coreTasks));
                if (i % 50 == 0) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(i % 3));
                }
            }
        });
        storm.run(pool);
        core.join();
    }
    EXPECT_EQ(coreTasks, ofTheCore);
    for (const std::atomic<int>& times : storm.ran) {
        ASSERT_EQ(times, 1);
    }
}

/// None runs twice, and the end is the same for all: nothing is left that could run later.
TEST(Storm, OfAForcedShutdownRunsNoneTwice)
{
    for (int round = 0; round < 20; ++round) {
        Storm storm;
        KT::KTScopedPool pool(restless());
        std::thread closer([&pool, round] {
            std::this_thread::sleep_for(std::chrono::milliseconds(round));
            EXPECT_TRUE(pool.pool()->close(true, 60000));
        });
        storm.run(pool);
        closer.join();
        EXPECT_TRUE(pool.pool()->close(true, 60000));
        for (const std::atomic<int>& times : storm.ran) {
            ASSERT_LE(times, 1);
        }
        EXPECT_EQ(pool.status().queuedTasks, 0);
    }
}

}  // namespace
