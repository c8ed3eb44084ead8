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
