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
    EXPECT_TRUE(idle.callOne(Runner::callToWork));
    EXPECT_EQ(second.call, Runner::callToWork);
    EXPECT_EQ(first.call, Runner::noCall);
    EXPECT_TRUE(idle.callOne(Runner::callToLeave));
    EXPECT_EQ(first.call, Runner::callToLeave);
    EXPECT_FALSE(idle.callOne(Runner::callToWork));
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

}  // namespace
