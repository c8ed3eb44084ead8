#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <spdlog/common.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;
using testing::ElementsAre;

class WorkerLoop : public PoolFixture {};

TEST_F(WorkerLoop, FreshWorkerGoesFromNewStraightToSleep)
{
    const platform::Recorder recorder;
    const Pool pool = fixed(1);
    ASSERT_TRUE(untilAsleep(pool, 1));
    EXPECT_THAT(recorder.names(), ElementsAre("KTThread [new]", "KTThread [sleeping]"));
}

TEST_F(WorkerLoop, OneTaskWakesOneWorkerWhichSleepsAgain)
{
    const Pool pool = fixed(3);
    ASSERT_TRUE(untilAsleep(pool, 3));
    const platform::Recorder recorder;
    std::atomic<int> runs(0);
    const auto task = makeTask([&] { ++runs; }, "one");
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    ASSERT_TRUE(untilAsleep(pool, 3));
    EXPECT_EQ(runs, 1);

    const std::vector<platform::Record> names = recorder.records(Call::name);
    const auto running = std::find_if(names.begin(), names.end(), [](const auto& record) {
        return record.text == "KTTask: one [running]";
    });
    ASSERT_NE(running, names.end());
    EXPECT_THAT(recorder.names(running->thread),
                ElementsAre("KTThread [idle]", "KTTask: one [running]", "KTTask: one [finished]",
                            "KTThread [sleeping]"));
}

TEST_F(WorkerLoop, ThreadOfAnUnownedWorkerLogsAndEnds)
{
    const LogCapture log("KTThread");
    const Pool pool = made(0, 1);
    platform::Recorder recorder;
    {
        KT::KTThread unowned(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool));
        unowned.launch();
        // The destructor joins.
    }
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].text, "cannot create thread");
    EXPECT_EQ(log.records()[0].level, spdlog::level::critical);
    EXPECT_EQ(log.records()[0].function, "_KT_Thread_Pool_Atom");
    EXPECT_EQ(log.records()[0].file, "");
    EXPECT_EQ(log.records()[0].line, 0);
    EXPECT_THAT(recorder.names(), ElementsAre("KTThread [new]"));
    EXPECT_TRUE(pool->close());
}

TEST_F(WorkerLoop, StartRoutineReturnsNullForAnUnownedWorker)
{
    const LogCapture log("KTThread");
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto condition = KT::KTCondition::createKTCondition();
    KT::KTThread unowned(Pool(), 0, mutex, condition);
    int placeholder = 0;
    void* result = &placeholder;
    std::thread([&] { result = KT::_KT_Thread_Pool_Atom(&unowned); }).join();
    EXPECT_EQ(result, nullptr);
}

