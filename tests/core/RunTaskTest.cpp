#include <atomic>
#include <csignal>
#include <ios>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <spdlog/common.h>

#include <kterror/KTError.h>

#include "Capture.h"
#include "Platform.h"
#include "Pools.h"

namespace {

using platform::Call;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// Calls runTask on the test's own thread, of a worker that has no thread.
class RunTask : public PoolFixture {
protected:
    /// A worker of `pool` that is in none of its slots.
    static boost::shared_ptr<KT::KTThread> workerOf(const Pool& pool)
    {
        return boost::shared_ptr<KT::KTThread>(
            new KT::KTThread(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    }

    void give(const boost::shared_ptr<KT::KTTask>& task) { inside::currentTask(*worker) = task; }

    const boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    const boost::shared_ptr<KT::KTCondition> condition = KT::KTCondition::createKTCondition();
    boost::shared_ptr<KT::KTThread> worker =
        boost::shared_ptr<KT::KTThread>(new KT::KTThread(Pool(), 0, mutex, condition));
};

TEST_F(RunTask, WithoutATaskReturnsAtOnce)
{
    const LogCapture log("KTThread");
    const platform::Recorder recorder;
    worker->runTask();
    EXPECT_THAT(recorder.names(), IsEmpty());
    EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(RunTask, MarksNamesAndReleasesTheTask)
{
    const platform::Recorder recorder;
    std::int32_t during = -1;
    const auto task = makeTask([] {}, "count pages");
    task->body = [&] { during = inside::state(*task); };
    give(task);
    worker->runTask();
    EXPECT_EQ(during, 1);
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_THAT(recorder.names(),
                ElementsAre("KTTask: count pages [running]", "KTTask: count pages [finished]"));
    EXPECT_FALSE(inside::currentTask(*worker));
    EXPECT_EQ(task.use_count(), 1);
}

TEST_F(RunTask, PassesANameOfAnyLengthWhole)
{
    for (std::size_t length = 0; length < 140; ++length) {
        const std::string name(length, 'n');
        give(makeTask([] {}, name));
        const platform::Recorder recorder;
        worker->runTask();
        EXPECT_THAT(recorder.names(), ElementsAre("KTTask: " + name + " [running]",
                                                  "KTTask: " + name + " [finished]"));
    }
}

TEST_F(RunTask, StampsNoTime)
{
    const auto task = makeTask();
    give(task);
    worker->runTask();
    EXPECT_EQ(inside::executionTime(*task).tv_sec, 0);
    EXPECT_EQ(inside::endTime(*task).tv_sec, 0);
}

TEST_F(RunTask, HoldsTheLockSharedDuringTheBody)
{
    // The first thread of a process makes ThreadSanitizer start one of its own, which inherits the
    // name of its maker. Without this, that would be the task's, as if it were a worker.
    std::thread([] {}).join();
    std::atomic<bool> written(false);
    std::thread writer;
    give(makeTask([&] {
        std::thread([&] {
            const KT::KTCriticalSectionRead passes(inside::taskLock(*worker));
        }).join();
        writer = std::thread([&] {
            const KT::KTCriticalSectionWrite waits(inside::taskLock(*worker));
            written = true;
        });
        EXPECT_FALSE(written);
    }));
    worker->runTask();
    writer.join();
    EXPECT_TRUE(written);
}

TEST_F(RunTask, ErrorOfTheBodyIsLoggedAndTheTaskFinished)
{
    const LogCapture log("KTThread");
    const platform::Recorder recorder;
    const KT::KTError error("printer", "print", "no paper", "printer.cpp", 7);
    const auto task = makeTask([&] { throw error; }, "print");
    give(task);
    worker->runTask();
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].text, "Error caught: " + error.toString());
    EXPECT_EQ(log.records()[0].level, spdlog::level::critical);
    EXPECT_EQ(log.records()[0].function, "runTask");
    EXPECT_EQ(log.records()[0].file, "");
    EXPECT_EQ(log.records()[0].line, 0);
    task->waitForEndOfTask();
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_FALSE(inside::currentTask(*worker));
    EXPECT_THAT(recorder.names(), ElementsAre("KTTask: print [running]"))
        << "the running name stays";
}

/// Throws in the n-th call of getTaskName: the first is before the body, the second after it.
struct Nameless : KT::KTTask {
    explicit Nameless(int failingCall) : failing(failingCall) {}
    const std::string& getTaskName() const override
    {
        if (++calls == failing) {
            throw KT::KTError("labels", "getTaskName", "no name", "labels.cpp", 9);
        }
        return KT::KTTask::getTaskName();
    }
    void run() override { ++runs; }

