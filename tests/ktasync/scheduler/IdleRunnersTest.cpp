#include <chrono>

#include <gtest/gtest.h>

#include "scheduler/IdleRunners.h"

namespace {

using KT::detail::IdleRunners;
using KT::detail::Runner;

TEST(IdleRunners, CallsTheLastOneFirst)
{
    IdleRunners idle;
    Runner first;
    Runner second;
    idle.add(first);
    idle.add(second);
    EXPECT_EQ(idle.size(), 2);
    std::atomic<int> searching(0);
    EXPECT_TRUE(idle.callOneToWork(searching));
    EXPECT_EQ(second.call, Runner::callToWork);
    EXPECT_EQ(first.call, Runner::noCall);
    EXPECT_EQ(searching, 1);
    idle.callOneToLeave();
    EXPECT_EQ(first.call, Runner::callToLeave);
    EXPECT_FALSE(idle.callOneToWork(searching));
    idle.callOneToLeave();
    EXPECT_EQ(searching, 1);
}

TEST(IdleRunners, TakesOutTheOneInTheMiddle)
{
    IdleRunners idle;
    Runner runners[3];
    for (Runner& runner : runners) {
        idle.add(runner);
    }
    EXPECT_TRUE(idle.remove(runners[1]));
    EXPECT_FALSE(idle.remove(runners[1]));
    idle.callTo(runners[1], Runner::callToWork);
    EXPECT_EQ(runners[1].call, Runner::noCall);
    idle.callTo(runners[0], Runner::callToLeave);
    EXPECT_EQ(runners[0].call, Runner::callToLeave);
    EXPECT_EQ(idle.size(), 1);
    EXPECT_TRUE(idle.remove(runners[2]));
    EXPECT_EQ(idle.size(), 0);
}

TEST(IdleRunners, CallsThoseToLeaveThatHaveWaitedForAWhile)
{
    using std::chrono::milliseconds;
    IdleRunners idle;
    Runner early;
    Runner late;
    const KT::detail::Time::time_point start = KT::detail::Time::now();
    idle.add(early);
    idle.callPatientToLeave(start, milliseconds(4));
    idle.add(late);
    idle.callPatientToLeave(start + milliseconds(3), milliseconds(4));
    EXPECT_EQ(idle.size(), 2);
    idle.callPatientToLeave(start + milliseconds(4), milliseconds(4));
    EXPECT_EQ(early.call, Runner::callToLeave);
    EXPECT_EQ(late.call, Runner::noCall);
    EXPECT_EQ(idle.size(), 1);
    idle.add(early);  // has waited before, but not since
    idle.callPatientToLeave(start + milliseconds(6), milliseconds(4));
    EXPECT_EQ(idle.size(), 2);
    idle.callPatientToLeave(start + milliseconds(10), milliseconds(4));
    EXPECT_EQ(early.call, Runner::callToLeave);
    EXPECT_EQ(late.call, Runner::callToLeave);
    EXPECT_EQ(idle.size(), 0);
}

}  // namespace
