#include <chrono>

#include <gtest/gtest.h>

#include "scheduler/RecentMost.h"

namespace {

using KT::detail::RecentMost;
using std::chrono::seconds;

const KT::detail::Time::time_point start = KT::detail::Time::time_point(seconds(1000));

TEST(RecentMost, OfNothingIsZero)
{
    EXPECT_EQ(RecentMost(seconds(8)).most(start), 0);
}

TEST(RecentMost, IsTheLargestOfTheWindow)
{
    RecentMost recent(seconds(8));
    recent.add(3, start);
    recent.add(7, start + seconds(1));
    recent.add(5, start + seconds(4));
    EXPECT_EQ(recent.most(start + seconds(4)), 7);
    EXPECT_EQ(recent.most(start + seconds(9)), 7);
}

TEST(RecentMost, ForgetsANumberAQuarterAfterTheWindowAtTheLatest)
{
    for (int offset = 0; offset < 10; ++offset) {
        RecentMost recent(seconds(8));
        recent.add(1, start);
        const auto then = start + seconds(offset);
        recent.add(9, then);
        EXPECT_EQ(recent.most(then + seconds(8)), 9) << offset;
        EXPECT_EQ(recent.most(then + seconds(10)), 0) << offset;
    }
}

TEST(RecentMost, KeepsTheLesserNumberThatIsMoreRecent)
{
    RecentMost recent(seconds(8));
    recent.add(9, start);
    recent.add(4, start + seconds(6));
    EXPECT_EQ(recent.most(start + seconds(10)), 4);
    EXPECT_EQ(recent.most(start + seconds(100)), 0);
}

TEST(RecentMost, OfAWindowWithoutLengthForgetsAtOnce)
{
    RecentMost recent{KT::detail::Time::duration(0)};
    recent.add(9, start);
    EXPECT_EQ(recent.most(start + seconds(1)), 0);
}

}  // namespace