    const int failing;
    mutable int calls = 0;
    int runs = 0;
};

class RunTaskNameless : public RunTask, public testing::WithParamInterface<int> {};

TEST_P(RunTaskNameless, ErrorOfTheNameIsLoggedAndTheTaskFinished)
{
    const LogCapture log("KTThread");
    const auto task = boost::make_shared<Nameless>(GetParam());
    give(task);
    EXPECT_NO_THROW(worker->runTask());
    EXPECT_EQ(task->runs, GetParam() - 1) << "without the first name the body is not run";
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].text,
              "Error caught: " +
                  KT::KTError("labels", "getTaskName", "no name", "labels.cpp", 9).toString());
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_FALSE(inside::currentTask(*worker));
}

INSTANTIATE_TEST_SUITE_P(Calls, RunTaskNameless, testing::Values(1, 2));

TEST_F(RunTask, OtherExceptionsLeaveTheTaskRunningAndReachTheCaller)
{
    const LogCapture log("KTThread");
    const auto task = makeTask([] { throw std::runtime_error("unexpected"); });
    give(task);
    EXPECT_THROW(worker->runTask(), std::runtime_error);
    EXPECT_EQ(inside::state(*task), 1);
    EXPECT_EQ(inside::currentTask(*worker), task);
    EXPECT_THAT(log.records(), IsEmpty());
    // The shared hold is released: a writer can take the lock.
    const KT::KTCriticalSectionWrite hold(inside::taskLock(*worker));
}

TEST_F(RunTask, ReportsTheEndToThePool)
{
    const Pool pool = made(0, 1);
    pool->init(0, 1, 0, 0, 0);
    const auto member = workerOf(pool);
    const auto task = makeTask();
    std::int32_t counted = -1;
    task->body = [&] { counted = inside::taskCount(*inside::monitor(pool)); };
    inside::currentTask(*member) = task;
    member->runTask();
    EXPECT_EQ(counted, 0);
    EXPECT_EQ(inside::taskCount(*inside::monitor(pool)), 1);
}

TEST_F(RunTask, LeavesNoReferenceToThePoolWithAWorkerOfItsTable)
{
    Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(0, 1, 0, 0, 0);
    const auto member = workerOf(pool);
    inside::threads(pool)[0] = member;
    inside::currentTask(*member) = makeTask();
    const long before = inside::monitor(pool).use_count();
    member->runTask();
    EXPECT_EQ(inside::monitor(pool).use_count(), before);
    EXPECT_TRUE(pool->close());
    EXPECT_EQ(pool.use_count(), 1);
}

TEST_F(RunTask, TaskIsFinishedBeforeItsEndIsReported)
{
    const Pool pool = made(0, 1);
    pool->init(0, 1, 0, 0, 0);
    const auto member = workerOf(pool);
    const auto task = makeTask();
    inside::currentTask(*member) = task;
    const void* const monitorMutex = inside::mutex(*inside::mutex(*inside::monitor(pool))).get();
    std::int32_t reported = -1;
    {
        const platform::Observer observer([&](Call call, const void* object) {
            if (call == Call::lock && object == monitorMutex) {
                reported = inside::state(*task);
            }
        });
        member->runTask();
    }
    EXPECT_EQ(reported, 2);
}

