#include <cerrno>
#include <climits>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <kterror/KTError.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;

/// Pools whose table is filled with workers that have no thread, so that none retires by itself.
class PoolSizing : public PoolFixture {
protected:
    Pool filled(int workers, int maxThreads)
    {
        const Pool pool = made(workers, maxThreads);
        for (int i = 0; i < workers; ++i) {
            inside::threads(pool)[static_cast<std::size_t>(i)].reset(
                new KT::KTThread(pool, i, inside::wakeMutex(pool), inside::wakeCondition(pool)));
        }
        return pool;
    }

    static boost::shared_ptr<KT::KTThread> slot(const Pool& pool, std::size_t index)
    {
        return inside::threads(pool)[index];
    }

    const ConsoleCapture console;
};

TEST_F(PoolSizing, NothingToAdjust)
{
    EXPECT_FALSE(filled(4, 8)->adjustThread(0));
    const Pool empty = made(0, 8);
    EXPECT_FALSE(empty->adjustThread(3));
    EXPECT_FALSE(empty->adjustThread(-3));
    EXPECT_EQ(empty->status().threads, 0);
}

TEST_F(PoolSizing, NegativeCountHasNoWorkersToAdjust)
{
    const Pool pool = made(-3, 8);
    EXPECT_FALSE(pool->adjustThread(1));
    EXPECT_FALSE(pool->adjustThread(INT_MIN));
    EXPECT_TRUE(pool->xIncreaseThread());
    EXPECT_FALSE(pool->enqueue(makeTask()));
    EXPECT_EQ(pool->computeSumThreadIdle().tv_sec, 0);
    EXPECT_EQ(pool->status().threads, -3);
}

TEST_F(PoolSizing, PoolOfEighteenOrFewerDoesNotShrink)
{
    const Pool ten = filled(10, 20);
    inside::nbThreadsToRemove(ten) = 2;
    EXPECT_TRUE(ten->adjustThread(-5));
    EXPECT_EQ(ten->status().threadsToRemove, 2);
    EXPECT_TRUE(filled(18, 20)->adjustThread(-1));
}

TEST_F(PoolSizing, ShrinkRequestAboveEighteenIsRecordedAndReplacesAnEarlierOne)
{
    const Pool pool = filled(19, 20);
    EXPECT_TRUE(pool->adjustThread(-5));
    EXPECT_EQ(pool->status().threadsToRemove, 5);
    EXPECT_TRUE(pool->adjustThread(-2));
    EXPECT_EQ(pool->status().threadsToRemove, 2);
    EXPECT_TRUE(pool->adjustThread(-18));
    EXPECT_EQ(pool->status().threadsToRemove, 18);
    EXPECT_EQ(pool->status().threads, 19);
}

TEST_F(PoolSizing, OneWorkerAlwaysRemains)
{
    const Pool pool = filled(20, 20);
    for (const int delta : {-20, -25, -INT_MAX, INT_MIN}) {
        EXPECT_FALSE(pool->adjustThread(delta));
        EXPECT_EQ(pool->status().threadsToRemove, 19);
    }
}

TEST_F(PoolSizing, FiveOfTwentyRetireAndTheSixthCarriesOn)
{
    const Pool pool = filled(20, 20);
    EXPECT_TRUE(pool->adjustThread(-5));
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(pool->apoptosis(slot(pool, 0)));
    }
    EXPECT_FALSE(pool->apoptosis(slot(pool, 0)));
    EXPECT_EQ(pool->status().threads, 15);
    EXPECT_EQ(pool->status().threadsToRemove, 0);
    std::string expected;
    for (int i = 0; i < 5; ++i) {
        expected += "KTThreadPool::decrease\n";
    }
    EXPECT_EQ(console.text(), expected);
}

TEST_F(PoolSizing, LastWorkerMovesIntoTheFreedSlot)
{
    const Pool pool = filled(6, 6);
    inside::nbThreadsToRemove(pool) = 1;
    const auto retiring = slot(pool, 2);
    const auto last = slot(pool, 5);
    EXPECT_TRUE(pool->apoptosis(retiring));
    EXPECT_EQ(pool->status().threads, 5);
    EXPECT_EQ(slot(pool, 2), last);
    EXPECT_EQ(inside::index(*last), 2);
    EXPECT_EQ(slot(pool, 5), last) << "the old slot keeps its second reference";
}

