#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TestWork.h"
#include "scheduler/WorkQueue.h"

namespace {

using KT::detail::WorkPointer;
using KT::detail::WorkQueue;

TEST(WorkQueue, GivesTheOldestAndTheNewest)
{
    WorkQueue queue;
    for (int i = 0; i < 6; ++i) {
        queue.push(new TestWork(i));
    }
    EXPECT_EQ(queue.size(), 6U);
    EXPECT_EQ(numberOf(queue.takeFirst()), 0);
    EXPECT_EQ(numberOf(queue.takeLast()), 5);
    queue.push(new TestWork(6));
    EXPECT_EQ(numberOf(queue.takeLast()), 6);
    EXPECT_EQ(numberOf(queue.takeLast()), 4);
    EXPECT_EQ(numberOf(queue.takeFirst()), 1);
    EXPECT_EQ(numberOf(queue.takeFirst()), 2);
    EXPECT_EQ(numberOf(queue.takeFirst()), 3);
    EXPECT_EQ(numberOf(queue.takeFirst()), -1);
    EXPECT_EQ(numberOf(queue.takeLast()), -1);
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(queue.pushed(), 7U);
    EXPECT_EQ(TestWork::alive, 0);
}

TEST(WorkQueue, TakesBackAtTheOldEndWhatCameFromAnotherQueue)
{
    WorkQueue from;
    WorkQueue to;
    from.push(new TestWork(1));
    to.putBack(from.takeLast());
    EXPECT_FALSE(to.isEmpty());
    EXPECT_EQ(to.size(), 1U);
    EXPECT_EQ(to.pushed(), 0U);
    to.push(new TestWork(2));
    EXPECT_EQ(numberOf(to.takeFirst()), 1);
    EXPECT_EQ(numberOf(to.takeFirst()), 2);
    EXPECT_TRUE(to.isEmpty());
}

TEST(WorkQueue, LetsGoOfWorkFromAnyPlace)
{
    WorkQueue queue;
    std::vector<boost::intrusive_ptr<TestWork>> works;
    for (int i = 0; i < 8; ++i) {
        works.push_back(new TestWork(i));
        queue.push(works.back());
        if (i == 3) {
            queue.putBack(queue.takeFirst());  // which has the first four at the old end
        }
    }
    for (const int number : {0, 2, 3, 4, 6, 7}) {
        works[static_cast<std::size_t>(number)]->leave();
        works[static_cast<std::size_t>(number)]->leave();  // once is enough
    }
    EXPECT_EQ(queue.size(), 2U);
    EXPECT_EQ(numberOf(queue.takeFirst()), 1);
    EXPECT_EQ(numberOf(queue.takeLast()), 5);
    works.clear();
    EXPECT_EQ(TestWork::alive, 0);
}

/// Each piece of work is taken once, whichever way, while others push.
TEST(WorkQueue, LosesNothingAndGivesNothingTwice)
{
    const int pushers = 2;
    const int ofEach = 20000;
    WorkQueue queue;
    std::vector<boost::intrusive_ptr<TestWork>> works(pushers * ofEach);
    for (std::size_t i = 0; i < works.size(); ++i) {
        works[i] = new TestWork(static_cast<int>(i));
    }
    std::vector<std::atomic<int>> taken(works.size());
    std::atomic<int> pushing(pushers);
    std::vector<std::thread> threads;
    for (int p = 0; p < pushers; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < ofEach; ++i) {
                queue.push(
                    works[static_cast<std::size_t>(p) * ofEach + static_cast<std::size_t>(i)]);
            }
            --pushing;
        });
    }
    const auto takeAll = [&](const auto& take) {
        while (pushing != 0 || !queue.isEmpty()) {
            if (const WorkPointer work = take()) {
                ++taken[static_cast<std::size_t>(numberOf(work))];
            }
        }
    };
    threads.emplace_back([&] { takeAll([&] { return queue.takeFirst(); }); });
    threads.emplace_back([&] { takeAll([&] { return queue.takeLast(); }); });
    threads.emplace_back([&] {
        for (const auto& work : works) {
            if (queue.remove(*work)) {
                ++taken[static_cast<std::size_t>(work->number)];
            }
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::atomic<int>& times : taken) {
        ASSERT_EQ(times, 1);
    }
    works.clear();
    EXPECT_EQ(TestWork::alive, 0);
}

}  // namespace
