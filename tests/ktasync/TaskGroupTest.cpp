#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>

#include <boost/make_shared.hpp>

#include <spdlog/common.h>

#include "Async.h"

namespace {

using testing::HasSubstr;

TEST(TaskGroup, WaitsForAllItsTasks)
{
    KT::KTScopedPool pool;
    std::atomic<int> ran(0);
    KT::KTTaskGroup group(pool);
    for (int i = 0; i < 1000; ++i) {
        group.run([&ran] { ++ran; });
    }
    group.wait();
    EXPECT_EQ(ran, 1000);
    EXPECT_EQ(group.failures(), 0);
    EXPECT_EQ(group.cancellations(), 0);
}

TEST(TaskGroup, PassesArgumentsNamesAndStopTokens)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTTaskGroup group(pool);
    std::string name;
    std::atomic<int> sum(0);
    std::atomic<bool> isNamed(false);
    group.run("part", [&name, &isNamed] {
        name = threadName();
        isNamed = true;
    });
    // The waiter runs it unless a worker has begun it.
    EXPECT_TRUE(eventually(pool, [&isNamed] { return isNamed.load(); }));
    group.run([&sum](const KT::KTStopToken& stop, int n) { sum += stop.stopRequested() ? 0 : n; },
              4);
    group.run([&sum](std::unique_ptr<int> n) { sum += *n; }, std::make_unique<int>(5));
    group.wait();
    EXPECT_EQ(name, "KTTask: part [r");
    EXPECT_EQ(sum, 9);
}

TEST(TaskGroup, CanBeUsedAgain)
{
    KT::KTScopedPool pool;
    KT::KTTaskGroup group(pool);
    group.wait();
    for (int round = 0; round < 3; ++round) {
        int ran = 0;
        group.run([&ran] { ++ran; });
        group.wait();
        EXPECT_EQ(ran, 1);
        group.run([] { throw 1; });
        EXPECT_THROW(group.wait(), int);
    }
    EXPECT_EQ(group.failures(), 3);
}

TEST(TaskGroup, ThrowsTheFirstExceptionAndCountsTheRest)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<int> ran(0);
    KT::KTTaskGroup group(pool);
    group.run([] { throw std::runtime_error("first"); });
    EXPECT_TRUE(eventually(pool, [&] { return group.failures() == 1; }));
    for (int i = 0; i < 5; ++i) {
        group.run([] { throw 5; });
        group.run([&ran] { ++ran; });
    }
    const auto error = thrownBy<std::runtime_error>([&] { group.wait(); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "first");
    EXPECT_EQ(group.failures(), 6);
    EXPECT_EQ(ran, 5);
    EXPECT_NO_THROW(group.wait());
}

TEST(TaskGroup, ThrowsWhatATaskThatGaveUpThrew)
{
    KT::KTScopedPool pool;
    KT::KTTaskGroup group(pool);
    group.run([] { throw KT::KTCancelled("of my own accord"); });
    const auto error = thrownBy<KT::KTCancelled>([&] { group.wait(); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->toString(), HasSubstr("of my own accord"));
    EXPECT_EQ(group.failures(), 0);
    EXPECT_EQ(group.cancellations(), 1);
}

TEST(TaskGroup, WaiterRunsTasksThatNoThreadHasBegun)
{
    HeldPool held;
    std::vector<std::thread::id> threads;
    KT::KTTaskGroup group(held.pool);
    for (int i = 0; i < 10; ++i) {
        group.run([&threads] { threads.push_back(std::this_thread::get_id()); });
    }
    group.wait();
    EXPECT_EQ(threads, std::vector<std::thread::id>(10, std::this_thread::get_id()));
    EXPECT_EQ(held.pool.status().queuedTasks, 0);
}

TEST(TaskGroup, KeepsTheNameOfAThreadThatIsNoWorker)
{
    HeldPool held;
    const std::string before = threadName();
    std::string within;
    KT::KTTaskGroup group(held.pool);
    group.run("part", [&within] { within = threadName(); });
    group.wait();
    EXPECT_EQ(within, before);
}

TEST(TaskGroup, WaitForGivesUpInTime)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate gate;
    KT::KTTaskGroup group(pool);
    group.run([&gate] { gate.pass(); });
    ASSERT_TRUE(untilArrived(pool, gate));
    EXPECT_FALSE(group.waitFor(0));
    EXPECT_FALSE(group.waitFor(30));
    gate.open();
    EXPECT_TRUE(group.waitFor(-1));
}