TEST_F(PoolSizing, LastWorkerItselfMayRetire)
{
    const Pool pool = filled(6, 6);
    inside::nbThreadsToRemove(pool) = 1;
    const auto last = slot(pool, 5);
    EXPECT_TRUE(pool->apoptosis(last));
    EXPECT_EQ(pool->status().threads, 5);
    EXPECT_EQ(slot(pool, 5), last);
    EXPECT_EQ(slot(pool, 4)->getThis(), slot(pool, 4));
}

TEST_F(PoolSizing, RetirementSignalsOneSleeper)
{
    const Pool pool = filled(6, 6);
    inside::nbThreadsToRemove(pool) = 1;
    const auto retiring = slot(pool, 0);
    const platform::Recorder recorder;
    EXPECT_TRUE(pool->apoptosis(retiring));
    EXPECT_EQ(recorder.count(Call::signal, inside::condition(*inside::wakeCondition(pool)).get()),
              1U);
    EXPECT_FALSE(pool->apoptosis(slot(pool, 0)));
    EXPECT_EQ(recorder.count(Call::signal), 1U);
}

TEST_F(PoolSizing, RetirementSignalsUnderTheWakeMutex)
{
    const Pool pool = filled(6, 6);
    inside::nbThreadsToRemove(pool) = 1;
    const auto retiring = slot(pool, 0);  // its destructor would signal, too
    const auto wakeMutex = inside::wakeMutex(pool);
    bool isSignalHeld = false;
    {
        const platform::Observer observer([&](Call call, const void*) {
            if (call == Call::signal) {
                isSignalHeld = isHeld(wakeMutex);
            }
        });
        EXPECT_TRUE(pool->apoptosis(retiring));
    }
    EXPECT_TRUE(isSignalHeld);
}

TEST_F(PoolSizing, RetirementIsReportedUnderThePoolMutexBeforeItCounts)
{
    const Pool pool = filled(6, 6);
    inside::nbThreadsToRemove(pool) = 2;
    int lines = 0;
    const ConsoleCapture line([&] {
        ++lines;
        EXPECT_TRUE(isHeld(inside::poolMutex(pool)));
        EXPECT_EQ(inside::nbThreads(pool), 6);
        EXPECT_EQ(inside::nbThreadsToRemove(pool), 2);
    });
    EXPECT_TRUE(pool->apoptosis(slot(pool, 0)));
    EXPECT_EQ(lines, 1);
    EXPECT_EQ(line.text(), "KTThreadPool::decrease\n");
}

TEST_F(PoolSizing, RetirementNeverHoldsTwoLocks)
{
    const Pool pool = filled(2, 2);
    inside::nbThreadsToRemove(pool) = 1;
    Threads retiring;
    const HeldElsewhere held(inside::wakeMutex(pool));
    retiring.start([&] { pool->apoptosis(inside::threads(pool)[0]); });
    // While it waits for the wake mutex, the pool mutex is free.
    EXPECT_TRUE(eventually([&] { return pool->status().threads == 1; }));
}

