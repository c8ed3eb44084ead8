#include <gtest/gtest.h>

#include "Pools.h"

namespace {

class PoolStatus : public PoolFixture {};

TEST_F(PoolStatus, ShowsEachFigure)
{
    const Pool pool = fixed(20);
    ASSERT_TRUE(untilAsleep(pool, 20));
    KT::KTThreadPoolStatus status = pool->status();
    EXPECT_EQ(status.threads, 20);
    EXPECT_EQ(status.busyThreads, 0);
    EXPECT_EQ(status.maxThreads, 20);
    EXPECT_EQ(status.threadsToRemove, 0);
    EXPECT_EQ(status.queuedTasks, 0);

    {
        const KT::KTCriticalSection hold(inside::queueMutex(pool));
        inside::tasks(pool).push_back(makeTask());
        inside::tasks(pool).push_back(makeTask());
    }
    EXPECT_TRUE(pool->adjustThread(-2));
    status = pool->status();
    EXPECT_EQ(status.threadsToRemove, 2);
    EXPECT_EQ(status.queuedTasks, 2);
}

}  // namespace