TEST_F(RunTask, ReleasesTheTaskUnderTheExclusiveHold)
{
    give(makeTask());
    const auto& taskLock = inside::lock(*inside::taskLock(*worker));
    std::vector<std::pair<Call, bool>> seen;
    {
        const platform::Observer observer([&](Call call, const void* object) {
            if (object == taskLock.get()) {
                seen.emplace_back(call, bool(inside::currentTask(*worker)));
            }
        });
        worker->runTask();
    }
    EXPECT_THAT(seen, ElementsAre(Pair(Call::readLock, true), Pair(Call::rwUnlock, true),
                                  Pair(Call::writeLock, true), Pair(Call::rwUnlock, false)));
}

TEST_F(RunTask, WhatTheReportThrowsLeavesItWithTheTaskKept)
{
    const Pool pool = made(1, 1, 1);
    pool->init(0, 1, 1, 0, 0);
    const auto member = workerOf(pool);
    const auto task = makeTask();
    inside::currentTask(*member) = task;
    inside::nbBusyThreads(pool) = 190;  // the monitor has a line to write
    {
        const FailingConsole console;
        EXPECT_THROW(member->runTask(), std::ios_base::failure);
    }
    inside::nbBusyThreads(pool) = 0;
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_EQ(inside::currentTask(*member), task);
    // The shared hold is released: a writer can take the lock.
    const KT::KTCriticalSectionWrite hold(inside::taskLock(*member));
}

TEST_F(RunTask, PoolThatGoesWhileTheTaskRunsIsNotTold)
{
    Pool pool(new KT::KTThreadPool(0, 1, 0, 0, 0));
    const auto member = workerOf(pool);
    const auto task = makeTask([&] { pool.reset(); });
    inside::currentTask(*member) = task;
    member->runTask();
    EXPECT_FALSE(pool);
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_FALSE(inside::currentTask(*member));
}

TEST_F(RunTask, DestructorOfTheTaskMayStopItsOwnWorker)
{
    struct Last : KT::KTTask {
        explicit Last(KT::KTThread& own) : worker(own) {}
        ~Last() override { worker.killThread(); }
        void run() override {}
        KT::KTThread& worker;
    };
    give(boost::make_shared<Last>(*worker));
    worker->runTask();
    EXPECT_TRUE(inside::killed(*worker));
}

class RunTaskOnAPool : public PoolFixture {};

TEST_F(RunTaskOnAPool, ThreadCarriesTheNameDuringTheBody)
{
    const Pool pool = fixed(1);
    std::string seen;
    const auto task = makeTask(
        [&] {
            char name[32];
            pthread_getname_np(pthread_self(), name, sizeof name);
            seen = name;
        },
        "archive mail");
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    EXPECT_EQ(seen, "KTTask: archive");
}

TEST_F(RunTaskOnAPool, WorkerGoesOnAfterAnError)
{
    const LogCapture log("KTThread");
    const Pool pool = fixed(1);
    const auto failing = makeTask([] { throw KT::KTError("m", "f", "d", "", 0); });
    const auto next = makeTask();
    ASSERT_TRUE(pool->enqueue(failing));
    ASSERT_TRUE(pool->enqueue(next));
    EXPECT_TRUE(untilFinished(pool, next));
    EXPECT_EQ(inside::state(*failing), 2);
    EXPECT_EQ(log.records().size(), 1U);
}

TEST_F(RunTaskOnAPool, WorkerGoesOnAfterAnErrorOfAName)
{
    const LogCapture log("KTThread");
    const Pool pool = fixed(1);
    const auto failing = boost::make_shared<Nameless>(1);
    const auto next = makeTask();
    ASSERT_TRUE(pool->enqueue(failing));
    ASSERT_TRUE(pool->enqueue(next));
    EXPECT_TRUE(untilFinished(pool, next));
    EXPECT_EQ(inside::state(*failing), 2);
    EXPECT_EQ(log.records().size(), 1U);
}

TEST(RunTaskDeath, AnyOtherExceptionEndsTheProcess)
{
    const auto body = [] {
        const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
        pool->init(1, 1, 0, 0, 0);
        const auto task = makeTask([] { throw std::runtime_error("nobody catches this"); });
        pool->enqueue(task);
        untilFinished(pool, task);
    };
    EXPECT_EXIT(body(), testing::KilledBySignal(SIGABRT), "nobody catches this");
}

}  // namespace