TEST_F(PoolSizing, WorkerWithoutASlotDoesNotRetire)
{
    const Pool pool = filled(6, 6);
    inside::nbThreadsToRemove(pool) = 3;
    EXPECT_FALSE(pool->apoptosis(boost::shared_ptr<KT::KTThread>()));
    for (const int index : {-1, 6, 600}) {
        const boost::shared_ptr<KT::KTThread> beyond(
            new KT::KTThread(pool, index, inside::wakeMutex(pool), inside::wakeCondition(pool)));
        EXPECT_FALSE(pool->apoptosis(beyond)) << index;
    }
    const boost::shared_ptr<KT::KTThread> setAside(
        new KT::KTThread(pool, 2, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    setAside->killThread();
    EXPECT_FALSE(pool->apoptosis(setAside));
    EXPECT_EQ(pool->status().threads, 6);
}

TEST_F(PoolSizing, WorkerOfAClientRetiresInTheSlotOfItsIndex)
{
    const Pool pool = made(20, 20);  // without workers of its own
    EXPECT_TRUE(pool->adjustThread(-1));
    const boost::shared_ptr<KT::KTThread> worker(
        new KT::KTThread(pool, 2, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    EXPECT_TRUE(pool->apoptosis(worker));
    EXPECT_EQ(console.text(), "KTThreadPool::decrease\n");
    EXPECT_EQ(pool->status().threads, 19);
    EXPECT_FALSE(pool->apoptosis(worker));
    pool->shutdown(false);
}

TEST_F(PoolSizing, CountBeyondTheTableIsNeverIndexed)
{
    const Pool pool = made(40, 4);
    pool->init(2, 4, 0, 0, 0);
    EXPECT_FALSE(pool->adjustThread(1));
    EXPECT_TRUE(pool->xIncreaseThread());
    pool->resetSumThreadIdle();
    EXPECT_EQ(pool->computeSumThreadIdle().tv_usec, 0);
    EXPECT_TRUE(pool->adjustThread(-1));
    EXPECT_TRUE(pool->enqueue(makeTask()));
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return pool->status().threads == 39;
    }));
    EXPECT_TRUE(pool->close());
}

TEST_F(PoolSizing, GrowthAddsWorkersAndCancelsRetirements)
{
    const Pool pool = filled(20, 30);
    EXPECT_TRUE(pool->adjustThread(-3));
    const platform::Recorder recorder;
    EXPECT_TRUE(pool->adjustThread(1));
    EXPECT_EQ(pool->status().threads, 21);
    EXPECT_EQ(pool->status().threadsToRemove, 0);
    ASSERT_TRUE(slot(pool, 20));
    EXPECT_EQ(inside::index(*slot(pool, 20)), 20);
    EXPECT_EQ(recorder.count(Call::create), 1U);
}

TEST_F(PoolSizing, GrowthStopsAtTheMaximum)
{
    const Pool pool = filled(2, 4);
    EXPECT_FALSE(pool->adjustThread(INT_MAX));
    EXPECT_EQ(pool->status().threads, 4);
    EXPECT_FALSE(pool->adjustThread(1));
    EXPECT_EQ(console.text(), "");
}

TEST_F(PoolSizing, GrowthOfAFullPoolFailsAndCancelsRetirements)
{
    const Pool pool = filled(20, 20);
    EXPECT_TRUE(pool->adjustThread(-3));
    EXPECT_FALSE(pool->adjustThread(1));
    EXPECT_EQ(pool->status().threadsToRemove, 0);
    EXPECT_EQ(pool->status().threads, 20);
}

TEST_F(PoolSizing, GrowthThatMeetsItsCountIsTrue)
{
    const Pool pool = filled(1, 4);
    EXPECT_TRUE(pool->adjustThread(3));
    EXPECT_EQ(pool->status().threads, 4);
}

TEST_F(PoolSizing, GrowthOverwritesTheSlotOfARetiredWorker)
{
    const Pool pool = filled(6, 6);
    inside::nbThreadsToRemove(pool) = 1;
    const boost::weak_ptr<KT::KTThread> last(slot(pool, 5));
    EXPECT_TRUE(pool->apoptosis(last.lock()));
    EXPECT_FALSE(last.expired());
    EXPECT_TRUE(pool->adjustThread(1));
    EXPECT_TRUE(last.expired());
    EXPECT_EQ(inside::index(*slot(pool, 5)), 5);
}

TEST_F(PoolSizing, FailedLaunchLeavesTheWorkerUncounted)
{
    const LogCapture log("core.thread");
    const Pool pool = filled(2, 8);
    {
        const platform::Failure failure(Call::create, EAGAIN, [](int nth) { return nth == 2; });
        EXPECT_FALSE(pool->adjustThread(3));
    }
    EXPECT_EQ(pool->status().threads, 3);
    EXPECT_TRUE(slot(pool, 3)) << "the worker stays in its slot";
    EXPECT_EQ(log.records().size(), 1U);
    EXPECT_TRUE(pool->adjustThread(1));
    EXPECT_EQ(pool->status().threads, 4);
}

TEST_F(PoolSizing, FailedLaunchesOfABatchEmptyTheirSlot)
{
    const LogCapture log("core.thread");
    const Pool pool = filled(2, 8);
    {
        const platform::Failure failure(Call::create, EAGAIN);
        EXPECT_TRUE(pool->xIncreaseThread());
    }
    EXPECT_EQ(pool->status().threads, 2);
    EXPECT_FALSE(slot(pool, 2));
    EXPECT_EQ(log.records().size(), 30U) << "30 attempts, one record each";
}

TEST_F(PoolSizing, BatchThatStartsNoneKeepsPendingRetirements)
{
    const LogCapture log("core.thread");
    const Pool pool = filled(20, 30);
    EXPECT_TRUE(pool->adjustThread(-4));
    {
        const platform::Failure failure(Call::create, EAGAIN);
        EXPECT_TRUE(pool->xIncreaseThread());
    }
    EXPECT_EQ(pool->status().threadsToRemove, 4);
    EXPECT_TRUE(pool->xIncreaseThread());
    EXPECT_EQ(pool->status().threadsToRemove, 0);
}

TEST_F(PoolSizing, BatchTriesAgainAfterAFailure)
{
    const LogCapture log("core.thread");
    const Pool pool = filled(2, 12);
    const platform::Failure failure(Call::create, EAGAIN, [](int nth) { return nth % 2 == 1; });
    EXPECT_TRUE(pool->xIncreaseThread());
    EXPECT_EQ(pool->status().threads, 7);
    EXPECT_EQ(log.records().size(), 5U);
}

TEST_F(PoolSizing, BatchesOfFiveUpToTheMaximum)
{
    const Pool pool = filled(4, 12);
    EXPECT_TRUE(pool->xIncreaseThread());
    EXPECT_EQ(pool->status().threads, 9);
    EXPECT_TRUE(pool->xIncreaseThread());
    EXPECT_EQ(pool->status().threads, 12);
    EXPECT_EQ(console.text(), "");
    EXPECT_FALSE(pool->xIncreaseThread());
    EXPECT_EQ(console.text(), "Threadpool limit reached.\n");
    EXPECT_EQ(pool->status().threads, 12);
}

TEST_F(PoolSizing, BatchReachesTheMaximumExactly)
{
    const Pool pool = filled(4, 9);
    EXPECT_TRUE(pool->xIncreaseThread());
    EXPECT_EQ(pool->status().threads, 9);
}

TEST_F(PoolSizing, BatchRestartsAStoppedPool)
{
    const Pool pool = fixed(2);
    pool->shutdown(false);
    EXPECT_EQ(pool->status().threads, 0);
    EXPECT_TRUE(pool->xIncreaseThread());
    EXPECT_EQ(pool->status().threads, 2);
    const auto task = makeTask();
    EXPECT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(untilFinished(pool, task));
}

TEST_F(PoolSizing, GrowthNeedsAnOwnerAndReleasesItsLock)
{
    KT::KTThreadPool unowned(2, 4, 0, 0, 0);
    EXPECT_THROW(unowned.adjustThread(1), boost::bad_weak_ptr);
    EXPECT_THROW(unowned.xIncreaseThread(), boost::bad_weak_ptr);
    EXPECT_EQ(unowned.status().threads, 2) << "status needs the same lock";
}

TEST_F(PoolSizing, EnqueueOnAMachineWithoutThreadsStillQueues)
{
    const LogCapture log("core.thread");
    const Pool pool = running(1, 4);
    const platform::Failure failure(Call::create, EAGAIN);
    const auto task = makeTask();
    EXPECT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(untilFinished(pool, task));
    EXPECT_EQ(log.records().size(), 1U);
}

TEST_F(PoolSizing, IdleTimesAreSummedWithOneCarryAWorker)
{
    const Pool pool = filled(2, 4);
    inside::idleTime(*slot(pool, 0)) = ro::os::timeval{1, 600000};
    inside::idleTime(*slot(pool, 1)) = ro::os::timeval{2, 500000};
    const ro::os::timeval sum = pool->computeSumThreadIdle();
    EXPECT_EQ(sum.tv_sec, 4);
    EXPECT_EQ(sum.tv_usec, 100000);
    inside::idleTime(*slot(pool, 1)) = ro::os::timeval{2, 400000};
    EXPECT_EQ(pool->computeSumThreadIdle().tv_sec, 4) << "a whole second is carried";
    EXPECT_EQ(pool->computeSumThreadIdle().tv_usec, 0);
    pool->resetSumThreadIdle();
    EXPECT_EQ(inside::idleTime(*slot(pool, 0)).tv_sec, 0);
    EXPECT_EQ(inside::idleTime(*slot(pool, 1)).tv_usec, 0);
    EXPECT_EQ(pool->computeSumThreadIdle().tv_sec, 0);
}

TEST_F(PoolSizing, IdleTimesOfAPoolWithoutWorkersAreZero)
{
    const Pool pool = made(3, 4);
    EXPECT_EQ(pool->computeSumThreadIdle().tv_sec, 0);
    EXPECT_EQ(pool->computeSumThreadIdle().tv_usec, 0);
}

TEST_F(PoolSizing, LiveWorkersRetireByThemselves)
{
    const Pool pool = fixed(20);
    ASSERT_TRUE(untilAsleep(pool, 20));
    EXPECT_TRUE(pool->adjustThread(-19));
    const auto task = makeTask();
    ASSERT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(eventually([&] {
        pool->wake();
        return pool->status().threads <= 18 || pool->status().threadsToRemove == 0;
    }));
    ASSERT_TRUE(untilFinished(pool, task));
    EXPECT_TRUE(pool->close());
    EXPECT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
}

}  // namespace
