#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;
using testing::ElementsAre;

class PoolQueue : public PoolFixture {
protected:
    /// A pool that counts one worker and has a monitor, but no thread that takes tasks.
    Pool idle()
    {
        const Pool pool = made(1, 1);
        pool->init(0, 1, 0, 0, 0);
        return pool;
    }

    static const void* wakeCondition(const Pool& pool)
    {
        return inside::condition(*inside::wakeCondition(pool)).get();
    }
};

class PoolWake : public PoolFixture {};

TEST_F(PoolQueue, HandsTasksOutInArrivalOrder)
{
    const Pool pool = idle();
    const auto first = makeTask();
    const auto second = makeTask();
    const auto third = makeTask();
    EXPECT_TRUE(pool->enqueue(first));
    EXPECT_TRUE(pool->enqueue(second));
    EXPECT_TRUE(pool->enqueue(third));
    EXPECT_EQ(pool->status().queuedTasks, 3);
    EXPECT_EQ(pool->getTask(), first);
    EXPECT_EQ(pool->getTask(), second);
    EXPECT_EQ(pool->getTask(), third);
    EXPECT_FALSE(pool->getTask());
}

TEST_F(PoolQueue, OneWorkerRunsManyTasksInArrivalOrder)
{
    const Pool pool = fixed(1);
    std::vector<int> ran;
    std::vector<int> expected;
    boost::shared_ptr<FunctionTask> last;
    for (int i = 0; i < 500; ++i) {
        expected.push_back(i);
        last = makeTask([&ran, i] { ran.push_back(i); });
        ASSERT_TRUE(pool->enqueue(last));
    }
    ASSERT_TRUE(untilFinished(pool, last));
    EXPECT_EQ(ran, expected);
}

TEST_F(PoolQueue, EnqueueSignalsOneWaiterOnce)
{
    const Pool pool = idle();
    const platform::Recorder recorder;
    pool->enqueue(makeTask());
    EXPECT_EQ(recorder.count(Call::signal, wakeCondition(pool)), 1U);
    EXPECT_EQ(recorder.count(Call::broadcast), 0U);
}

TEST_F(PoolQueue, BatchIsQueuedInItsOrderForOneSignal)
{
    const Pool pool = idle();
    const auto before = makeTask();
    const std::vector<boost::shared_ptr<KT::KTTask>> batch = {makeTask(), makeTask(), makeTask()};
    EXPECT_TRUE(pool->enqueue(before));
    const platform::Recorder recorder;
    EXPECT_TRUE(pool->enqueueAll(batch));
    EXPECT_EQ(recorder.count(Call::signal, wakeCondition(pool)), 1U);
    EXPECT_EQ(pool->getTask(), before);
    for (const boost::shared_ptr<KT::KTTask>& task : batch) {
        EXPECT_EQ(pool->getTask(), task);
    }
    EXPECT_FALSE(pool->getTask());
}

TEST_F(PoolQueue, OneSignalForABatchIsHandedOnToAllSleepers)
{
    const Pool pool = fixed(4);
    ASSERT_TRUE(untilAsleep(pool, 4));
    Gate gate;
    std::vector<boost::shared_ptr<KT::KTTask>> batch;
    for (int i = 0; i < 4; ++i) {
        batch.push_back(makeTask([&gate] { gate.pass(); }));
    }
    ASSERT_TRUE(pool->enqueueAll(batch));
    EXPECT_TRUE(eventually([&] { return gate.arrived() == 4; }));
    gate.open();
    EXPECT_TRUE(pool->close());
}

TEST_F(PoolQueue, BatchIsRefusedAsATaskIs)
{
    const std::vector<boost::shared_ptr<KT::KTTask>> batch = {makeTask(), makeTask()};
    const Pool pool = made(1, 1);
    EXPECT_FALSE(pool->enqueueAll(batch));
    pool->init(0, 1, 0, 0, 0);
    EXPECT_TRUE(pool->enqueueAll(std::vector<boost::shared_ptr<KT::KTTask>>()));
    EXPECT_EQ(pool->status().queuedTasks, 0);
    EXPECT_FALSE(pool->enqueueAll(std::vector<boost::shared_ptr<KT::KTTask>>{batch[0], nullptr}));
    EXPECT_EQ(pool->status().queuedTasks, 2);
    pool->shutdown(false);
    EXPECT_FALSE(pool->enqueueAll(batch));
    EXPECT_EQ(pool->status().queuedTasks, 0);
    EXPECT_EQ(batch[0].use_count(), 1);
}

TEST_F(PoolQueue, EnqueueSignalsUnderTheWakeMutex)
{
    const Pool pool = idle();
    const platform::Recorder recorder;
    Threads client;
    {
        const HeldElsewhere held(inside::wakeMutex(pool));
        client.start([&] { pool->enqueue(makeTask()); });
        ASSERT_TRUE(eventually([&] { return pool->status().queuedTasks == 1; }));
        EXPECT_EQ(recorder.count(Call::signal), 0U);
    }
    client.joinAll();
    EXPECT_EQ(recorder.count(Call::signal), 1U);
}

TEST_F(PoolQueue, EnqueueMakesThePoolGrowBeforeItSignals)
{
    const Pool pool = made(1, 2);
    pool->init(0, 2, 0, 0, 0);
    std::vector<Call> calls;
    {
        const pthread_t client = pthread_self();
        const platform::Observer observer([&](Call call, const void* object) {
            if (pthread_equal(pthread_self(), client) != 0 &&
                (call == Call::create || object == wakeCondition(pool))) {
                calls.push_back(call);
            }
        });
        EXPECT_TRUE(pool->enqueue(makeTask()));
    }
    EXPECT_THAT(calls, ElementsAre(Call::create, Call::signal));
}

