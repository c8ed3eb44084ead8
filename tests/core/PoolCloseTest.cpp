#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <pthread.h>

#include <gtest/gtest.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;

class PoolClose : public PoolFixture {};
class PoolJoin : public PoolFixture {};

TEST_F(PoolJoin, IsFalseAtOnceOnARunningPool)
{
    const Pool pool = fixed(1);
    EXPECT_FALSE(pool->join());
}

TEST_F(PoolJoin, IsFalseAtOnceFromAnOwnWorkerAndNotFromAnother)
{
    const Pool stopped = fixed(1);
    Gate gate;
    std::atomic<int> own(-1);
    std::atomic<bool> known(false);
    const auto inside = makeTask([&] {
        gate.pass();
        known = stopped->runningInThisThread();
        own = stopped->join();
    });
    EXPECT_FALSE(stopped->runningInThisThread());
    ASSERT_TRUE(stopped->enqueue(inside));
    ASSERT_TRUE(untilArrived(stopped, gate));
    stopped->shutdown(false);

    const Pool other = fixed(1);
    std::atomic<int> elsewhere(-1);
    std::atomic<bool> mistaken(true);
    const auto joiner = makeTask([&] {
        mistaken = stopped->runningInThisThread();
        elsewhere = stopped->join();
    });
    ASSERT_TRUE(other->enqueue(joiner));
    gate.open();
    ASSERT_TRUE(untilFinished(other, joiner));
    EXPECT_TRUE(known);
    EXPECT_EQ(own, 0);
    EXPECT_FALSE(mistaken);
    EXPECT_EQ(elsewhere, 1);
}

TEST_F(PoolJoin, IsFalseAfterItsTimeAndTrueLater)
{
    const Pool pool = fixed(1);
    Gate gate;
    ASSERT_TRUE(pool->enqueue(makeTask([&] { gate.pass(); })));
    ASSERT_TRUE(untilArrived(pool, gate));
    pool->shutdown(false);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(pool->join(150));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    EXPECT_FALSE(pool->join(0));
    gate.open();
    EXPECT_TRUE(pool->join());
    EXPECT_TRUE(pool->join(0));
}

TEST_F(PoolJoin, LeavesTheWorkersOfARestartedPoolAlone)
{
    const Pool pool = fixed(1);
    ASSERT_TRUE(untilAsleep(pool, 1));
    std::atomic<int> joined(-1);
    Threads joiner;
    {
        const platform::Recorder recorder;
        const KT::KTCriticalSection hold(inside::poolMutex(pool));
        inside::nbThreads(pool) = 0;
        joiner.start([&] { joined = pool->join(); });
        // It has seen the pool stopped, and is about to look for workers not told to stop.
        const void* const mutex = inside::mutex(*inside::poolMutex(pool)).get();
        ASSERT_TRUE(eventually([&] { return recorder.count(Call::lock, mutex) == 2; }));
        inside::nbThreads(pool) = 1;
    }
    joiner.joinAll();
    EXPECT_EQ(joined, 0);
    EXPECT_FALSE(inside::killed(*inside::threads(pool)[0]));
}

class PoolCloseOfEitherKind : public PoolFixture, public testing::WithParamInterface<bool> {};