TEST(TaskGroup, WaitForRunsNoTaskWhereThatCouldTakeLonger)
{
    HeldPool held;
    std::thread::id ranOn;
    KT::KTTaskGroup group(held.pool);
    group.run([&ranOn] { ranOn = std::this_thread::get_id(); });
    EXPECT_FALSE(group.waitFor(1));
    held.release();
    EXPECT_TRUE(group.waitFor(60000));
    EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST(TaskGroup, WaitForRunsTasksWhereNoOtherWorkerMayBeLeft)
{
    struct Waiter : KT::KTTask {
        explicit Waiter(const KT::KTScopedPool& ofWorker) : pool(ofWorker) {}
        void run() override
        {
            KT::KTTaskGroup group(pool);
            group.run([this] { ranOn = std::this_thread::get_id(); });
            static_cast<void>(group.waitFor(60000));
            isHelper = ranOn == std::this_thread::get_id();
            hasEnded = true;
        }
        const KT::KTScopedPool& pool;
        std::thread::id ranOn;
        bool isHelper = false;
        std::atomic<bool> hasEnded{false};
    };
    KT::KTScopedPool pool(fixedSize(1));
    const auto byHand = boost::make_shared<Waiter>(pool);
    pool.pool()->enqueue(byHand);
    ASSERT_TRUE(eventually(pool, [&byHand] { return byHand->hasEnded.load(); }));
    EXPECT_TRUE(byHand->isHelper);
}

/// ThreadSanitizer reports what isn't seen.
TEST(TaskGroup, ShowsAnyWaiterWhatItsTasksWrote)
{
    KT::KTScopedPool pool(fixedSize(2));
    for (int round = 0; round < 100; ++round) {
        std::vector<int> written(4);
        auto group = std::make_unique<KT::KTTaskGroup>(pool);
        for (int& each : written) {
            group->run([&each] { each = 1; });
        }
        if (round % 2 == 0) {
            group->wait();
        } else {
            ASSERT_TRUE(group->waitFor(60000));
        }
        EXPECT_EQ(written, std::vector<int>(4, 1));
        written.clear();
        group.reset();
    }
}

TEST(TaskGroup, RefusesNonsense)
{
    KT::KTScopedPool pool;
    const auto negative = thrownBy<KT::KTError>([&] { KT::KTTaskGroup(pool, -1); });
    ASSERT_TRUE(negative);
    EXPECT_THAT(negative->toString(), HasSubstr("limit is -1"));

    KT::KTTaskGroup group(pool);
    group.run([&group] { group.wait(); });
    const auto own = thrownBy<KT::KTError>([&] { group.wait(); });
    ASSERT_TRUE(own);
    EXPECT_THAT(own->toString(), HasSubstr("called in a task of the group"));
}

TEST(TaskGroup, TasksMayAddTasks)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<int> ran(0);
    KT::KTTaskGroup group(pool);
    std::function<void(int)> spread = [&](int depth) {
        ++ran;
        for (int i = 0; depth > 0 && i < 2; ++i) {
            group.run(spread, depth - 1);
        }
    };
    group.run(spread, 10);
    group.wait();
    EXPECT_EQ(ran, 2047);
}

