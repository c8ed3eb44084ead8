#include <cerrno>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include <kterror/KTError.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;

static_assert(!std::is_polymorphic<KT::KTThreadPool>::value, "not meant to be derived from");
static_assert(!std::is_copy_constructible<KT::KTThreadPool>::value, "a pool owns its workers");

class PoolConstruction : public PoolFixture {};

TEST_F(PoolConstruction, RecordsTheSizesAndStartsNothing)
{
    const platform::Recorder recorder;
    const Pool pool = made(4, 10, 3);
    ASSERT_EQ(inside::threads(pool).size(), 10U);
    for (const auto& slot : inside::threads(pool)) {
        EXPECT_FALSE(slot);
    }
    EXPECT_EQ(inside::nbThreads(pool), 4);
    EXPECT_EQ(inside::nbBusyThreads(pool), 0);
    EXPECT_EQ(inside::nbThreadsToRemove(pool), 0);
    EXPECT_FALSE(inside::monitor(pool));
    EXPECT_TRUE(inside::retiredThreads(pool).empty());
    EXPECT_EQ(recorder.count(Call::create), 0U);
}

TEST_F(PoolConstruction, MakesTheBusyLockLast)
{
    const platform::Recorder recorder;
    const Pool pool = made(1, 1);
    const void* last = nullptr;
    for (const platform::Record& record : recorder.records()) {
        if (record.call == Call::initMutex || record.call == Call::initLock) {
            last = record.object;
        }
    }
    EXPECT_EQ(last, inside::lock(*inside::busyLock(pool)).get());
}

TEST_F(PoolConstruction, InitLaunchesTheFirstWorkers)
{
    const platform::Recorder recorder;
    const Pool pool = made(4, 10);
    pool->init(4, 10, 0, 0, 0);
    EXPECT_TRUE(inside::monitor(pool));
    EXPECT_EQ(inside::nbThreads(pool), 4);
    EXPECT_EQ(recorder.count(Call::create), 4U);
    for (std::size_t slot = 0; slot < 10; ++slot) {
        const auto worker = inside::threads(pool)[slot];
        ASSERT_EQ(static_cast<bool>(worker), slot < 4);
        if (worker) {
            EXPECT_EQ(inside::index(*worker), static_cast<int>(slot));
            EXPECT_EQ(recorder.count(Call::create, worker.get()), 1U);
        }
    }
}

class InitWithoutWorkers : public PoolFixture, public testing::WithParamInterface<int> {};

TEST_P(InitWithoutWorkers, MakesTheMonitorOnly)
{
    const platform::Recorder recorder;
    const Pool pool = made(0, 5);
    pool->init(GetParam(), 5, 0, 0, 0);
    EXPECT_TRUE(inside::monitor(pool));
    EXPECT_EQ(recorder.count(Call::create), 0U);
}

INSTANTIATE_TEST_SUITE_P(Counts, InitWithoutWorkers, testing::Values(0, -1, -100));

TEST_F(PoolConstruction, OtherArgumentsOfInitHaveNoEffect)
{
    const Pool pool = made(1, 3, 2);
    pool->init(1, 999, 77, 78, 79);
    EXPECT_EQ(pool->status().maxThreads, 3);
    EXPECT_EQ(inside::threads(pool).size(), 3U);
    // The period is the constructor's: two ended tasks restart the count.
    pool->taskEnded(makeTask());
    EXPECT_EQ(inside::taskCount(*inside::monitor(pool)), 1);
    pool->taskEnded(makeTask());
    EXPECT_EQ(inside::taskCount(*inside::monitor(pool)), 0);
}

TEST_F(PoolConstruction, InitWithoutAnOwnerThrowsBeforeAnyWorker)
{
    const platform::Recorder recorder;
    KT::KTThreadPool pool(0, 2, 0, 0, 0);
    EXPECT_THROW(pool.init(2, 2, 0, 0, 0), boost::bad_weak_ptr);
    EXPECT_THROW(pool.getThis(), boost::bad_weak_ptr);
    EXPECT_EQ(recorder.count(Call::create), 0U);
}

TEST_F(PoolConstruction, SecondInitReplacesTheMonitor)
{
    const Pool pool = made(1, 1);
    pool->init(0, 1, 0, 0, 0);
    const auto first = inside::monitor(pool);
    pool->init(0, 1, 0, 0, 0);
    EXPECT_NE(inside::monitor(pool), first);
    EXPECT_EQ(first.use_count(), 1);
    pool->taskEnded(makeTask());
    EXPECT_EQ(inside::taskCount(*inside::monitor(pool)), 1);
    EXPECT_EQ(inside::taskCount(*first), 0);
}