TEST_F(WorkerLoop, WorkerObjectThatIsKeptDoesNotKeepThePool)
{
    Pool pool = boost::make_shared<KT::KTThreadPool>(1, 1, 0, 0, 0);
    pool->init(1, 1, 0, 0, 0);
    const boost::shared_ptr<KT::KTThread> kept = inside::threads(pool)[0];
    const auto task = makeTask();
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    EXPECT_TRUE(pool->close());
    const boost::weak_ptr<KT::KTThreadPool> watched = pool;
    pool.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(WorkerLoop, KilledSleeperEndsWithoutTakingAQueuedTask)
{
    const Pool pool = fixed(1);
    ASSERT_TRUE(untilAsleep(pool, 1));
    const boost::weak_ptr<KT::KTThread> worker(inside::threads(pool)[0]);
    inside::nbThreadsToRemove(pool) = 1;
    {
        const KT::KTCriticalSection hold(inside::queueMutex(pool));
        inside::tasks(pool).push_back(makeTask());
    }
    worker.lock()->killThread();
    {
        const KT::KTCriticalSection hold(inside::wakeMutex(pool));
        inside::wakeCondition(pool)->broadcast();
    }
    ASSERT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
    EXPECT_EQ(pool->status().queuedTasks, 1);
    EXPECT_EQ(pool->status().threadsToRemove, 1) << "killed is looked at before retirement";
}

TEST_F(WorkerLoop, RetiringWorkerEndsEvenIfTasksAreQueued)
{
    const Pool pool = fixed(1);
    ASSERT_TRUE(untilAsleep(pool, 1));
    const ConsoleCapture console;
    {
        const KT::KTCriticalSection hold(inside::queueMutex(pool));
        inside::tasks(pool).push_back(makeTask());
    }
    {
        const KT::KTCriticalSection hold(inside::poolMutex(pool));
        inside::nbThreadsToRemove(pool) = 1;
    }
    EXPECT_TRUE(pool->wake());
    ASSERT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
    EXPECT_EQ(pool->status().queuedTasks, 1);
    EXPECT_EQ(console.text(), "KTThreadPool::decrease\n");
}

TEST_F(WorkerLoop, CountsItselfBusyForExactlyTheTask)
{
    const Pool pool = fixed(2);
    ASSERT_TRUE(untilAsleep(pool, 2));
    EXPECT_EQ(pool->status().busyThreads, 0);
    Gate gates[2];
    for (Gate& gate : gates) {
        ASSERT_TRUE(pool->enqueue(makeTask([&] { gate.pass(); })));
    }
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return gates[0].arrived() + gates[1].arrived() == 2;
    }));
    EXPECT_EQ(pool->status().busyThreads, 2);
    gates[0].open();
    EXPECT_TRUE(eventually([&] { return pool->status().busyThreads == 1; }));
    gates[1].open();
    EXPECT_TRUE(eventually([&] { return pool->status().busyThreads == 0; }));
}

TEST_F(WorkerLoop, RunsTheTaskBeforeItSleepsEvenIfStillStarting)
{
    const Pool pool = fixed(1);
    const auto task = makeTask();
    ASSERT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(untilFinished(pool, task));
}

TEST_F(WorkerLoop, WakeUpsWithoutWorkOnlyMakeItGoRound)
{
    const Pool pool = fixed(1);
    ASSERT_TRUE(untilAsleep(pool, 1));
    const platform::Recorder recorder;
    {
        const KT::KTCriticalSection hold(inside::wakeMutex(pool));
        inside::wakeCondition(pool)->signal();
    }
    ASSERT_TRUE(eventually([&] { return recorder.names().size() == 2; }));
    EXPECT_THAT(recorder.names(), ElementsAre("KTThread [idle]", "KTThread [sleeping]"));
}

TEST_F(WorkerLoop, StopRequestOnTheWayToSleepIsSeen)
{
    const Pool pool = fixed(1);
    {
        const OnTheWayToSleep held(pool);
        // As killThread does, whose own lock is never taken under the wake mutex.
        inside::killed(*inside::threads(pool)[0]) = true;
        inside::wakeCondition(pool)->broadcast();
    }
    EXPECT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
}

TEST_F(WorkerLoop, TaskThatComesOnTheWayToSleepWaitsForTheNextWakeUp)
{
    const Pool pool = fixed(1);
    const auto task = makeTask();
    {
        const OnTheWayToSleep held(pool);
        {
            const KT::KTCriticalSection hold(inside::queueMutex(pool));
            inside::tasks(pool).push_back(task);
        }
        inside::wakeCondition(pool)->signal();
    }
    ASSERT_TRUE(untilAsleep(pool, 1));
    EXPECT_EQ(inside::state(*task), 0);
    EXPECT_TRUE(pool->wake());
    EXPECT_TRUE(eventually([&] { return inside::state(*task) == 2; }));
}