TEST(TaskGroupCancel, DropsWhatHasNotBegunAndAsksTheRest)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate gate;
    std::atomic<bool> asked(false);
    KT::KTTaskGroup group(pool);
    group.run([&](const KT::KTStopToken& stop) {
        gate.pass();
        asked = stop.waitFor(-1);
    });
    for (int i = 0; i < 10; ++i) {
        group.run([] { ADD_FAILURE(); });
    }
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    group.cancel();
    group.run([] { ADD_FAILURE(); });
    EXPECT_NO_THROW(group.wait());
    EXPECT_TRUE(asked);
    EXPECT_EQ(group.cancellations(), 11);
    // As new after the wait.
    bool ran = false;
    group.run([&ran] { ran = true; });
    group.wait();
    EXPECT_TRUE(ran);
}

TEST(TaskGroupCancel, ReachesManyRunningTasks)
{
    KT::KTScopedPool pool(fixedSize(8));
    Gate gate;
    KT::KTTaskGroup group(pool);
    for (int i = 0; i < 8; ++i) {
        group.run([&gate](const KT::KTStopToken& stop) {
            gate.pass();
            stop.waitFor(-1);
        });
    }
    ASSERT_TRUE(untilArrived(pool, gate, 8));
    gate.open();
    group.cancel();
    group.wait();
    EXPECT_EQ(group.cancellations(), 0);
}

TEST(TaskGroupShutdown, DroppedTasksAreRunByAWaiterOrLost)
{
    HeldPool held;
    KT::KTTaskGroup group(held.pool);
    group.run([] { ADD_FAILURE(); });
    held.pool.pool()->shutdown(false);
    EXPECT_THROW(group.wait(), KT::KTCancelled);
    EXPECT_EQ(group.cancellations(), 1);
    group.run([] { ADD_FAILURE(); });
    EXPECT_THROW(group.wait(), KT::KTCancelled);
}

TEST(TaskGroupLimit, RunRunsTasksItselfWhileItWaits)
{
    HeldPool held;
    std::atomic<int> most(0);
    std::atomic<int> inFlight(0);
    std::atomic<int> ran(0);
    KT::KTTaskGroup group(held.pool, 3);
    for (int i = 0; i < 100; ++i) {
        ++inFlight;
        group.run([&] {
            most = std::max(most.load(), inFlight.load());
            --inFlight;
            ++ran;
        });
    }
    group.wait();
    EXPECT_EQ(ran, 100);
    EXPECT_LE(most, 4);
}

TEST(TaskGroupLimit, TryRunSaysNo)
{
    HeldPool held;
    std::atomic<int> ran(0);
    KT::KTTaskGroup group(held.pool, 2);
    EXPECT_TRUE(group.tryRun([&ran] { ++ran; }));
    EXPECT_TRUE(group.tryRun("named", [&ran] { ++ran; }));
    EXPECT_FALSE(group.tryRun([] { ADD_FAILURE(); }));
    group.wait();
    EXPECT_TRUE(group.tryRun([&ran] { ++ran; }));
    group.wait();
    EXPECT_EQ(ran, 3);
}

TEST(TaskGroupLimit, RunBlocksUntilATaskEnds)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate gate;
    KT::KTTaskGroup group(pool, 1);
    group.run([&gate] { gate.pass(); });
    ASSERT_TRUE(untilArrived(pool, gate));
    std::atomic<bool> through(false);
    std::atomic<bool> ran(false);
    std::thread producer([&] {
        group.run([&ran] { ran = true; });
        through = true;
    });
    EXPECT_FALSE(group.tryRun([] { ADD_FAILURE(); }));
    EXPECT_FALSE(through);
    gate.open();
    producer.join();
    group.wait();
    EXPECT_TRUE(ran);
}