TEST_P(PoolCloseOfEitherKind, EndsWorkersThatTheShutdownDidNotTell)
{
    const Pool pool = fixed(2);
    ASSERT_TRUE(untilAsleep(pool, 2));
    // A growth may add a worker after the shutdown has told the others to stop, and before it sets
    // them aside. exitTask is called while it tells them.
    Gate gate;
    const auto task = makeTask([&] { gate.pass(); });
    const Pool grown = running(1, 3);
    task->onExit = [&] {
        EXPECT_TRUE(grown->adjustThread(1));
        gate.open();
    };
    inside::nbThreads(grown) = 1;
    ASSERT_TRUE(grown->enqueue(task));
    ASSERT_TRUE(untilArrived(grown, gate));
    EXPECT_TRUE(grown->close(GetParam()));
    EXPECT_TRUE(pool->close(GetParam()));
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

TEST_P(PoolCloseOfEitherKind, TellsAWorkerThatWasStartedAfterTheOthersWereTold)
{
    const Pool pool = running(1, 2);
    ASSERT_TRUE(untilAsleep(pool, 1));
    boost::shared_ptr<KT::KTThread> late;
    Threads closer;
    {
        const HeldElsewhere held(inside::wakeMutex(pool));
        const platform::Recorder recorder;
        closer.start([&] { EXPECT_TRUE(pool->close(GetParam())); });
        // It has told the workers to stop, and is about to wake them.
        const void* const mutex = inside::mutex(*inside::wakeMutex(pool)).get();
        ASSERT_TRUE(eventually([&] { return recorder.count(Call::lock, mutex) == 1; }));
        ASSERT_TRUE(pool->adjustThread(1));
        late = inside::threads(pool)[1];
        EXPECT_FALSE(inside::killed(*late));
    }
    closer.joinAll();
    EXPECT_TRUE(inside::killed(*late));
}

TEST_P(PoolCloseOfEitherKind, MayBeCalledAgainAndDestroysThePoolInTheEnd)
{
    Pool pool(new KT::KTThreadPool(2, 4, 0, 0, 0));
    pool->init(2, 4, 0, 0, 0);
    const boost::weak_ptr<KT::KTThreadPool> watched(pool);
    Gate gate;
    ASSERT_TRUE(pool->enqueue(makeTask([&] {
        int previous = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
        gate.pass();
    })));
    ASSERT_TRUE(untilArrived(pool, gate));
    EXPECT_FALSE(pool->close(GetParam(), 50));
    EXPECT_TRUE(inside::monitor(pool)) << "not before the workers have ended";
    gate.open();
    EXPECT_TRUE(pool->close(GetParam()));
    EXPECT_TRUE(pool->close(GetParam()));
    EXPECT_FALSE(inside::monitor(pool));
    EXPECT_FALSE(pool->enqueue(makeTask()));
    pool.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_P(PoolCloseOfEitherKind, OutrunsGrowthsOnOtherThreads)
{
    const ConsoleCapture console;
    for (int round = 0; round < 20; ++round) {
        const Pool pool = running(2, 40);
        std::atomic<bool> stop(false);
        std::vector<std::thread> growers;
        for (int i = 0; i < 2; ++i) {
            growers.emplace_back([&] {
                while (!stop) {
                    pool->adjustThread(1);
                    pool->enqueue(makeTask());
                }
            });
        }
        EXPECT_TRUE(pool->close(GetParam()));
        stop = true;
        for (std::thread& grower : growers) {
            grower.join();
        }
        EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, PoolCloseOfEitherKind, testing::Bool());

TEST_F(PoolClose, OutrunsABatchThatRestartsThePool)
{
    const Pool pool = fixed(2);
    Gate gate;
    const auto task = makeTask([&] { gate.pass(); });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilArrived(pool, gate));
    std::thread closer([&] { EXPECT_TRUE(pool->close()); });
    ASSERT_TRUE(eventually([&] { return pool->status().threads == 0; }));
    EXPECT_TRUE(pool->xIncreaseThread());
    gate.open();
    closer.join();
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

TEST_F(PoolClose, FromAnOwnWorkerStopsThePoolAndIsFalse)
{
    const Pool pool = fixed(2);
    std::atomic<int> closed(-1);
    const auto task = makeTask([&] { closed = pool->close(); });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    EXPECT_EQ(closed, 0);
    EXPECT_EQ(pool->status().threads, 0);
    EXPECT_TRUE(pool->close());
}

TEST_F(PoolClose, ByForceCutsOffWhatAGentleOneStillWaitsFor)
{
    const Pool pool = fixed(2);
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto condition = KT::KTCondition::createKTCondition();
    std::atomic<bool> started(false);
    const auto task = makeTask([&] {
        const KT::KTCriticalSection hold(mutex);
        started = true;
        for (;;) {
            condition->wait(mutex);
        }
    });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return started.load();
    }));
    EXPECT_FALSE(pool->close(false, 20));
    EXPECT_TRUE(pool->close(true));
    EXPECT_EQ(inside::state(*task), 1);
}

