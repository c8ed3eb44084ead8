#include <atomic>
#include <ios>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;

const char* const warning =
    "KTThreadPool::~KTThreadPool : trying to delete a Thread Pool without shutting it down. "
    "Shutting down the Thread Pool\n";

class PoolShutdown : public PoolFixture {};

TEST_F(PoolShutdown, GentleOneDropsQueuedTasksAndSetsWorkersAside)
{
    const Pool pool = fixed(3);
    Gate gate;
    std::atomic<int> runs(0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(pool->enqueue(makeTask([&] { gate.pass(); })));
    }
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return gate.arrived() == 3;
    }));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(pool->enqueue(makeTask([&] { ++runs; })));
    }
    pool->shutdown(false);
    EXPECT_EQ(pool->status().threads, 0);
    EXPECT_EQ(pool->status().queuedTasks, 0);
    EXPECT_EQ(inside::retiredThreads(pool).size(), 3U);
    for (const auto& slot : inside::threads(pool)) {
        EXPECT_FALSE(slot);
    }
    EXPECT_FALSE(pool->enqueue(makeTask()));
    EXPECT_TRUE(inside::monitor(pool)) << "the monitor stays";
    gate.open();
    EXPECT_TRUE(pool->join());
    EXPECT_EQ(runs, 0);
}

TEST_F(PoolShutdown, RunningTaskIsAskedToExitAndReportedWhenItDoes)
{
    const Pool pool = fixed(1);
    Gate gate;
    const auto task = makeTask([&] { gate.pass(); });
    task->onExit = [&] { gate.open(); };
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilArrived(pool, gate));
    pool->shutdown(false);
    EXPECT_TRUE(pool->join());
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_EQ(inside::taskCount(*inside::monitor(pool)), 1);
}

TEST_F(PoolShutdown, ForcedOneCancelsAndKeepsNobody)
{
    const Pool pool = fixed(3);
    ASSERT_TRUE(untilAsleep(pool, 3));
    const platform::Recorder recorder;
    pool->shutdown(true);
    EXPECT_EQ(recorder.count(Call::cancel), 3U);
    EXPECT_TRUE(inside::retiredThreads(pool).empty());
    for (const auto& slot : inside::threads(pool)) {
        EXPECT_FALSE(slot);
    }
    EXPECT_EQ(pool->status().threads, 0);
    EXPECT_TRUE(pool->join());
}

TEST_F(PoolShutdown, WakesAllByOneBroadcast)
{
    const Pool pool = fixed(3);
    ASSERT_TRUE(untilAsleep(pool, 3));
    const platform::Recorder recorder;
    pool->shutdown(false);
    EXPECT_EQ(
        recorder.count(Call::broadcast, inside::condition(*inside::wakeCondition(pool)).get()), 1U);
    EXPECT_EQ(recorder.count(Call::cancel), 0U);
}

TEST_F(PoolShutdown, SecondOneIsHarmless)
{
    const Pool pool = fixed(2);
    pool->shutdown(false);
    pool->shutdown(false);
    pool->shutdown(true);
    EXPECT_EQ(inside::retiredThreads(pool).size(), 2U);
    EXPECT_TRUE(pool->join());
}

TEST_F(PoolShutdown, ReleasesQueuedTasksFrontToBackWithoutALock)
{
    const Pool pool = made(1, 1);
    pool->init(0, 1, 0, 0, 0);
    std::vector<int> released;
    for (int i = 0; i < 300; ++i) {
        // The deleter runs when the task is destroyed, and uses the pool.
        const std::shared_ptr<void> atEnd(nullptr, [&released, &pool, i](void*) {
            released.push_back(i);
            EXPECT_EQ(pool->status().queuedTasks, 0);
        });
        ASSERT_TRUE(pool->enqueue(makeTask([atEnd] {})));
    }
    pool->shutdown(false);
    std::vector<int> expected;
    for (int i = 0; i < 300; ++i) {
        expected.push_back(i);
    }
    EXPECT_EQ(released, expected);
}

