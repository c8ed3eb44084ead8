#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Waiting.h"
#include "clock/Saturation.h"

namespace {

using KT::detail::Saturation;

TEST(Saturation, ReadsHowManyThreadsAreRunnable)
{
    EXPECT_EQ(Saturation::runnableIn("0.20 0.18 0.12 3/80 11206\n"), 3);
    EXPECT_EQ(Saturation::runnableIn("0.20 0.18 0.12 123/4567 89\n"), 123);
    EXPECT_EQ(Saturation::runnableIn("7/80"), 7);
}

TEST(Saturation, TakesATextOfAnotherKindForNothing)
{
    EXPECT_EQ(Saturation::runnableIn(""), 0);
    EXPECT_EQ(Saturation::runnableIn("/"), 0);
    EXPECT_EQ(Saturation::runnableIn("x/80"), 0);
    EXPECT_EQ(Saturation::runnableIn("0.20 0.18 0.12"), 0);
}

TEST(Saturation, IsSeenWhileEachProcessorHasAThread)
{
    std::atomic<bool> isOver(false);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 2 * std::thread::hardware_concurrency(); ++i) {
        threads.emplace_back([&isOver] {
            while (!isOver) {
            }
        });
    }
    Saturation saturation;
    EXPECT_TRUE(eventually([&saturation] { return saturation.look(); }));
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(Saturation, TakesMoreThanAFewLooks)
{
    Saturation saturation;
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(saturation.look());
    }
}

}  // namespace