TEST(TaskGroupLimit, TaskOfAFullGroupRunsItsOwnOnTheSpot)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTTaskGroup group(pool, 1);
    std::vector<int> order;
    group.run([&] {
        group.run([&order] { order.push_back(1); });
        EXPECT_FALSE(group.tryRun([] { ADD_FAILURE(); }));
        order.push_back(2);
    });
    group.wait();
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(TaskGroupLimit, PlaceIsGivenBackWhenTheTaskCannotBeMade)
{
    struct Bad {
        Bad() = default;
        Bad(const Bad&) { throw std::logic_error("copy"); }
        void operator()() const {}
    };
    KT::KTScopedPool pool;
    KT::KTTaskGroup group(pool, 1);
    const Bad bad;
    EXPECT_THROW(group.run(bad), std::logic_error);
    EXPECT_THROW(group.tryRun(bad), std::logic_error);
    group.wait();
}

TEST(TaskGroupLimit, BoundsTheQueue)
{
    HeldPool held;
    std::atomic<int> ran(0);
    int mostQueued = 0;
    {
        KT::KTTaskGroup group(held.pool, 10);
        for (int i = 0; i < 1000; ++i) {
            group.run([&ran] { ++ran; });
            mostQueued = std::max(mostQueued, held.pool.status().queuedTasks);
        }
        group.wait();
        EXPECT_EQ(held.pool.status().queuedTasks, 0);
    }
    EXPECT_EQ(ran, 1000);
    EXPECT_LE(mostQueued, 10);
}

TEST(TaskGroupWaiters, ThatSleepLeaveTheTasksToTheWorkers)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<int> elsewhere(0);
    const std::thread::id here = std::this_thread::get_id();
    KT::KTTaskGroup group(pool, 2, KT::KTTaskGroup::Waiters::sleep);
    for (int i = 0; i < 1000; ++i) {
        group.run([&] { elsewhere += std::this_thread::get_id() != here; });
    }
    group.wait();
    EXPECT_EQ(elsewhere, 1000);
}

TEST(TaskGroupWaiters, ThatSleepInATaskOfThePoolHelpAllTheSame)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<int> ran(0);
    KT::submit(pool, [&] {
        KT::KTTaskGroup group(pool, 2, KT::KTTaskGroup::Waiters::sleep);
        for (int i = 0; i < 10; ++i) {
            group.run([&ran] { ++ran; });
        }
        group.wait();
    }).get();
    EXPECT_EQ(ran, 10);
}

TEST(TaskGroupSubmit, GivesTheResult)
{
    KT::KTScopedPool pool(fixedSize(2));
    KT::KTTaskGroup group(pool);
    KT::KTFuture<int> sum = group.submit(
        "add", [](int a, int b) { return a + b; }, 1, 2);
    KT::KTFuture<std::string> name =
        group.submit([](const KT::KTStopToken&) { return "x"; }).then([](const std::string& x) {
            return x + "y";
        });
    group.wait();
    EXPECT_TRUE(sum.isReady());
    EXPECT_EQ(sum.get(), 3);
    EXPECT_EQ(name.get(), "xy");
}

TEST(TaskGroupSubmit, LeavesExceptionsToTheFuture)
{
    KT::KTScopedPool pool(fixedSize(2));
    KT::KTTaskGroup group(pool);
    KT::KTFuture<void> failing = group.submit([] { throw std::runtime_error("why"); });
    group.wait();
    EXPECT_EQ(group.failures(), 1);
    EXPECT_THROW(failing.get(), std::runtime_error);
}

TEST(TaskGroupSubmit, IsCancelledWithTheGroup)
{
    HeldPool held;
    KT::KTTaskGroup group(held.pool);
    KT::KTFuture<void> dropped = group.submit([] { ADD_FAILURE(); });
    group.cancel();
    group.wait();
    EXPECT_EQ(group.cancellations(), 1);
    EXPECT_THROW(dropped.get(), KT::KTCancelled);
}