TEST_F(WorkerLoop, TaskTakenWhileTheStopRequestCameIsAskedToExit)
{
    const Pool pool = fixed(1);
    Gate first;
    Gate second;
    std::atomic<bool> asked(false);
    const auto untilAsked = makeTask([&] { second.pass(); });
    untilAsked->onExit = [&] {
        asked = true;
        second.open();
    };
    ASSERT_TRUE(pool->enqueue(makeTask([&] { first.pass(); })));
    ASSERT_TRUE(untilArrived(pool, first));
    ASSERT_TRUE(pool->enqueue(untilAsked));
    const platform::Recorder recorder;
    {
        // Stops the worker when it has taken the task and is about to hand the wake-up on.
        const KT::KTCriticalSection hold(inside::wakeMutex(pool));
        first.open();
        const void* const mutex = inside::mutex(*inside::wakeMutex(pool)).get();
        ASSERT_TRUE(eventually([&] { return recorder.count(platform::Call::lock, mutex) == 2; }));
        // On another thread: its lock is never taken under the wake mutex.
        std::thread([&] { inside::threads(pool)[0]->killThread(); }).join();
        EXPECT_FALSE(asked);
    }
    EXPECT_TRUE(eventually([&] { return asked.load(); }));
    second.open();
    // The task uses variables on this stack.
    EXPECT_TRUE(pool->close());
}

TEST_F(WorkerLoop, GetTaskOfAnEmptyQueueLeavesNoTask)
{
    const Pool pool = made(1, 1);
    const boost::shared_ptr<KT::KTThread> worker(
        new KT::KTThread(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    inside::currentTask(*worker) = makeTask();
    EXPECT_FALSE(worker->getTask());
    EXPECT_FALSE(inside::currentTask(*worker));
    EXPECT_TRUE(pool->close());
}

TEST_F(WorkerLoop, GetTaskLinksTheTaskToTheWorkerBeforeItRuns)
{
    const Pool pool = made(1, 1);
    const boost::shared_ptr<KT::KTThread> worker(
        new KT::KTThread(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    const auto task = makeTask();
    inside::tasks(pool).push_back(task);
    EXPECT_TRUE(worker->getTask());
    EXPECT_EQ(inside::currentTask(*worker), task);
    EXPECT_EQ(inside::managingThread(*task).lock(), worker);
    EXPECT_EQ(inside::state(*task), 0);
    inside::currentTask(*worker).reset();
    EXPECT_TRUE(pool->close());
}

TEST_F(WorkerLoop, GetTaskWithoutItsPoolKeepsTheTask)
{
    Pool pool(new KT::KTThreadPool(0, 1, 0, 0, 0));
    const boost::shared_ptr<KT::KTThread> worker(
        new KT::KTThread(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    const auto task = makeTask();
    inside::currentTask(*worker) = task;
    pool.reset();
    EXPECT_FALSE(worker->getTask());
    EXPECT_EQ(inside::currentTask(*worker), task);
}

TEST_F(WorkerLoop, GetTaskTakesASharedHold)
{
    const Pool pool = made(1, 1);
    const boost::shared_ptr<KT::KTThread> worker(
        new KT::KTThread(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    const auto taskLock = inside::taskLock(*worker);
    {
        const KT::KTCriticalSectionRead beside(taskLock);
        EXPECT_FALSE(worker->getTask());
    }
    std::atomic<bool> asked(false);
    taskLock->writeLock();
    std::thread asker([&] {
        worker->getTask();
        asked = true;
    });
    EXPECT_FALSE(asked);
    taskLock->unlock();
    asker.join();
    EXPECT_TRUE(pool->close());
}

TEST_F(WorkerLoop, WorkerWithoutAPoolSleepsUntilStopped)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto condition = KT::KTCondition::createKTCondition();
    const boost::shared_ptr<KT::KTThread> worker(new KT::KTThread(Pool(), 0, mutex, condition));
    EXPECT_FALSE(worker->getTask());
    EXPECT_FALSE(worker->apoptosis());
    worker->launch();
    ASSERT_TRUE(eventually([] { return threadsNamed("KTThread [sleep").size() == 1; }));
    worker->killThread();
    const KT::KTCriticalSection hold(mutex);
    condition->broadcast();
}

TEST_F(WorkerLoop, WorkerHoldsItsPool)
{
    Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    ASSERT_TRUE(untilAsleep(pool, 1));
    const boost::weak_ptr<KT::KTThreadPool> watched(pool);
    inside::monitor(pool).reset();
    pool.reset();
    ASSERT_FALSE(watched.expired());
    EXPECT_TRUE(watched.lock()->close());
    EXPECT_TRUE(watched.expired());
}

}  // namespace
