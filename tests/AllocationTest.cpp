/// What happens when the memory runs out, at each allocation in turn.
#include <functional>
#include <new>

#include <gtest/gtest.h>

#include "Allocations.h"
#include "Pools.h"

namespace {

using allocations::alive;
using allocations::untilFailure;

/// Runs `operation` with the n-th allocation failing, for each n until it goes through. Each
/// failure must be a bad_alloc that leaks nothing. Returns how many failed.
int failEachAllocation(const std::function<void()>& operation)
{
    for (int n = 0;; ++n) {
        const long before = alive;
        untilFailure = n;
        try {
            operation();
            untilFailure = -1;
            return n;
        } catch (const std::bad_alloc&) {
            untilFailure = -1;
            EXPECT_EQ(alive, before) << "allocation " << n << " failed and something leaked";
        }
    }
}

TEST(Allocation, FactoriesThrowAndLeakNothing)
{
    EXPECT_EQ(failEachAllocation([] { KT::KTMutex::createKTMutex(); }), 3);
    EXPECT_EQ(failEachAllocation([] { KT::KTMutexRW::createKTMutexRW(); }), 3);
    EXPECT_EQ(failEachAllocation([] { KT::KTCondition::createKTCondition(); }), 3);
}

TEST(Allocation, PoolConstructionThrowsAndLeaksNothing)
{
    EXPECT_GT(failEachAllocation([] { KT::KTThreadPool pool(0, 4, 0, 0, 0); }), 15);
}

TEST(Allocation, RegistrationThrowsAndTheNameCountsAsUnknown)
{
    KT::KTConditionManager manager;
    manager.addCondition("name");
    int failures = 0;
    for (;; ++failures) {
        untilFailure = failures;
        try {
            manager.addCondition("name");
            untilFailure = -1;
            break;
        } catch (const std::bad_alloc&) {
            untilFailure = -1;
            // Neither blocks nor crashes.
            manager.waitForCondition("name");
            manager.triggerCondition("name");
        }
    }
    EXPECT_GT(failures, 4);
    EXPECT_EQ(inside::events(manager).size(), 1U);
}

TEST(Allocation, RefusedTaskIsNotQueuedAndNoLockStaysHeld)
{
    const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(0, 1, 0, 0, 0);
    const auto task = makeTask();
    int queued = 0;
    // The deque asks for memory now and then: often enough to be met.
    for (int i = 0; i < 2000; ++i) {
        untilFailure = i % 2 - 1;  // nothing fails, or the first that is asked for
        try {
            pool->enqueue(task);
            ++queued;
        } catch (const std::bad_alloc&) {
        }
        untilFailure = -1;
        ASSERT_EQ(pool->status().queuedTasks, queued);
        ASSERT_EQ(task.use_count(), queued + 1);
    }
    EXPECT_GT(queued, 0);
    EXPECT_LT(queued, 2000);
    EXPECT_TRUE(pool->close());
}

TEST(Allocation, BatchIsQueuedAsAWholeOrNotAtAll)
{
    const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(0, 1, 0, 0, 0);
    const auto task = makeTask();
    const int size = 2000;
    const std::vector<boost::shared_ptr<KT::KTTask>> batch(size, task);
    const auto enqueue = [&pool](std::vector<boost::shared_ptr<KT::KTTask>>& tasks) {
        return pool->enqueue(std::move(tasks));
    };
    int failures = 0;
    for (;; ++failures) {
        std::vector<boost::shared_ptr<KT::KTTask>> copy = batch;
        untilFailure = failures;
        try {
            EXPECT_TRUE(enqueue(copy));
            untilFailure = -1;
            break;
        } catch (const std::bad_alloc&) {
            untilFailure = -1;
            ASSERT_EQ(pool->status().queuedTasks, 0);
        }
    }
    EXPECT_GT(failures, 5);
    EXPECT_EQ(pool->status().queuedTasks, size);
    EXPECT_TRUE(pool->close());
    EXPECT_EQ(task.use_count(), size + 1);
}

TEST(Allocation, GrowthThrowsAndThePoolGoesOn)
{
    const Pool pool(new KT::KTThreadPool(1, 40, 0, 0, 0));
    pool->init(1, 40, 0, 0, 0);
    int grown = 0;
    for (int n = 0; n < 20; ++n) {
        untilFailure = n;
        try {
            grown += pool->adjustThread(1);
        } catch (const std::bad_alloc&) {
        }
        untilFailure = -1;
        EXPECT_EQ(pool->status().threads, 1 + grown);
    }
    EXPECT_GT(grown, 0);
    EXPECT_LT(grown, 20);
    const auto task = makeTask();
    EXPECT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(untilFinished(pool, task));
    EXPECT_TRUE(pool->close());
}

TEST(Allocation, ShutdownThrowsBeforeItHasDoneAnything)
{
    const Pool pool(new KT::KTThreadPool(1, 4, 0, 0, 0));
    pool->init(1, 4, 0, 0, 0);
    int failures = 0;
    for (;; ++failures) {
        untilFailure = failures;
        try {
            pool->shutdown(false);
            untilFailure = -1;
            break;
        } catch (const std::bad_alloc&) {
            untilFailure = -1;
            EXPECT_EQ(pool->status().threads, 1);
        }
    }
    EXPECT_GT(failures, 0);
    EXPECT_EQ(pool->status().threads, 0);
    EXPECT_TRUE(pool->close());
}

}  // namespace
