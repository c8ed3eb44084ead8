#include <thread>

#include <gtest/gtest.h>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <ktasync/detail/CurrentWork.h>
#include "TestWork.h"

namespace {

using KT::detail::CurrentWork;

TEST(CurrentWork, AStopReachesTheWorkOnceAndKeepsTheNextFromBeginning)
{
    CurrentWork current;
    const boost::intrusive_ptr<TestWork> work(new TestWork);
    ASSERT_TRUE(current.begin(*work));
    current.requestStop();
    current.requestStop();
    EXPECT_EQ(work->stopRequests, 1);
    EXPECT_TRUE(current.isStopped());
    current.end();
    EXPECT_TRUE(current.isStopped());
    EXPECT_FALSE(current.begin(*work));
}

TEST(CurrentWork, WithoutWorkAStopKeepsTheFirstFromBeginning)
{
    CurrentWork current;
    const boost::intrusive_ptr<TestWork> work(new TestWork);
    current.requestStop();
    EXPECT_FALSE(current.begin(*work));
    EXPECT_EQ(work->stopRequests, 0);
}

TEST(CurrentWork, AStopOfTheTaskLetsTheNextWorkBeginAndOneOfTheThreadReachesItStill)
{
    using Stop = CurrentWork::Stop;
    CurrentWork current;
    const boost::intrusive_ptr<TestWork> work(new TestWork);
    EXPECT_EQ(current.stopAndHold(Stop::ofTask), nullptr);
    EXPECT_TRUE(current.isStopped(Stop::ofTask));
    EXPECT_FALSE(current.isStopped());
    ASSERT_TRUE(current.begin(*work));
    EXPECT_EQ(current.stopAndHold(Stop::ofTask), nullptr);
    EXPECT_EQ(current.stopAndHold(Stop::ofThread), work.get());
    current.release();
    EXPECT_EQ(current.stopAndHold(Stop::ofThread), nullptr);
    current.end();
    EXPECT_TRUE(current.isStopped());
}

TEST(CurrentWork, HoldsANumberUntilWorkBeginsOrAStopIsRequested)
{
    const boost::intrusive_ptr<TestWork> work(new TestWork);
    EXPECT_EQ(CurrentWork().number(), 0U);
    CurrentWork begun(5);
    EXPECT_EQ(begun.number(), 5U);
    EXPECT_FALSE(begun.isStopped());
    ASSERT_TRUE(begun.begin(*work));
    EXPECT_EQ(begun.number(), 0U);
    begun.requestStop();
    EXPECT_EQ(work->stopRequests, 1);
    begun.end();
    CurrentWork stopped(7);
    stopped.requestStop();
    EXPECT_EQ(stopped.number(), 0U);
    EXPECT_FALSE(stopped.begin(*work));
}

/// A stop request reaches running work, or prevents the next work from beginning.
TEST(CurrentWork, NoStopIsLost)
{
    for (int round = 0; round < 2000; ++round) {
        CurrentWork current;
        const boost::intrusive_ptr<TestWork> work(new TestWork);
        std::thread stopper([&current] { current.requestStop(); });
        bool hasRun = false;
        while (current.begin(*work)) {
            hasRun = true;
            current.end();
        }
        stopper.join();
        EXPECT_LE(work->stopRequests, 1);
        EXPECT_TRUE(current.isStopped());
        static_cast<void>(hasRun);
    }
}

}  // namespace