TEST_F(PoolClose, FreesAPoolThatItsCutOffTasksHold)
{
    const ConsoleCapture console;
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto condition = KT::KTCondition::createKTCondition();
    Pool pool(new KT::KTThreadPool(20, 20, 0, 0, 0));
    pool->init(20, 20, 0, 0, 0);
    const boost::weak_ptr<KT::KTThreadPool> watched(pool);
    ASSERT_TRUE(untilAsleep(pool, 20));
    // Two retire: the slots that they leave keep references to the workers that moved.
    ASSERT_TRUE(pool->adjustThread(-2));
    std::atomic<int> started(0);
    for (int i = 0; i < 18; ++i) {
        ASSERT_TRUE(pool->enqueue(makeTask([&, pool] {
            const KT::KTCriticalSection hold(mutex);
            ++started;
            for (;;) {
                condition->wait(mutex);
            }
        })));
    }
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return started == 18;
    }));
    EXPECT_FALSE(pool->close(false, 0));
    EXPECT_TRUE(pool->close(true));
    pool.reset();
    EXPECT_TRUE(eventually([&] { return watched.expired(); }));
}

TEST_F(PoolClose, LeavesNoTaskOfAnEnqueueThatWasUnderWay)
{
    const auto task = makeTask();
    for (int round = 0; round < 100; ++round) {
        const Pool pool = fixed(1);
        std::thread client([&] {
            while (pool->enqueue(task)) {
            }
        });
        EXPECT_TRUE(pool->close());
        client.join();
        EXPECT_EQ(pool->status().queuedTasks, 0);
    }
}

TEST_F(PoolClose, IsSafeOnPoolsWithoutWorkers)
{
    const Pool unused = made(4, 8);
    EXPECT_TRUE(unused->close());
    KT::KTThreadPool unowned(0, 4, 0, 0, 0);
    EXPECT_TRUE(unowned.close());
}

TEST_F(PoolClose, WorksWhenOnlyTheMonitorHoldsThePool)
{
    Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    const boost::weak_ptr<KT::KTThreadPool> watched(pool);
    KT::KTThreadPool* const raw = pool.get();
    pool.reset();
    EXPECT_TRUE(raw->close());
    EXPECT_TRUE(watched.expired());
}

TEST_F(PoolClose, LeavesNoTaskInTheQueue)
{
    const Pool pool = fixed(1);
    const auto task = makeTask();
    pool->shutdown(false);
    // As an enqueue leaves it that runs at the same time as the shutdown.
    inside::tasks(pool).push_back(task);
    EXPECT_TRUE(pool->close());
    EXPECT_EQ(pool->status().queuedTasks, 0);
    EXPECT_EQ(task.use_count(), 1);
}

/// Makes its pool grow when it is destroyed.
class GrowsAtItsEnd : public KT::KTTask {
public:
    explicit GrowsAtItsEnd(KT::KTThreadPool& pool) : grown(pool) {}
    ~GrowsAtItsEnd() override { grown.xIncreaseThread(); }
    void run() override {}

private:
    KT::KTThreadPool& grown;
};

TEST(PoolCloseAgainstGrowth, StartsOverIfAGrowthRestartedThePoolMeanwhile)
{
    const Pool pool(new KT::KTThreadPool(1, 8, 0, 0, 0));
    pool->init(1, 8, 0, 0, 0);
    KT::KTThreadPool& grown = *pool;
    Gate gate;
    pool->enqueue(makeTask([&grown, &gate] {
        gate.pass();
        // As an enqueue leaves it that runs at the same time as the shutdown. It is dropped when
        // all workers have ended.
        EXPECT_TRUE(eventually([&grown] { return grown.status().threads == 0; }));
        const KT::KTCriticalSection hold(inside::queueMutex(grown));
        inside::tasks(grown).push_back(boost::make_shared<GrowsAtItsEnd>(grown));
    }));
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    EXPECT_TRUE(pool->close(false, 60000));
    EXPECT_EQ(pool->status().threads, 0);
    EXPECT_EQ(pool.use_count(), 1);
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

}  // namespace