TEST_F(PoolShutdown, DropsTheQueueBeforeItTellsAnyWorkerToStop)
{
    const Pool pool = fixed(1);
    Gate gate;
    bool isAsked = false;
    const auto running = makeTask([&] { gate.pass(); });
    running->onExit = [&] {
        isAsked = true;
        gate.open();
    };
    ASSERT_TRUE(pool->enqueue(running));
    ASSERT_TRUE(untilArrived(pool, gate));
    int dropped = 0;
    // The deleter runs when the queued task is destroyed.
    const auto worker = inside::threads(pool)[0];
    std::shared_ptr<void> atEnd(nullptr, [&](void*) {
        ++dropped;
        EXPECT_FALSE(isAsked);
        EXPECT_FALSE(inside::killed(worker));
    });
    ASSERT_TRUE(pool->enqueue(makeTask([kept = std::move(atEnd)] {})));
    pool->shutdown(false);
    EXPECT_EQ(dropped, 1);
    EXPECT_TRUE(isAsked);
    EXPECT_TRUE(pool->join());  // the running task uses variables on this stack
}

TEST_F(PoolShutdown, NeverInitialisedPoolIsSafe)
{
    const platform::Recorder recorder;
    const Pool gentle = made(3, 5);
    gentle->shutdown(false);
    EXPECT_TRUE(inside::retiredThreads(gentle).empty());
    const Pool forced = made(3, 5);
    forced->shutdown(true);
    EXPECT_EQ(forced->status().threads, 0);
    EXPECT_EQ(recorder.count(Call::cancel), 0U);
}

TEST_F(PoolShutdown, ThreadNeverCreatedIsNotCancelled)
{
    const LogCapture log("core.thread");
    const Pool pool = made(2, 4);
    {
        const platform::Failure failure(Call::create, EAGAIN, [](int nth) { return nth == 2; });
        EXPECT_ANY_THROW(pool->init(2, 4, 0, 0, 0));
    }
    const platform::Recorder recorder;
    pool->shutdown(true);
    EXPECT_EQ(recorder.count(Call::cancel), 1U);
    EXPECT_TRUE(pool->join());
}

TEST_F(PoolShutdown, TaskOfOnePoolMayShutDownAnother)
{
    const Pool victim = fixed(2);
    const Pool pool = fixed(1);
    const auto task = makeTask([&] { victim->shutdown(false); });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    EXPECT_TRUE(victim->join());
}

TEST(PoolDestruction, OfANeverInitialisedPoolWarnsOnce)
{
    const ConsoleCapture console;
    Pool(new KT::KTThreadPool(2, 4, 0, 0, 0)).reset();
    EXPECT_EQ(console.text(), warning);
}

TEST(PoolDestruction, OutlivesAConsoleThatThrows)
{
    const FailingConsole console;
    Pool(new KT::KTThreadPool(2, 4, 0, 0, 0)).reset();
    EXPECT_TRUE(std::cout.bad());
}

TEST(PoolDestruction, OfAnInitialisedPoolWithoutShutdownWarnsOnce)
{
    const ConsoleCapture console;
    Pool pool(new KT::KTThreadPool(3, 3, 0, 0, 0));
    pool->init(3, 3, 0, 0, 0);
    ASSERT_TRUE(untilAsleep(pool, 3));
    const boost::weak_ptr<KT::KTThreadPool> watched(pool);
    // Its workers are stopped without a shutdown, so that the last one destroys the pool.
    inside::monitor(pool).reset();
    for (const auto& worker : inside::threads(pool)) {
        worker->killThread();
    }
    {
        const auto mutex = inside::wakeMutex(pool);
        const auto condition = inside::wakeCondition(pool);
        const KT::KTCriticalSection hold(mutex);
        pool.reset();
        condition->broadcast();
    }
    ASSERT_TRUE(eventually([&] { return watched.expired(); }));
    ASSERT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
    EXPECT_EQ(console.text(), warning);
}

TEST(PoolDestruction, AfterShutdownIsSilent)
{
    const ConsoleCapture console;
    {
        const Pool pool(new KT::KTThreadPool(2, 4, 0, 0, 0));
        pool->init(2, 4, 0, 0, 0);
        pool->shutdown(false);
        ASSERT_TRUE(pool->join());
        inside::monitor(pool).reset();
    }
    {
        const Pool pool(new KT::KTThreadPool(0, 4, 0, 0, 0));
    }
    EXPECT_EQ(console.text(), "");
}

TEST(PoolDestruction, OnAFailedConsoleDoesNotEndTheProcess)
{
    const ConsoleCapture console;
    std::cout.exceptions(std::ios_base::badbit | std::ios_base::failbit);
    std::cout.clear();
    Pool pool(new KT::KTThreadPool(2, 4, 0, 0, 0));
    EXPECT_THROW(std::cout.setstate(std::ios_base::failbit), std::ios_base::failure);
    EXPECT_NO_THROW(pool.reset());
    std::cout.exceptions(std::ios_base::goodbit);
    std::cout.clear();
}

}  // namespace