TEST(TaskGroupSubmit, IsRunByItsWaiterInATask)
{
    KT::KTScopedPool pool(fixedSize(1));
    EXPECT_EQ(KT::submit(pool,
                         [&pool] {
                             KT::KTTaskGroup group(pool);
                             return group.submit([] { return 7; }).get();
                         })
                  .get(),
              7);
}

TEST(TaskGroupEnd, CancelsWhenItsWaiterIsCancelled)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<bool> wasAsked(false);
    Gate gate;
    std::thread waiter([&] {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        KT::KTTaskGroup group(pool);
        group.run([&](const KT::KTStopToken& stop) {
            gate.pass();
            wasAsked = stop.waitFor(-1);
        });
        EXPECT_TRUE(untilArrived(pool, gate));
        gate.open();
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        group.wait();
    });
    pthread_cancel(waiter.native_handle());
    waiter.join();
    EXPECT_TRUE(wasAsked);
}

TEST(TaskGroupEnd, WaitsForTheTasks)
{
    KT::KTScopedPool pool;
    std::atomic<int> ran(0);
    {
        KT::KTTaskGroup group(pool);
        for (int i = 0; i < 100; ++i) {
            group.run([&ran] { ++ran; });
        }
    }
    EXPECT_EQ(ran, 100);
}

TEST(TaskGroupEnd, CancelsWhenAnExceptionLeavesTheScope)
{
    HeldPool held;
    const auto leave = [&held] {
        KT::KTTaskGroup group(held.pool);
        group.run([] { ADD_FAILURE(); });
        throw 1;
    };
    EXPECT_THROW(leave(), int);
}

TEST(TaskGroupEnd, CancelsWhenTheTaskAroundIsAskedToStop)
{
    KT::KTScopedPool pool(fixedSize(2));
    Gate gate;
    KT::KTFuture<void> outer = KT::submit(pool, [&] {
        KT::KTTaskGroup group(pool);
        group.run([&gate](const KT::KTStopToken& stop) {
            gate.pass();
            stop.waitFor(-1);
        });
        EXPECT_TRUE(untilArrived(pool, gate));
    });
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // the group's end waits by now
    outer.cancel();
    outer.get();
}

TEST(TaskGroupEnd, InOneOfItsOwnTasksDoesNotWait)
{
    KT::KTScopedPool pool(fixedSize(1));
    auto group = std::make_unique<KT::KTTaskGroup>(pool);
    KT::KTTaskGroup& same = *group;
    Gate gate;
    same.run([&] {
        gate.pass();
        group.reset();
    });
    same.run([] { ADD_FAILURE(); });
    gate.open();
    EXPECT_TRUE(pool.close());
    EXPECT_FALSE(group);
}

TEST(TaskGroupEnd, LogsAnExceptionThatNobodyLookedAt)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool;
    {
        KT::KTTaskGroup group(pool);
        group.run([] { throw std::runtime_error("the reason"); });
    }
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_THAT(log.records()[0].text, HasSubstr("the reason"));
    EXPECT_EQ(log.records()[0].level, spdlog::level::warn);
}

void nest(const KT::KTScopedPool& pool, int depth, std::atomic<int>& ran)
{
    ++ran;
    if (depth > 1) {
        KT::KTTaskGroup group(pool);
        group.run(nest, std::cref(pool), depth - 1, std::ref(ran));
        group.wait();
    }
}

TEST(TaskGroupEnd, InTheCallableOfItsOwnTaskDoesNotWait)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate gate;
    auto group = std::make_shared<KT::KTTaskGroup>(pool);
    const std::weak_ptr<KT::KTTaskGroup> last = group;
    group->run([group, &gate] { gate.pass(); });
    group.reset();
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    EXPECT_TRUE(eventually(pool, [&last] { return last.expired(); }));
    EXPECT_TRUE(eventually([&pool] { return pool.status().busyThreads == 0; }));
}

