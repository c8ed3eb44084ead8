#include <ios>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;
using testing::ElementsAre;

static_assert(!std::is_polymorphic<KT::KTMonitor>::value, "a plain observer");

boost::shared_ptr<FunctionTask> taskThatWaited(std::int32_t microseconds)
{
    const auto task = makeTask();
    inside::creationTime(*task) = ro::os::timeval{1000, 0};
    inside::executionTime(*task) =
        ro::os::timeval{1000 + microseconds / 1000000, microseconds % 1000000};
    return task;
}

class Monitor : public PoolFixture {
protected:
    /// A pool without threads, whose counts are set by hand.
    Pool counting(int live, int busy, int maxThreads)
    {
        const Pool pool = made(live, maxThreads);
        inside::nbBusyThreads(pool) = busy;
        return pool;
    }
};

TEST_F(Monitor, AdjustsAfterEveryPeriodAndAtNoOtherTime)
{
    const Pool pool = counting(1, 0, 10);
    KT::KTMonitor monitor(3, 0, 0, pool);
    const platform::Recorder recorder;
    for (int ended = 1; ended <= 10; ++ended) {
        // All workers are busy each time, so that each adjustment makes the pool grow.
        inside::nbBusyThreads(pool) = inside::nbThreads(pool);
        monitor.assimilate(taskThatWaited(0));
        EXPECT_EQ(recorder.count(Call::create), static_cast<std::size_t>(ended / 3));
    }
    inside::nbBusyThreads(pool) = 0;
}

class MonitorWithoutPeriod : public Monitor, public testing::WithParamInterface<int> {};

TEST_P(MonitorWithoutPeriod, NeverAdjustsOnItsOwn)
{
    const Pool pool = counting(1, 1, 10);
    KT::KTMonitor monitor(GetParam(), 0, 0, pool);
    const platform::Recorder recorder;
    for (int ended = 0; ended < 20; ++ended) {
        monitor.assimilate(taskThatWaited(0));
    }
    // After months the count has wrapped, and comes to the period itself.
    inside::taskCount(monitor) = GetParam() - 1;
    monitor.assimilate(taskThatWaited(0));
    EXPECT_EQ(inside::taskCount(monitor), GetParam());
    EXPECT_EQ(recorder.count(Call::create), 0U);
    inside::nbBusyThreads(pool) = 0;
}

INSTANTIATE_TEST_SUITE_P(Periods, MonitorWithoutPeriod, testing::Values(0, -1, -7));

TEST_F(Monitor, SumsIdleTimesWithTheirCarry)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(0, 0, 0, pool);
    EXPECT_EQ(inside::idleSeconds(monitor), 0);
    EXPECT_EQ(inside::idleMicroseconds(monitor), 0);
    EXPECT_EQ(inside::taskCount(monitor), 0);
    for (int i = 0; i < 3; ++i) {
        monitor.assimilate(taskThatWaited(700000));
    }
    EXPECT_EQ(inside::idleSeconds(monitor), 2);
    EXPECT_EQ(inside::idleMicroseconds(monitor), 100000);
    EXPECT_EQ(inside::taskCount(monitor), 3);
}

TEST_F(Monitor, NegativeIdleTimesLowerTheSum)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(0, 0, 0, pool);
    monitor.assimilate(taskThatWaited(-300000));
    EXPECT_EQ(inside::idleSeconds(monitor), 0);
    EXPECT_EQ(inside::idleMicroseconds(monitor), -300000);
    monitor.assimilate(taskThatWaited(-1200000));
    EXPECT_EQ(inside::idleSeconds(monitor), -1);
    EXPECT_EQ(inside::idleMicroseconds(monitor), -500000);
}

TEST_F(Monitor, SumsWrap)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(0, 0, 0, pool);
    inside::idleMicroseconds(monitor) = 999999;
    const auto task = makeTask();
    inside::creationTime(*task) = ro::os::timeval{0, 0};
    inside::executionTime(*task) = ro::os::timeval{2147, 483647};
    monitor.assimilate(task);
    // 2147483647 + 999999 wraps to -2146483650.
    EXPECT_EQ(inside::idleSeconds(monitor), -2146);
    EXPECT_EQ(inside::idleMicroseconds(monitor), -483650);
}

TEST_F(Monitor, PeriodicLookKeepsTheIdleTime)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(1, 0, 0, pool);
    for (int i = 0; i < 3; ++i) {
        monitor.assimilate(taskThatWaited(700000));
        EXPECT_EQ(inside::taskCount(monitor), 0);
    }
    EXPECT_EQ(inside::idleSeconds(monitor), 2);
    EXPECT_EQ(inside::idleMicroseconds(monitor), 100000);
}

TEST_F(Monitor, PeriodicLookThatThrowsKeepsTheIdleTimeAndRestartsTheCount)
{
    const Pool pool = counting(200, 190, 400);
    KT::KTMonitor monitor(2, 0, 0, pool);
    {
        const FailingConsole console;
        monitor.assimilate(taskThatWaited(700000));
        EXPECT_THROW(monitor.assimilate(taskThatWaited(700000)), std::ios_base::failure);
    }
    EXPECT_EQ(inside::taskCount(monitor), 0);
    EXPECT_EQ(inside::idleSeconds(monitor), 1);
    EXPECT_EQ(inside::idleMicroseconds(monitor), 400000);
    EXPECT_FALSE(isHeld(inside::mutex(monitor)));
    inside::nbBusyThreads(pool) = 0;
}

