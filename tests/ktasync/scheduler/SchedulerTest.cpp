#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <ktthread/KTThreadPool.h>

#include "TestWork.h"
#include "Waiting.h"

namespace {

using KT::detail::Deadline;
using KT::detail::Scheduler;
using KT::detail::SchedulerOptions;

/// A pool with a scheduler of these options.
class Scheduled {
public:
    explicit Scheduled(const SchedulerOptions& options)
        : pool(boost::make_shared<KT::KTThreadPool>(options.threads, options.maxThreads, 0, 0, 0)),
          scheduler(Scheduler::attachTo(pool, options))
    {
        pool->init(options.threads, options.maxThreads, 0, 0, 0);
    }
    ~Scheduled() { pool->close(); }

    bool submit(std::function<void()> function, int number = 0)
    {
        const boost::intrusive_ptr<TestWork> work(new TestWork(number, std::move(function)));
        work->scheduler = &scheduler;
        return scheduler.submit(work);
    }
    void finish() { EXPECT_TRUE(scheduler.waitUntilFinished(Deadline(60000))); }

    const boost::shared_ptr<KT::KTThreadPool> pool;
    Scheduler& scheduler;
};

SchedulerOptions optionsFor(int threads, int shards = 0)
{
    SchedulerOptions options;
    options.threads = threads;
    options.maxThreads = threads;
    options.processors = threads;
    options.isAdaptive = true;
    options.shards = shards;
    return options;
}

class SchedulerOfShards : public testing::TestWithParam<int> {};

/// Each runs once; those of one submitter begin in its order, where one carrier takes them.
TEST_P(SchedulerOfShards, RunsAllInTheOrderOfEachSubmitter)
{
    const int submitters = 5;
    const int ofEach = 2000;
    std::vector<std::vector<int>> order(submitters);
    {
        Scheduled scheduled(optionsFor(1, GetParam()));
        std::vector<std::thread> threads;
        for (int s = 0; s < submitters; ++s) {
            threads.emplace_back([&, s] {
                for (int i = 0; i < ofEach; ++i) {
                    EXPECT_TRUE(scheduled.submit(
                        [&order, s, i] { order[static_cast<std::size_t>(s)].push_back(i); }));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        scheduled.finish();
    }
    for (const std::vector<int>& each : order) {
        ASSERT_EQ(each.size(), static_cast<std::size_t>(ofEach));
        for (int i = 0; i < ofEach; ++i) {
            ASSERT_EQ(each[static_cast<std::size_t>(i)], i);
        }
    }
}

TEST_P(SchedulerOfShards, LosesNothingWhileCarriersComeAndGo)
{
    const int rounds = 300;
    const int ofEach = 20;
    std::atomic<int> ran(0);
    Scheduled scheduled(optionsFor(4, GetParam()));
    std::vector<std::thread> threads;
    for (int s = 0; s < 3; ++s) {
        threads.emplace_back([&, s] {
            for (int round = 0; round < rounds; ++round) {
                for (int i = 0; i < ofEach; ++i) {
                    scheduled.submit([&ran] { ++ran; });
                }
                // Carriers wait, are called, or have left.
                std::this_thread::sleep_for(std::chrono::microseconds((round * 7 + s) % 50 * 100));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    scheduled.finish();
    EXPECT_EQ(ran, 3 * rounds * ofEach);
}

INSTANTIATE_TEST_SUITE_P(Of, SchedulerOfShards, testing::Values(1, 2, 7));

TEST(Scheduler, ThatIsClosedRefusesAndAbandons)
{
    Scheduled scheduled(optionsFor(1));
    scheduled.pool->close();
    const boost::intrusive_ptr<TestWork> work(new TestWork);
    EXPECT_FALSE(scheduled.scheduler.submit(work));
    EXPECT_EQ(work->abandoned, 1);
}

TEST(Scheduler, KeepsQuietAboutItsCarriers)
{
    Gate gate;
    Scheduled scheduled(optionsFor(1));
    scheduled.submit([&gate] { gate.pass(); });
    EXPECT_TRUE(eventually([&] { return gate.arrived() == 1; }));
    for (int i = 0; i < 3; ++i) {
        scheduled.submit([] {});
    }
    EXPECT_EQ(scheduled.pool->status().busyThreads, 1);
    EXPECT_EQ(scheduled.pool->status().queuedTasks, 3);
    EXPECT_EQ(scheduled.scheduler.unfinished(), 4);
    gate.open();
    scheduled.finish();
    EXPECT_EQ(scheduled.pool->status().queuedTasks, 0);
    EXPECT_TRUE(eventually([&] { return scheduled.pool->status().busyThreads == 0; }));
}

/// Nobody calls them: the clock does.
TEST(Scheduler, HasCarriersWithoutWorkGiveTheirWorkersBack)
{
    const int workers = 4;
    Gate gate;
    Scheduled scheduled(optionsFor(workers));
    const auto withoutWork = [&] {
        KT::KTThreadPoolStatus status{};
        status.busyThreads = workers;
        scheduled.scheduler.amend(status);
        return workers - status.busyThreads;
    };
    for (int i = 0; i < workers; ++i) {
        scheduled.submit([&gate] { gate.pass(); });
    }
    EXPECT_TRUE(eventually([&] { return gate.arrived() == workers; }));
    gate.open();
    scheduled.finish();
    // The status leaves out carriers without work.
    EXPECT_TRUE(
        eventually([&] { return scheduled.pool->status().busyThreads + withoutWork() == 0; }));
}

/// The carrier spins for as long as a processor has nothing to do.
TEST(Scheduler, SpinsForWork)
{
    SchedulerOptions options = optionsFor(1);
    options.spin = std::chrono::milliseconds(1);
    std::atomic<int> ran(0);
    Scheduled scheduled(options);
    for (int round = 1; round <= 200; ++round) {
        scheduled.submit([&ran] { ++ran; });
        ASSERT_TRUE(eventually([&] { return ran == round; }));
    }
}

}  // namespace