TEST_F(PoolQueue, SuccessfulTakeHandsTheWakeUpOn)
{
    const Pool pool = idle();
    pool->enqueue(makeTask());
    const platform::Recorder recorder;
    EXPECT_TRUE(pool->getTask());
    EXPECT_EQ(recorder.count(Call::signal, wakeCondition(pool)), 1U);
}

TEST_F(PoolQueue, EmptyTakeSignalsNobody)
{
    const Pool pool = idle();
    const platform::Recorder recorder;
    EXPECT_FALSE(pool->getTask());
    EXPECT_EQ(recorder.count(Call::signal), 0U);
}

TEST_F(PoolQueue, EmptyPointerIsReportedButQueued)
{
    const Pool pool = idle();
    const auto real = makeTask();
    EXPECT_FALSE(pool->enqueue(boost::shared_ptr<KT::KTTask>()));
    EXPECT_TRUE(pool->enqueue(real));
    EXPECT_EQ(pool->status().queuedTasks, 2);
    EXPECT_FALSE(pool->getTask());
    EXPECT_EQ(pool->status().queuedTasks, 1);
    EXPECT_EQ(pool->getTask(), real);
}

TEST_F(PoolQueue, WorkerSurvivesAnEmptyEntry)
{
    const Pool pool = fixed(1);
    const auto real = makeTask();
    EXPECT_FALSE(pool->enqueue(boost::shared_ptr<KT::KTTask>()));
    EXPECT_TRUE(pool->enqueue(real));
    EXPECT_TRUE(untilFinished(pool, real));
}

TEST_F(PoolQueue, RefusesWithoutAWorker)
{
    const Pool pool = made(0, 2);
    pool->init(0, 2, 0, 0, 0);
    const auto task = makeTask();
    EXPECT_FALSE(pool->enqueue(task));
    EXPECT_EQ(pool->status().queuedTasks, 0);
    EXPECT_EQ(task.use_count(), 1) << "the caller keeps its task";
}

TEST_F(PoolQueue, RefusesBeforeInit)
{
    const Pool pool = made(2, 2);
    EXPECT_FALSE(pool->enqueue(makeTask()));
    EXPECT_EQ(pool->status().queuedTasks, 0);
}

TEST_F(PoolQueue, RefusesAfterShutdown)
{
    const Pool pool = fixed(1);
    pool->shutdown(false);
    EXPECT_FALSE(pool->enqueue(makeTask()));
    EXPECT_EQ(pool->status().queuedTasks, 0);
}

TEST_F(PoolQueue, TaskEndedWithoutAMonitorDoesNothing)
{
    const Pool pool = made(1, 1);
    const auto task = makeTask();
    pool->taskEnded(task);
    EXPECT_EQ(task.use_count(), 1);
}

TEST_F(PoolQueue, TaskEndedReachesTheMonitor)
{
    const Pool pool = idle();
    pool->taskEnded(makeTask());
    pool->taskEnded(boost::shared_ptr<KT::KTTask>());
    EXPECT_EQ(inside::taskCount(*inside::monitor(pool)), 1);
}

TEST_F(PoolQueue, TasksOfManyProducersRunExactlyOnce)
{
    const Pool pool = running(2, 4);
    const int producers = 4;
    const int tasksEach = 500;
    std::atomic<int> runs(0);
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; ++p) {
        threads.emplace_back([&] {
            for (int i = 0; i < tasksEach; ++i) {
                pool->enqueue(makeTask([&] { ++runs; }));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return pool->status().queuedTasks == 0 && pool->status().busyThreads == 0 &&
               runs >= producers * tasksEach;
    }));
    EXPECT_EQ(runs, producers * tasksEach);
}

TEST_F(PoolQueue, FinishedTaskMayBeEnqueuedAgain)
{
    const Pool pool = fixed(1);
    std::atomic<int> runs(0);
    const auto task = makeTask([&] { ++runs; });
    for (int i = 1; i <= 3; ++i) {
        task->setCreationTime();
        ASSERT_TRUE(pool->enqueue(task));
        ASSERT_TRUE(untilFinished(pool, task));
        EXPECT_EQ(runs, i);
        ASSERT_TRUE(eventually([&] { return pool->status().busyThreads == 0; }));
    }
}

TEST_F(PoolWake, SignalsOnlyIfTasksAreQueued)
{
    const Pool pool = made(1, 1);
    pool->init(0, 1, 0, 0, 0);
    const platform::Recorder recorder;
    EXPECT_FALSE(pool->wake());
    EXPECT_EQ(recorder.count(Call::signal), 0U);
    pool->enqueue(makeTask());
    EXPECT_TRUE(pool->wake());
    EXPECT_EQ(recorder.count(Call::signal), 2U);
}

TEST_F(PoolWake, FindsATaskWhoseWakeUpWasLost)
{
    const Pool pool = fixed(1);
    const auto task = makeTask();
    std::thread client;
    {
        const OnTheWayToSleep held(pool);
        client = std::thread([&] { pool->enqueue(task); });
        ASSERT_TRUE(eventually([&] { return pool->status().queuedTasks == 1; }));
    }
    client.join();
    EXPECT_TRUE(untilFinished(pool, task));
}

TEST_F(PoolWake, WakesAWorkerForATaskQueuedWithoutASignal)
{
    const Pool pool = fixed(1);
    ASSERT_TRUE(untilAsleep(pool, 1));
    const auto task = makeTask();
    {
        const KT::KTCriticalSection hold(inside::queueMutex(pool));
        inside::tasks(pool).push_back(task);
    }
    EXPECT_EQ(inside::state(*task), 0);
    EXPECT_TRUE(pool->wake());
    EXPECT_TRUE(eventually([&] { return inside::state(*task) == 2; }));
}

}  // namespace