TEST_F(Monitor, LooksUnderItsMutexOnlyIfTheLookIsPeriodic)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(1, 0, 0, pool);
    const void* const busyLock = inside::lock(*inside::busyLock(pool)).get();
    const auto mutex = inside::mutex(monitor);
    std::vector<bool> looks;
    {
        const platform::Observer observer([&](Call call, const void* object) {
            if (call == Call::readLock && object == busyLock) {
                looks.push_back(isHeld(mutex));
            }
        });
        monitor.assimilate(taskThatWaited(0));
        monitor.adjustPool();
    }
    EXPECT_THAT(looks, ElementsAre(true, false));
}

TEST_F(Monitor, ReadsTheBusyCountUnderASharedHold)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(0, 0, 0, pool);
    const void* const busyLock = inside::lock(*inside::busyLock(pool)).get();
    std::vector<Call> calls;
    {
        const platform::Observer observer([&](Call call, const void* object) {
            if (object == busyLock) {
                calls.push_back(call);
            }
        });
        monitor.adjustPool();
    }
    EXPECT_THAT(calls, ElementsAre(Call::readLock, Call::rwUnlock));
}

struct Load {
    int live;
    int busy;
    int liveAfterwards;
};

void PrintTo(const Load& load, std::ostream* out)
{
    *out << load.busy << " of " << load.live << " busy";
}

class MonitorLoad : public Monitor, public testing::WithParamInterface<Load> {};

TEST_P(MonitorLoad, RequestsOneWorkerIfAtMostOneIsIdle)
{
    const Pool pool = counting(GetParam().live, GetParam().busy, 10);
    KT::KTMonitor monitor(0, 0, 0, pool);
    monitor.adjustPool();
    EXPECT_EQ(pool->status().threads, GetParam().liveAfterwards);
    inside::nbBusyThreads(pool) = 0;
}

INSTANTIATE_TEST_SUITE_P(Loads, MonitorLoad,
                         testing::Values(Load{4, 4, 5}, Load{4, 3, 5}, Load{4, 2, 4}, Load{4, 0, 4},
                                         Load{1, 0, 2}, Load{10, 10, 10}));

TEST_F(Monitor, RequestsWorkersUpToTheBusyLimitOnly)
{
    const ConsoleCapture console;
    const Pool pool = counting(190, 189, 400);
    KT::KTMonitor monitor(0, 0, 0, pool);
    monitor.adjustPool();
    EXPECT_EQ(pool->status().threads, 191);
    EXPECT_EQ(console.text(), "");
    inside::nbBusyThreads(pool) = 190;
    inside::nbThreads(pool) = 191;
    monitor.adjustPool();
    EXPECT_EQ(pool->status().threads, 191);
    EXPECT_EQ(console.text(), "INFO: Thread limit reached: (190/196)\n");
    inside::nbBusyThreads(pool) = 0;
}

TEST_F(Monitor, SaysTheCountPlusFiveAtTheLimit)
{
    const ConsoleCapture console;
    const Pool pool = counting(200, 190, 400);
    KT::KTMonitor monitor(0, 0, 0, pool);
    monitor.adjustPool();
    EXPECT_EQ(console.text(), "INFO: Thread limit reached: (190/205)\n");
    EXPECT_EQ(pool->status().threads, 200);
    inside::nbBusyThreads(pool) = 0;
}

TEST_F(Monitor, DropsItsReferenceToTheTask)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(0, 0, 0, pool);
    const auto task = taskThatWaited(1);
    monitor.assimilate(task);
    EXPECT_EQ(task.use_count(), 1);
}

TEST_F(Monitor, AutoDeleteDropsItBeforeTheCallEnds)
{
    const Pool pool = counting(4, 0, 4);
    KT::KTMonitor monitor(0, 0, 0, pool);
    for (const bool autoDelete : {false, true}) {
        auto task = taskThatWaited(1);
        task->autoDelete = autoDelete;
        const boost::weak_ptr<KT::KTTask> watched(task);
        // An argument lives until the end of the full expression.
        const bool isGone = (monitor.assimilate(std::move(task)), watched.expired());
        EXPECT_EQ(isGone, autoDelete);
        EXPECT_TRUE(watched.expired());
    }
}

TEST_F(Monitor, HoldsItsPool)
{
    Pool pool(new KT::KTThreadPool(0, 1, 0, 0, 0));
    const boost::weak_ptr<KT::KTThreadPool> watched(pool);
    {
        const KT::KTMonitor monitor(0, 0, 0, pool);
        pool.reset();
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

TEST_F(Monitor, EachEnqueueMakesABusyPoolGrowByOne)
{
    const Pool pool = running(1, 3);
    Gate gate;
    for (int i = 1; i <= 5; ++i) {
        ASSERT_TRUE(pool->enqueue(makeTask([&] { gate.pass(); })));
        ASSERT_TRUE(eventually([&] {
            pool->wake();
            return gate.arrived() == std::min(i, 3);
        }));
    }
    EXPECT_EQ(pool->status().threads, 3);
    gate.open();
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return gate.arrived() == 5 && pool->status().busyThreads == 0;
    }));
}

}  // namespace
