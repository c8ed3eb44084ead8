/// What happens when the memory runs out, at each allocation in turn.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kterror/KTError.h>
#include <ro/log.h>
#include <ro/os.h>

#include "Allocations.h"
#include "Capture.h"
#include "Pools.h"

namespace {

using allocations::alive;
using allocations::failEach;
using allocations::untilFailure;

const std::string longText(200, 'x');

class PlainTask : public KT::KTTask {
    void run() override {}
};

/// A pool with one worker that is busy, so that each enqueue makes it grow.
class BusyPool {
public:
    explicit BusyPool(int maxThreads, int period = 0)
        : pool(new KT::KTThreadPool(1, maxThreads, period, 0, 0))
    {
        pool->init(1, maxThreads, period, 0, 0);
        pool->enqueue(makeTask([this] { gate.pass(); }));
        EXPECT_TRUE(untilArrived(pool, gate));
    }
    ~BusyPool()
    {
        gate.open();
        EXPECT_TRUE(pool->close(false, 60000));
        EXPECT_EQ(pool.use_count(), 1);
    }
    BusyPool(const BusyPool&) = delete;
    BusyPool& operator=(const BusyPool&) = delete;

    Gate gate;
    const Pool pool;
};

/// A public operation that no other thread takes part in.
struct Operation {
    const char* name;
    std::function<void()> call;
};

std::ostream& operator<<(std::ostream& stream, const Operation& operation)
{
    return stream << operation.name;
}

/// What the operations below work on. Made before memory is made to run out, and kept.
struct Objects {
    Pool pool{new KT::KTThreadPool(0, 4, 1, 0, 0)};
    boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    boost::shared_ptr<KT::KTMutexRW> lock = KT::KTMutexRW::createKTMutexRW();
    boost::shared_ptr<KT::KTCondition> condition = KT::KTCondition::createKTCondition();
    boost::shared_ptr<KT::KTTask> task{new PlainTask};
    KT::KTConditionManager manager;
    KT::KTMonitor monitor{1, 0, 0, pool};
    bool alreadyLocked = false;
};

Objects& objects()
{
    static Objects made;
    return made;
}

const std::vector<Operation> operations = {
    {"KTMutex", [] { KT::KTMutex::createKTMutex(); }},
    {"KTMutexRW", [] { KT::KTMutexRW::createKTMutexRW(); }},
    {"KTCondition", [] { KT::KTCondition::createKTCondition(); }},
    {"signal", [] { objects().condition->signal(); }},
    {"broadcast", [] { objects().condition->broadcast(); }},
    {"KTCriticalSection", [] { KT::KTCriticalSection hold(objects().mutex); }},
    {"KTCriticalSectionRead", [] { KT::KTCriticalSectionRead hold(objects().lock); }},
    {"KTCriticalSectionWrite", [] { KT::KTCriticalSectionWrite hold(objects().lock); }},
    {"KTCriticalTrueIfLocked",
     [] { KT::KTCriticalTrueIfLocked hold(objects().mutex, objects().alreadyLocked); }},
    {"waitFor",
     [] {
         const KT::KTCriticalSection hold(objects().mutex);
         objects().condition->waitFor(objects().mutex, 0);
     }},
    {"KTTask", [] { PlainTask(); }},
    {"setTaskName", [] { PlainTask().setTaskName(longText); }},
    {"setTaskNameAgain", [] { objects().task->setTaskName(longText); }},
    {"toString", [] { objects().task->toString(); }},
    {"stamps",
     [] {
         objects().task->setCreationTime();
         objects().task->setExecutionTime();
         objects().task->setEndTime();
         objects().task->waitForEndOfTask();
     }},
    {"setThread", [] { objects().task->setThread(boost::shared_ptr<KT::KTThread>()); }},
    {"KTThread", [] { KT::KTThread(objects().pool, 0, objects().mutex, objects().condition); }},
    {"setStackSize", [] { KT::KTThread::setStackSize(655360); }},
    {"KTThreadPool", [] { KT::KTThreadPool(0, 4, 0, 0, 0); }},
    {"getThis", [] { objects().pool->getThis(); }},
    {"getTask", [] { objects().pool->getTask(); }},
    {"taskEnded", [] { objects().pool->taskEnded(objects().task); }},
    {"adjustThreadBy0", [] { objects().pool->adjustThread(0); }},
    {"apoptosis", [] { objects().pool->apoptosis(boost::shared_ptr<KT::KTThread>()); }},
    {"idleTimes",
     [] {
         objects().pool->resetSumThreadIdle();
         objects().pool->computeSumThreadIdle();
     }},
    {"wake", [] { objects().pool->wake(); }},
    {"status", [] { objects().pool->status(); }},
    {"join", [] { objects().pool->join(0); }},
    {"shutdown", [] { objects().pool->shutdown(false); }},
    {"forcedShutdown", [] { objects().pool->shutdown(true); }},
    {"close", [] { objects().pool->close(); }},
    {"KTMonitor", [] { KT::KTMonitor(1, 0, 0, objects().pool); }},
    {"assimilate", [] { objects().monitor.assimilate(objects().task); }},
    {"adjustPool", [] { objects().monitor.adjustPool(); }},
    {"KTConditionManager",
     [] {
         KT::KTConditionManager manager;
         manager.addCondition(longText);
     }},
    {"namedConditions",
     [] {
         objects().manager.triggerCondition("unknown");
         objects().manager.waitForCondition("unknown");
     }},
    {"KTError", [] { KT::KTError("module", "method", longText, "file", 1).toString(); }},
    {"clock",
     [] {
         ro::os::gettimeofday();
         ro::os::msleep(0);
     }},
};

class AllocationFailure : public testing::TestWithParam<Operation> {};

TEST_P(AllocationFailure, IsABadAllocAndLeaksNothing)
{
    const Operation& operation = GetParam();
    operation.call();  // what is made once for all
    long before = 0;
    const auto attempt = [&] {
        before = alive;
        operation.call();
    };
    const auto look = [&before](int n) {
        EXPECT_EQ(alive, before) << "allocation " << n << " failed and something leaked";
    };
    failEach(attempt, look);
    // Again, with enough memory: no lock stayed held.
    before = alive;
    operation.call();
    EXPECT_EQ(alive, before);
}

INSTANTIATE_TEST_SUITE_P(Of, AllocationFailure, testing::ValuesIn(operations),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(Allocation, FactoriesHaveThree)
{
    EXPECT_EQ(failEach([] { KT::KTMutex::createKTMutex(); }), 3);
    EXPECT_EQ(failEach([] { KT::KTMutexRW::createKTMutexRW(); }), 3);
    EXPECT_EQ(failEach([] { KT::KTCondition::createKTCondition(); }), 3);
}

TEST(Allocation, RegistrationThrowsAndTheNameCountsAsUnknown)
{
    KT::KTConditionManager manager;
    manager.addCondition("name");
    const int failures = failEach([&] { manager.addCondition("name"); },
                                  [&](int) {
                                      // Neither blocks nor crashes.
                                      manager.waitForCondition("name");
                                      manager.triggerCondition("name");
                                  });
    EXPECT_GT(failures, 4);
    EXPECT_EQ(inside::events(manager).size(), 1U);
}

TEST(Allocation, OfALogRecordIsABadAllocOrLosesTheRecord)
{
    const LogCapture records("memory");
    int written = 0;
    const int failures = failEach([&] {
        ro::log::log(4, "memory", "file", longText, 1, longText);
        ++written;
    });
    EXPECT_GT(failures, 0);
    EXPECT_GE(written, 1);
    const auto stream = [] {
        ro::log::LogStream(4, "memory", "file", longText, 1) << longText << std::endl;
    };
    EXPECT_GT(failEach(stream), 2);
    const std::size_t before = records.records().size();
    stream();
    ASSERT_EQ(records.records().size(), before + 1);
    EXPECT_EQ(records.records().back().text, longText);
}

TEST(Allocation, OfInitThrowsAndThePoolCanBeClosed)
{
    Pool pool;
    const auto init = [&pool] { pool->init(3, 4, 0, 0, 0); };
    int failures = 0;
    for (;; ++failures) {
        pool.reset(new KT::KTThreadPool(3, 4, 0, 0, 0));
        untilFailure = failures;
        try {
            init();
            untilFailure = -1;
            break;
        } catch (const std::bad_alloc&) {
            untilFailure = -1;
            ASSERT_TRUE(pool->close(false, 60000)) << "allocation " << failures;
            ASSERT_EQ(pool.use_count(), 1);
        }
    }
    EXPECT_GT(failures, 10);
    EXPECT_EQ(pool->status().threads, 3);
    EXPECT_TRUE(pool->close(false, 60000));
}

TEST(Allocation, RefusedTaskIsNotQueuedAndNoLockStaysHeld)
{
    const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(0, 1, 0, 0, 0);
    const auto task = makeTask();
    int queued = 0;
    // The deque allocates in some of the calls only: often enough in so many.
    for (int i = 0; i < 2000; ++i) {
        untilFailure = i % 2 - 1;  // none fails, or the first one
        try {
            pool->enqueue(task);
            ++queued;
        } catch (const std::bad_alloc&) {
        }
        untilFailure = -1;
        ASSERT_EQ(pool->status().queuedTasks, queued);
        ASSERT_EQ(task.use_count(), queued + 1);
    }
    EXPECT_GT(queued, 0);
    EXPECT_LT(queued, 2000);
    EXPECT_TRUE(pool->close());
}

TEST(Allocation, BatchIsQueuedAsAWholeOrNotAtAll)
{
    const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(0, 1, 0, 0, 0);
    const auto task = makeTask();
    const int size = 2000;
    const std::vector<boost::shared_ptr<KT::KTTask>> batch(size, task);
    std::vector<boost::shared_ptr<KT::KTTask>> copy = batch;
    const int failures = failEach([&] { EXPECT_TRUE(pool->enqueueAll(std::move(copy))); },
                                  [&](int) {
                                      EXPECT_EQ(pool->status().queuedTasks, 0);
                                      copy = batch;
                                  });
    EXPECT_GT(failures, 5);
    EXPECT_EQ(pool->status().queuedTasks, size);
    EXPECT_TRUE(pool->close());
    EXPECT_EQ(task.use_count(), size + 1);
}

TEST(Allocation, OfGrowthThatAnEnqueueRequestsLeavesTheTaskAcceptedAndRun)
{
    std::atomic<int> ran(0);
    int accepted = 0;
    {
        BusyPool busy(40);
        for (int n = 0; n < 20; ++n) {
            const auto task = makeTask([&ran] { ++ran; });
            untilFailure = n;
            try {
                EXPECT_TRUE(busy.pool->enqueue(task));
                ++accepted;
            } catch (const std::bad_alloc&) {
            }
            untilFailure = -1;
        }
        EXPECT_GT(busy.pool->status().threads, 1);
        EXPECT_LT(busy.pool->status().threads, 21);
        EXPECT_TRUE(eventually([&] {
            busy.pool->wake();
            return ran == accepted;
        }));
    }
    EXPECT_GE(accepted, 19);
    EXPECT_EQ(ran, accepted) << "a task was refused and run";
}

/// A worker without a thread, whose runTask the test calls itself, of a pool that says it has one
/// worker, which is busy: with a period of 1, each end of a task makes it grow.
class WorkerByHand {
public:
    explicit WorkerByHand(int period) : pool(new KT::KTThreadPool(1, 80, period, 0, 0))
    {
        pool->init(0, 80, period, 0, 0);
        inside::nbBusyThreads(pool) = 1;
        worker.reset(
            new KT::KTThread(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    }
    ~WorkerByHand() { EXPECT_TRUE(pool->close(false, 60000)); }
    WorkerByHand(const WorkerByHand&) = delete;
    WorkerByHand& operator=(const WorkerByHand&) = delete;

    void run(const boost::shared_ptr<FunctionTask>& task)
    {
        inside::currentTask(*worker) = task;
        task->setCreationTime();
        worker->runTask();
    }

    /// Whether runTask ended with an exception: it keeps `task`, in `state`, and holds no lock.
    void expectKept(const boost::shared_ptr<FunctionTask>& task, int state)
    {
        EXPECT_EQ(inside::currentTask(*worker), task);
        EXPECT_EQ(inside::state(*task), state);
        const KT::KTCriticalSectionWrite hold(inside::taskLock(*worker));
    }

    const Pool pool;
    boost::shared_ptr<KT::KTThread> worker;
};

TEST(Allocation, OfALongNameThrowsAndLeavesTheTaskRunning)
{
    WorkerByHand byHand(0);
    const auto task = makeTask([] {}, longText);
    const int failures =
        failEach([&] { byHand.run(task); }, [&](int) { byHand.expectKept(task, 1); });
    EXPECT_GE(failures, 2);
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_FALSE(inside::currentTask(*byHand.worker));
}

TEST(Allocation, OfGrowthThatAReportRequestsThrowsAndTheTaskIsKept)
{
    WorkerByHand byHand(1);
    const auto task = makeTask();
    const int failures =
        failEach([&] { byHand.run(task); }, [&](int) { byHand.expectKept(task, 2); });
    EXPECT_GT(failures, 5);
    EXPECT_FALSE(inside::currentTask(*byHand.worker));
    EXPECT_EQ(byHand.pool->status().threads, 2);
}

/// Once it is destroyed, the calling thread's n-th allocation fails.
struct FailLater {
    ~FailLater() { untilFailure = n; }
    int n;
};

TEST(Allocation, OfTheRecordOfAnErrorLosesTheRecordOnly)
{
    const LogCapture records("KTThread");
    WorkerByHand byHand(0);
    int lost = 0;
    for (int n = 0; n < 20; ++n) {
        const auto task = makeTask([n] {
            const FailLater arm{n};
            throw KT::KTError("module", "method", "on purpose", "file", 1);
        });
        const std::size_t before = records.records().size();
        byHand.run(task);
        untilFailure = -1;
        lost += records.records().size() == before;
        EXPECT_EQ(inside::state(*task), 2);
        EXPECT_FALSE(inside::currentTask(*byHand.worker));
    }
    EXPECT_GT(lost, 0);
    EXPECT_LT(lost, 20);
}

TEST(Allocation, GrowthThrowsAndThePoolGoesOn)
{
    const Pool pool(new KT::KTThreadPool(1, 80, 0, 0, 0));
    pool->init(1, 80, 0, 0, 0);
    const int each = failEach([&] {
        const int before = pool->status().threads;
        const bool isGrown = pool->adjustThread(1);
        EXPECT_EQ(pool->status().threads, before + (isGrown ? 1 : 0));
    });
    const int five = failEach([&] { EXPECT_TRUE(pool->xIncreaseThread()); });
    EXPECT_GT(each, 5);
    EXPECT_GT(five, 5 * (each - 2));
    const auto task = makeTask();
    EXPECT_TRUE(pool->enqueue(task));
    EXPECT_TRUE(untilFinished(pool, task));
    EXPECT_TRUE(pool->close(false, 60000));
    EXPECT_EQ(pool.use_count(), 1);
}

TEST(Allocation, IsNoPartOfARetirement)
{
    const ConsoleCapture console;
    const Pool pool(new KT::KTThreadPool(20, 20, 0, 0, 0));
    for (int slot = 0; slot < 20; ++slot) {
        inside::threads(pool)[static_cast<std::size_t>(slot)].reset(
            new KT::KTThread(pool, slot, inside::wakeMutex(pool), inside::wakeCondition(pool)));
    }
    const boost::shared_ptr<KT::KTThread> worker = inside::threads(pool)[0];
    EXPECT_TRUE(pool->adjustThread(-1));
    const std::string quiet = console.text();
    const long before = allocations::made;
    EXPECT_TRUE(pool->apoptosis(worker));
    // What is captured is kept by the test.
    EXPECT_LE(allocations::made - before, 1);
    EXPECT_EQ(pool->status().threads, 19);
    EXPECT_TRUE(pool->close());
}

TEST(Allocation, OfAShutdownComesBeforeItHasDoneAnything)
{
    for (const bool force : {false, true}) {
        const Pool pool(new KT::KTThreadPool(1, 4, 0, 0, 0));
        pool->init(1, 4, 0, 0, 0);
        const int failures = failEach([&] { pool->shutdown(force); },
                                      [&](int) { EXPECT_EQ(pool->status().threads, 1); });
        EXPECT_GT(failures, 0);
        EXPECT_EQ(pool->status().threads, 0);
        EXPECT_TRUE(pool->close());
    }
}

TEST(Allocation, OfACloseLetsItBeCalledAgain)
{
    for (const bool force : {false, true}) {
        const Pool pool(new KT::KTThreadPool(3, 4, 0, 0, 0));
        pool->init(3, 4, 0, 0, 0);
        bool isClosed = false;
        const int failures = failEach([&] { isClosed = pool->close(force, 60000); });
        EXPECT_GT(failures, 0);
        EXPECT_TRUE(isClosed);
        EXPECT_EQ(pool.use_count(), 1);
    }
}

}  // namespace
