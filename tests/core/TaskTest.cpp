#include <atomic>
#include <cerrno>
#include <climits>
#include <ostream>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include "Platform.h"
#include "Pools.h"

namespace {

static_assert(std::is_abstract<KT::KTTask>::value, "a task has a body to supply");
static_assert(std::has_virtual_destructor<KT::KTTask>::value, "destroyed through its base");

ro::os::timeval at(std::int32_t seconds, std::int32_t microseconds)
{
    return ro::os::timeval{seconds, microseconds};
}

TEST(Task, NewOneIsUndefinedAndWaiting)
{
    struct Plain : KT::KTTask {
        void run() override {}
    } task;
    EXPECT_EQ(task.getTaskName(), "undefined");
    EXPECT_EQ(inside::state(task), 0);
    EXPECT_FALSE(task.autoDelete);
    EXPECT_FALSE(inside::managingThread(task).lock());
}

TEST(Task, IsStampedAtConstructionAndOnlyThen)
{
    const ro::os::timeval before = ro::os::gettimeofday();
    const auto task = makeTask();
    const ro::os::timeval after = ro::os::gettimeofday();
    EXPECT_GE(inside::creationTime(*task).tv_sec, before.tv_sec);
    EXPECT_LE(inside::creationTime(*task).tv_sec, after.tv_sec);
    EXPECT_EQ(inside::executionTime(*task).tv_sec, 0);
    EXPECT_EQ(inside::executionTime(*task).tv_usec, 0);
    EXPECT_EQ(inside::endTime(*task).tv_sec, 0);
    EXPECT_EQ(inside::endTime(*task).tv_usec, 0);
}

TEST(Task, StampsMoveTheState)
{
    const auto task = makeTask();
    task->setExecutionTime();
    EXPECT_EQ(inside::state(*task), 1);
    EXPECT_GT(inside::executionTime(*task).tv_sec, 0);
    task->setEndTime();
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_GT(inside::endTime(*task).tv_sec, 0);
    task->setCreationTime();
    EXPECT_EQ(inside::state(*task), 0);
}

TEST(Task, KeepsItsName)
{
    const auto task = makeTask();
    task->setTaskName("a name longer than any thread's");
    EXPECT_EQ(task->getTaskName(), "a name longer than any thread's");
}

TEST(Task, ExitTaskDoesNothingUnlessOverridden)
{
    struct Plain : KT::KTTask {
        void run() override {}
    } task;
    const std::string before = task.toString();
    task.exitTask();
    EXPECT_EQ(task.toString(), before);
}

struct Span {
    ro::os::timeval start;
    ro::os::timeval end;
    std::int32_t microseconds;
};

void PrintTo(const Span& span, std::ostream* out)
{
    *out << span.start.tv_sec << '.' << span.start.tv_usec << " to " << span.end.tv_sec << '.'
         << span.end.tv_usec;
}

class TaskDurations : public testing::TestWithParam<Span> {};

TEST_P(TaskDurations, AreMicrosecondsThatWrap)
{
    const auto task = makeTask();
    inside::creationTime(*task) = GetParam().start;
    inside::executionTime(*task) = GetParam().end;
    EXPECT_EQ(task->getIdleTime(), GetParam().microseconds);
    inside::executionTime(*task) = GetParam().start;
    inside::endTime(*task) = GetParam().end;
    EXPECT_EQ(task->getExecutionTime(), GetParam().microseconds);
}

INSTANTIATE_TEST_SUITE_P(
    Spans, TaskDurations,
    testing::Values(
        Span{at(100, 0), at(101, 500000), 1500000}, Span{at(100, 900000), at(101, 100000), 200000},
        Span{at(101, 0), at(100, 0), -1000000}, Span{at(0, 0), at(2147, 483647), INT_MAX},
        Span{at(0, 0), at(2147, 483648), INT_MIN},
        // 2148 s are 2148000000 us, and 2^32 less than that is below zero.
        Span{at(0, 0), at(2148, 0), -2146967296}, Span{at(INT_MIN, 0), at(INT_MAX, 999999), -1}));

TEST(TaskWait, ReturnsAtOnceForAFinishedTask)
{
    const auto task = makeTask();
    task->setEndTime();
    task->waitForEndOfTask();
    EXPECT_EQ(inside::state(*task), 2);
}

TEST(TaskWait, LastsUntilTheTaskIsFinished)
{
    const auto task = makeTask();
    std::atomic<bool> returned(false);
    Gate started;
    started.open();
    std::thread waiter([&] {
        started.pass();
        task->waitForEndOfTask();
        returned = true;
    });
    ASSERT_TRUE(started.untilArrived(1));
    task->setExecutionTime();
    // It still waits after it has looked twice.
    ro::os::msleep(250);
    EXPECT_FALSE(returned);
    task->setEndTime();
    waiter.join();
    EXPECT_TRUE(returned);
}

TEST(TaskWait, LooksEvery100Milliseconds)
{
    const auto task = makeTask();
    const platform::Failure noSleep(platform::Call::sleep, EINVAL);
    const pthread_t waiter = pthread_self();
    const platform::Recorder recorder;
    int sleeps = 0;
    {
        const platform::Observer observer([&](platform::Call call, const void*) {
            if (call == platform::Call::sleep && pthread_equal(pthread_self(), waiter) != 0 &&
                ++sleeps == 5) {
                task->setEndTime();
            }
        });
        task->waitForEndOfTask();
    }
    EXPECT_EQ(sleeps, 5);
    for (const platform::Record& sleep : recorder.records(platform::Call::sleep)) {
        EXPECT_EQ(sleep.value, 100);
    }
}

TEST(TaskLink, IsWeakAndCanBeEmptied)
{
    const auto task = makeTask();
    boost::shared_ptr<KT::KTThread> worker(new KT::KTThread(Pool(), 0, KT::KTMutex::createKTMutex(),
                                                            KT::KTCondition::createKTCondition()));
    task->setThread(worker);
    EXPECT_EQ(inside::managingThread(*task).lock(), worker);
    task->setThread(boost::shared_ptr<KT::KTThread>());
    EXPECT_FALSE(inside::managingThread(*task).lock());
    task->setThread(worker);
    worker.reset();
    EXPECT_TRUE(inside::managingThread(*task).expired());
}

}  // namespace
