#include <gtest/gtest.h>

#include "scheduler/Concurrency.h"

namespace {

using KT::detail::Concurrency;

const std::size_t plenty = 1000;

TEST(Concurrency, OfBlockedTasksReachesTheLimitInTwoLooks)
{
    Concurrency concurrency(2, 64, 2);
    concurrency.add({2, 2, 0, plenty});
    concurrency.add({4, 4, 0, plenty});
    EXPECT_EQ(concurrency.target(), 64);
}

TEST(Concurrency, IsNeverMoreThanThereIsWork)
{
    Concurrency concurrency(2, 64, 2);
    concurrency.add({2, 2, 0, 3});
    concurrency.add({2, 2, 0, 3});
    EXPECT_EQ(concurrency.target(), 5);
}

TEST(Concurrency, OfComputingTasksStaysAtTheProcessors)
{
    Concurrency concurrency(2, 64, 2);
    for (int i = 0; i < 100; ++i) {
        concurrency.add({2, 2, 2, plenty});
        EXPECT_EQ(concurrency.target(), 2);
    }
}

TEST(Concurrency, IgnoresALookThatFindsAComputingThreadInAShortWait)
{
    Concurrency concurrency(2, 64, 2);
    concurrency.add({2, 2, 2, plenty});
    concurrency.add({2, 2, 1, plenty});
    concurrency.add({2, 2, 2, plenty});
    EXPECT_EQ(concurrency.target(), 2);
}

TEST(Concurrency, OfMixedTasksIsTheProcessorsByTheShareNotBlocked)
{
    Concurrency concurrency(2, 64, 2);
    for (int i = 0; i < 3; ++i) {
        concurrency.add({10, 10, 1, plenty});
    }
    EXPECT_GE(concurrency.target(), 20);
    EXPECT_LE(concurrency.target(), 30);
}

TEST(Concurrency, FallsSlowlyWhereCarriersWaitForProcessors)
{
    Concurrency concurrency(2, 64, 2);
    concurrency.add({2, 2, 0, plenty});
    concurrency.add({2, 2, 0, plenty});
    int before = concurrency.target();
    ASSERT_EQ(before, 64);
    int looks = 0;
    while (concurrency.target() > 8) {
        concurrency.add({before, 16, 16, plenty});
        ASSERT_LT(concurrency.target(), before);
        ASSERT_GE(concurrency.target(), before - 8);
        before = concurrency.target();
        ASSERT_LT(++looks, 100);
    }
}

TEST(Concurrency, DoesNotGrowWhereThereAreEnough)
{
    Concurrency concurrency(2, 64, 2);
    for (int i = 0; i < 10; ++i) {
        concurrency.add({2, 2, 0, plenty, true});
        EXPECT_EQ(concurrency.target(), 2);
    }
}

TEST(Concurrency, FallsToTheLeastWhileThereAreEnoughAndGrowsAtOnceAfterwards)
{
    Concurrency concurrency(2, 64, 2);
    concurrency.add({2, 2, 0, plenty});
    concurrency.add({2, 2, 0, plenty});
    ASSERT_EQ(concurrency.target(), 64);
    for (int looks = 0; concurrency.target() > 2; ++looks) {
        concurrency.add({concurrency.target(), 16, 0, plenty, true});
        ASSERT_LT(looks, 100);
    }
    concurrency.add({2, 2, 0, plenty});
    EXPECT_EQ(concurrency.target(), 64);
}

TEST(Concurrency, GrowsToTheProcessorsFromLess)
{
    Concurrency concurrency(1, 64, 4);
    concurrency.add({1, 1, 1, plenty});
    EXPECT_EQ(concurrency.target(), 4);
}

TEST(Concurrency, LearnsNothingFromALookAtNobody)
{
    Concurrency concurrency(2, 64, 2);
    concurrency.add({0, 0, 0, plenty});
    EXPECT_EQ(concurrency.target(), 2);
}

TEST(Concurrency, ResetForgets)
{
    Concurrency concurrency(2, 64, 2);
    concurrency.add({2, 2, 0, plenty});
    concurrency.add({2, 2, 0, plenty});
    concurrency.reset();
    EXPECT_EQ(concurrency.target(), 2);
}

}  // namespace
