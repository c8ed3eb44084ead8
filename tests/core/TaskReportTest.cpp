#include <cstdio>
#include <ostream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "Pools.h"

namespace {

std::string shown(std::int32_t seconds, std::int32_t microseconds)
{
    const auto task = makeTask();
    inside::endTime(*task) = ro::os::timeval{seconds, microseconds};
    const std::string report = task->toString();
    const std::string label = "EndTime      : ";
    const std::size_t start = report.find(label) + label.size();
    return report.substr(start, report.find('\n', start) - start);
}

TEST(TaskReport, HasSixLinesInOrder)
{
    const auto task = makeTask([] {}, "invoice 7");
    inside::creationTime(*task) = ro::os::timeval{1300000000, 5};
    EXPECT_EQ(task->toString(),
              "Name : invoice 7\n"
              "CreationTime :  7h06m40,000005s\n"
              "ExecutionTime:    0j+ 0h00m00,000000s\n"
              "EndTime      :    0j+ 0h00m00,000000s\n"
              "Task not managed by any thread\n"
              "State: 0\n");
}

struct Stamp {
    std::int32_t seconds;
    std::int32_t microseconds;
    const char* text;
};

void PrintTo(const Stamp& stamp, std::ostream* out)
{
    *out << stamp.seconds << '.' << stamp.microseconds;
}

class TaskReportTimes : public testing::TestWithParam<Stamp> {};

TEST_P(TaskReportTimes, AreShownWithDaysOnlyBelowOneDay)
{
    EXPECT_EQ(shown(GetParam().seconds, GetParam().microseconds), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Stamps, TaskReportTimes,
                         testing::Values(Stamp{0, 0, "   0j+ 0h00m00,000000s"},
                                         Stamp{3725, 42, "   0j+ 1h02m05,000042s"},
                                         Stamp{86399, 999999, "   0j+23h59m59,999999s"},
                                         Stamp{86400, 0, " 0h00m00,000000s"},
                                         Stamp{1300000000, 5, " 7h06m40,000005s"},
                                         Stamp{-1, 0, "   0j+ 0h00m-1,000000s"},
                                         Stamp{-90000, 0, "  -1j+-1h00m00,000000s"}));

TEST(TaskReport, NamesTheWorkerWithItsPrefixTwice)
{
    const auto task = makeTask();
    const boost::shared_ptr<KT::KTThread> worker(new KT::KTThread(
        Pool(), 0, KT::KTMutex::createKTMutex(), KT::KTCondition::createKTCondition()));
    task->setThread(worker);
    char address[64];
    std::snprintf(address, sizeof address, "%p", static_cast<void*>(worker.get()));
    ASSERT_EQ(std::string(address).substr(0, 2), "0x");
    EXPECT_NE(task->toString().find("Task managed by: 0x" + std::string(address) + "\n"),
              std::string::npos);
    EXPECT_EQ(worker.use_count(), 1) << "the report keeps no reference";
}

TEST(TaskReport, ForgetsAWorkerThatIsGone)
{
    const auto task = makeTask();
    task->setThread(boost::shared_ptr<KT::KTThread>(new KT::KTThread(
        Pool(), 0, KT::KTMutex::createKTMutex(), KT::KTCondition::createKTCondition())));
    EXPECT_NE(task->toString().find("\nTask not managed by any thread\n"), std::string::npos);
}

TEST(TaskReport, ShowsTheState)
{
    const auto task = makeTask();
    EXPECT_NE(task->toString().find("\nState: 0\n"), std::string::npos);
    task->setEndTime();
    EXPECT_NE(task->toString().find("\nState: 2\n"), std::string::npos);
}

TEST(TaskReport, IsNotCutAtAThousandCharacters)
{
    const auto task = makeTask([] {}, std::string(5000, 'n'));
    EXPECT_GT(task->toString().size(), 5000U);
}

class TaskReportInUse : public PoolFixture {};

TEST_F(TaskReportInUse, MayBeMadeWhileWorkersRunTheTask)
{
    const Pool pool = fixed(1);
    const auto task = makeTask();
    task->body = [&task = *task] {
        task.setExecutionTime();
        task.setEndTime();
    };
    for (int i = 0; i < 200; ++i) {
        task->setCreationTime();
        ASSERT_TRUE(pool->enqueue(task));
        do {
            EXPECT_NE(task->toString().find("State: "), std::string::npos);
            pool->wake();
        } while (inside::state(*task) != 2);
        // The body has stamped its end; the worker releases the task a little later.
        ASSERT_TRUE(eventually([&] { return pool->status().busyThreads == 0; }));
    }
}

}  // namespace