TEST(TaskGroupEnd, InTheCallableOfItsDroppedTaskDoesNotWait)
{
    KT::KTPoolOptions options = fixedSize(1);
    options.queued = KT::KTPoolOptions::Queued::drop;
    HeldPool held(options);
    auto group = std::make_shared<KT::KTTaskGroup>(held.pool);
    group->run([group] {});
    const std::weak_ptr<KT::KTTaskGroup> last = group;
    group.reset();
    held.pool.pool()->shutdown(false);
    EXPECT_TRUE(last.expired());
}

TEST(TaskGroup, RunOfACancelledFullOneDoesNotBlock)
{
    HeldPool held;
    KT::KTTaskGroup group(held.pool, 1);
    Gate gate;
    std::thread runner([&group, &gate] { group.run([&gate] { gate.pass(); }); });
    held.release();
    ASSERT_TRUE(untilArrived(held.pool, gate));
    group.cancel();
    bool ran = false;
    group.run([&ran] { ran = true; });  // while the other is still at the gate
    gate.open();
    runner.join();
    group.waitFor(-1);
    EXPECT_FALSE(ran);
}

TEST(NestedGroups, GoAsDeepAsItTakesWithOneWorker)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<int> ran(0);
    KT::submit(pool, [&] { nest(pool, deepNesting, ran); }).get();
    EXPECT_EQ(ran, deepNesting);
}

TEST(NestedGroups, GoAsDeepAsItTakesFromAnyThread)
{
    KT::KTScopedPool pool;
    std::atomic<int> ran(0);
    nest(pool, deepNesting, ran);
    EXPECT_EQ(ran, deepNesting);
}

TEST(NestedGroups, OfTenThousandInATreeAllEnd)
{
    KT::KTScopedPool pool(fixedSize(3));
    std::atomic<int> groups(0);
    std::function<void(int)> tree = [&](int depth) {
        KT::KTTaskGroup group(pool);
        ++groups;
        for (int i = 0; depth > 0 && i < 10; ++i) {
            group.run(tree, depth - 1);
        }
        group.wait();
    };
    tree(4);
    EXPECT_EQ(groups, 11111);
}

TEST(NestedGroups, ExceptionsComeUpThroughAllLevels)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::function<void(int)> nested = [&](int depth) {
        if (depth == 0) {
            throw std::runtime_error("from below");
        }
        KT::KTTaskGroup group(pool);
        group.run(nested, depth - 1);
        group.wait();
    };
    EXPECT_THROW(nested(50), std::runtime_error);
}

TEST(TaskGroupOfAnotherPool, IsWaitedForAndItsTasksAreLeftToItsWorkers)
{
    HeldPool serial;
    KT::KTScopedPool pool(fixedSize(1));
    std::thread::id ranOn;
    KT::submit(pool, [&] {
        KT::KTTaskGroup group(serial.pool);
        group.run([&ranOn] { ranOn = std::this_thread::get_id(); });
        EXPECT_FALSE(group.waitFor(1));
        serial.gate.open();
        group.wait();
        EXPECT_NE(ranOn, std::this_thread::get_id());
    }).get();
}

TEST(TaskGroupOfAnotherPool, WithALimitLeavesItsTasksToItsWorkers)
{
    HeldPool serial;
    KT::KTScopedPool pool(fixedSize(1));
    std::vector<std::thread::id> ranOn;
    KT::KTTaskGroup group(serial.pool, 1);
    Threads other;
    KT::submit(pool, [&] {
        const auto note = [&ranOn] { ranOn.push_back(std::this_thread::get_id()); };
        group.run(note);
        EXPECT_FALSE(group.waitFor(1));
        other.start([&serial] { serial.gate.open(); });
        group.run(note);  // waits for a place
        group.wait();
        EXPECT_EQ(std::count(ranOn.begin(), ranOn.end(), std::this_thread::get_id()), 0);
    }).get();
    EXPECT_EQ(ranOn.size(), 2U);
}

}  // namespace