TEST_F(PoolConstruction, WorkersReportToTheMonitorOfTheLastInit)
{
    const Pool pool = fixed(1);
    const auto first = inside::monitor(pool);
    for (int i = 0; i < 2; ++i) {
        const auto task = makeTask();
        ASSERT_TRUE(pool->enqueue(task));
        ASSERT_TRUE(untilFinished(pool, task));
        ASSERT_TRUE(untilAsleep(pool, 1));
        pool->init(0, 1, 0, 0, 0);
    }
    EXPECT_EQ(inside::taskCount(*first), 1) << "the second task is the second monitor's";
}

TEST_F(PoolConstruction, SecondInitReleasesTheMonitorWhileAWorkerSleeps)
{
    const Pool pool = fixed(1);
    const auto task = makeTask();
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    ASSERT_TRUE(untilAsleep(pool, 1));
    const boost::weak_ptr<KT::KTMonitor> first = inside::monitor(pool);
    pool->init(0, 1, 0, 0, 0);
    EXPECT_TRUE(first.expired());
}

TEST_F(PoolConstruction, InitTakesNoneOfThePoolsLocks)
{
    const Pool pool = made(3, 3);
    const std::set<const void*> locks = {inside::mutex(*inside::poolMutex(pool)).get(),
                                         inside::mutex(*inside::queueMutex(pool)).get(),
                                         inside::mutex(*inside::wakeMutex(pool)).get(),
                                         inside::lock(*inside::busyLock(pool)).get()};
    const platform::Recorder recorder;
    pool->init(3, 3, 0, 0, 0);
    for (const platform::Record& record : recorder.records()) {
        if (pthread_equal(record.thread, pthread_self()) != 0) {
            EXPECT_EQ(locks.count(record.object), 0U);
        }
    }
    EXPECT_TRUE(eventually([&] {
        return recorder.count(Call::lock, inside::mutex(*inside::poolMutex(pool)).get()) >= 3;
    })) << "the workers do take them";
}

TEST_F(PoolConstruction, RetirementsRequestedBeforeInitLeaveTheTableWhole)
{
    const ConsoleCapture console;
    const Pool pool = made(20, 20);
    EXPECT_TRUE(pool->adjustThread(-5));
    pool->init(20, 20, 0, 0, 0);
    EXPECT_TRUE(eventually([&] {
        // A worker on its way to sleep misses the wake-up of the one that retired before it.
        inside::wakeCondition(pool)->signal();
        return pool->status().threadsToRemove == 0;
    }));
    const KT::KTCriticalSection hold(inside::poolMutex(pool));
    EXPECT_EQ(inside::nbThreads(pool), 15);
    for (int slot = 0; slot < 15; ++slot) {
        const auto& worker = inside::threads(pool)[static_cast<std::size_t>(slot)];
        ASSERT_TRUE(worker) << slot;
        EXPECT_EQ(inside::index(*worker), slot);
        EXPECT_FALSE(inside::killed(*worker));
    }
}

TEST_F(PoolConstruction, InitWithMoreWorkersThanMaxThreadsThrowsAndMakesNothing)
{
    const platform::Recorder recorder;
    const Pool pool = made(5, 4);
    try {
        pool->init(5, 4, 0, 0, 0);
        FAIL() << "it took 5 workers for 4 slots";
    } catch (const KT::KTError& error) {
        EXPECT_NE(error.toString().find("5 workers asked for, but maxThreads is 4"),
                  std::string::npos);
    }
    EXPECT_FALSE(inside::monitor(pool));
    EXPECT_EQ(recorder.count(Call::create), 0U);
}

TEST_F(PoolConstruction, NegativeMaxThreadsIsALengthError)
{
    try {
        KT::KTThreadPool pool(0, -1, 0, 0, 0);
        FAIL() << "it made a table of less than nothing";
    } catch (const std::length_error& error) {
#ifdef __GLIBCXX__
        EXPECT_STREQ(error.what(), "vector::reserve");
#else
        static_cast<void>(error);  // the text depends on the C++ library
#endif
    }
}

TEST_F(PoolConstruction, InitLetsAFailedLaunchThroughAndThePoolCanBeClosed)
{
    const LogCapture log("core.thread");
    const Pool pool = made(4, 8);
    {
        const platform::Failure failure(Call::create, EAGAIN, [](int nth) { return nth == 3; });
        EXPECT_THROW(pool->init(4, 8, 0, 0, 0), KT::KTError);
    }
    EXPECT_EQ(log.records().size(), 1U);
    EXPECT_TRUE(inside::threads(pool)[2]) << "the worker stays where the pool has put it";
    EXPECT_FALSE(inside::threads(pool)[3]);
    EXPECT_EQ(pool->computeSumThreadIdle().tv_sec, 0);
    pool->resetSumThreadIdle();
    EXPECT_TRUE(pool->close());
}

TEST_F(PoolConstruction, GetThisIsThePool)
{
    const Pool pool = made(0, 1);
    EXPECT_EQ(pool->getThis(), pool);
}

}  // namespace
