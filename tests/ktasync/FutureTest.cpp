#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "Async.h"

namespace {

TEST(Future, WithoutATaskRefuses)
{
    KT::KTFuture<int> future;
    EXPECT_FALSE(future.valid());
    EXPECT_THROW(future.get(), KT::KTError);
    EXPECT_THROW(future.wait(), KT::KTError);
    EXPECT_THROW(future.waitFor(0), KT::KTError);
    EXPECT_THROW(static_cast<void>(future.isReady()), KT::KTError);
    EXPECT_THROW(future.cancel(), KT::KTError);
    EXPECT_THROW(future.then([](int) {}), KT::KTError);
}

TEST(Future, GivesItsResultOnce)
{
    KT::KTScopedPool pool;
    KT::KTFuture<int> future = KT::submit(pool, [] { return 1; });
    EXPECT_TRUE(future.valid());
    EXPECT_EQ(future.get(), 1);
    EXPECT_FALSE(future.valid());
    EXPECT_THROW(future.get(), KT::KTError);
}

TEST(Future, KeepsNothingOfAResultThatWasAskedFor)
{
    struct Copied {
        explicit Copied(std::shared_ptr<int> toKeep) : kept(std::move(toKeep)) {}
        Copied(const Copied&) = default;
        ~Copied() = default;
        Copied& operator=(const Copied&) = delete;
        std::shared_ptr<int> kept;
    };
    KT::KTScopedPool pool;
    const auto kept = std::make_shared<int>(0);
    KT::KTFuture<Copied> future = KT::submit(pool, [kept] { return Copied(kept); });
    future.get();
    EXPECT_EQ(kept.use_count(), 1);
}

TEST(Future, Moves)
{
    KT::KTScopedPool pool;
    KT::KTFuture<int> first = KT::submit(pool, [] { return 1; });
    KT::KTFuture<int> second(std::move(first));
    EXPECT_FALSE(first.valid());  // NOLINT(bugprone-use-after-move,clang-analyzer-*)
    first = std::move(second);
    EXPECT_EQ(first.get(), 1);
}

TEST(Future, WaitsForTheEndAndNotForLonger)
{
    HeldPool held;
    KT::KTFuture<int> future = KT::submit(held.pool, [] { return 1; });
    EXPECT_FALSE(future.isReady());
    EXPECT_FALSE(future.waitFor(0));
    EXPECT_FALSE(future.waitFor(30));
    held.release();
    EXPECT_TRUE(future.waitFor(-1));
    EXPECT_TRUE(future.isReady());
    EXPECT_TRUE(future.waitFor(0));
    future.wait();
    EXPECT_EQ(future.get(), 1);
}

/// ThreadSanitizer reports what isn't seen.
TEST(Future, ShowsAnyWaiterWhatTheTaskWrote)
{
    KT::KTScopedPool pool(fixedSize(2));
    for (int round = 0; round < 100; ++round) {
        int before = round;
        int written = 0;
        KT::KTFuture<void> future =
            KT::submit(pool, [&] { written = before; }).then([&] { ++written; });
        const auto isReady = [&future] { return future.isReady(); };
        switch (round % 4) {
            case 0: future.wait(); break;
            case 1: ASSERT_TRUE(future.waitFor(60000)); break;
            case 2: ASSERT_TRUE(eventually(isReady)); break;
            default: future.get();
        }
        before = written;
        EXPECT_EQ(before, round + 1);
    }
}

TEST(Future, DestroyedBeforeTheTaskRunsLeavesItAlone)
{
    HeldPool held;
    std::atomic<int> called(0);
    KT::submit(held.pool, [&called] { ++called; });
    held.release();
    EXPECT_TRUE(held.pool.close());
    EXPECT_EQ(called, 1);
}

TEST(Future, OutlivesItsPool)
{
    std::optional<KT::KTScopedPool> pool(std::in_place);
    KT::KTFuture<int> done = KT::submit(*pool, [] { return 1; });
    KT::KTFuture<int> failed = KT::submit(*pool, []() -> int { throw 2; });
    KT::KTFuture<int> never = KT::submit(*pool, [] { return 3; });
    done.wait();
    failed.wait();
    never.wait();
    pool.reset();
    EXPECT_EQ(done.get(), 1);
    EXPECT_THROW(failed.get(), int);
    EXPECT_FALSE(never.cancel());
    auto after = never.then([](int) { return 4; });
    EXPECT_TRUE(after.isReady());
    EXPECT_THROW(after.get(), KT::KTCancelled);
}

TEST(Future, OfATaskThatAShutdownDropsIsReadyAtOnce)
{
    HeldPool held;
    std::vector<KT::KTFuture<void>> futures;
    for (int i = 0; i < 10; ++i) {
        futures.push_back(KT::submit(held.pool, [] { ADD_FAILURE(); }));
    }
    Threads waiting;
    std::atomic<int> cancelled(0);
    for (KT::KTFuture<void>& future : futures) {
        waiting.start([&future, &cancelled] {
            cancelled += thrownBy<KT::KTCancelled>([&future] { future.get(); }).has_value();
        });
    }
    held.pool.pool()->shutdown(false);
    waiting.joinAll();
    EXPECT_EQ(cancelled, 10);
}

TEST(FutureCancel, OfATaskNotBegunMeansThatItNeverRuns)
{
    HeldPool held;
    const auto captured = std::make_shared<int>(0);
    KT::KTFuture<void> future = KT::submit(held.pool, [captured] { ADD_FAILURE(); });
    EXPECT_TRUE(future.cancel());
    EXPECT_TRUE(future.isReady());
    // What it held is free long before the worker comes to it.
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_FALSE(future.cancel());
    EXPECT_THROW(future.get(), KT::KTCancelled);
    held.release();
    EXPECT_EQ(KT::submit(held.pool, [] { return 1; }).get(), 1);
}

TEST(FutureCancel, OfARunningTaskRaisesItsStopMark)
{
    KT::KTScopedPool pool;
    Gate gate;
    KT::KTFuture<bool> future = KT::submit(pool, [&gate](const KT::KTStopToken& stop) {
        gate.pass();
        return stop.waitFor(-1);
    });
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    EXPECT_FALSE(future.cancel());
    EXPECT_TRUE(future.get());
}

TEST(FutureCancel, OfAnEndedTaskChangesNothing)
{
    KT::KTScopedPool pool;
    KT::KTFuture<int> future = KT::submit(pool, [] { return 1; });
    future.wait();
    EXPECT_FALSE(future.cancel());
    EXPECT_EQ(future.get(), 1);
}

TEST(FutureCancel, OfAFutureThatWasAskedForItsResultChangesNothing)
{
    HeldPool held;
    KT::KTFuture<int> front = KT::submit(held.pool, [] { return 1; });
    KT::KTFuture<int> back = front.then([](int n) { return n; });
    EXPECT_FALSE(front.cancel());
    held.release();
    EXPECT_EQ(back.get(), 1);
    EXPECT_FALSE(back.cancel());
}

TEST(FutureCancel, ThrownByTheCallableSaysThatItGaveUp)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool;
    KT::KTFuture<void> future = KT::submit(pool, [](const KT::KTStopToken& stop) {
        stop.waitFor(-1);
        stop.throwIfStopRequested();
    });
    future.cancel();
    EXPECT_THROW(future.get(), KT::KTCancelled);
    KT::submit(pool, [] { throw KT::KTCancelled("gave up"); });
    EXPECT_TRUE(pool.close());
    // That isn't a failure that somebody should have seen.
    EXPECT_TRUE(log.records().empty());
}

TEST(WaitingInATask, RunsTheTaskThatItWaitsForIfNoThreadHasBegunIt)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTFuture<int> outer = KT::submit(pool, [&pool] {
        KT::KTFuture<int> inner = KT::submit(pool, "inner", [] { return 20; });
        KT::KTFuture<int> bounded = KT::submit(pool, "bounded", [] { return 1; });
        EXPECT_TRUE(bounded.waitFor(60000));
        return inner.get() + bounded.get();
    });
    EXPECT_EQ(outer.get(), 21);
}

TEST(WaitingInATask, ForItselfIsRefused)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTFuture<void> itself;
    KT::KTFuture<void> behind;
    Gate gate;
    KT::KTFuture<void> outer = KT::submit(pool, [&] {
        gate.pass();
        EXPECT_THROW(itself.wait(), KT::KTError);
    });
    KT::KTFuture<void> front = KT::submit(pool, [&] { EXPECT_THROW(behind.wait(), KT::KTError); });
    behind = front.then([] {});
    itself = std::move(outer);
    gate.open();
    behind.get();
    itself.get();
}

TEST(WaitingInATask, ShowsTheNameOfWhatItRuns)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::submit(pool, "outer", [&] {
        KT::KTFuture<std::string> inner = KT::submit(pool, "inner", threadName);
        EXPECT_EQ(threadName(), "KTTask: outer [");
        EXPECT_EQ(inner.get(), "KTTask: inner [");
        EXPECT_EQ(threadName(), "KTTask: outer [");
    }).get();
}

TEST(WaitingInATask, ReachesInnerTasksWithAStopRequest)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate gate;
    KT::KTFuture<bool> outer = KT::submit(pool, [&] {
        return KT::submit(pool,
                          [&gate](const KT::KTStopToken& stop) {
                              gate.pass();
                              return stop.waitFor(-1);
                          })
            .get();
    });
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    outer.cancel();
    EXPECT_TRUE(outer.get());
}

TEST(WaitingInATask, RunsInnerTasksOfAStoppedTaskAsStopped)
{
    Gate gate;
    gate.open();
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTFuture<bool> outer = KT::submit(pool, [&pool, &gate](const KT::KTStopToken& stop) {
        gate.pass();
        stop.waitFor(-1);
        return KT::submit(pool, [](const KT::KTStopToken& inner) { return inner.stopRequested(); })
            .get();
    });
    EXPECT_TRUE(untilArrived(pool, gate));
    outer.cancel();
    EXPECT_TRUE(outer.get());
}

TEST(WaitingInATask, ReachesTheInnerTasksOfItsGroupWithAStopRequest)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate gate;
    std::atomic<bool> wasStopped(false);
    KT::KTFuture<void> outer = KT::submit(pool, [&] {
        KT::KTTaskGroup group(pool);
        group.run([&](const KT::KTStopToken& stop) {
            gate.pass();
            wasStopped = stop.waitFor(-1);
        });
        group.wait();
    });
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    outer.cancel();
    outer.get();
    EXPECT_TRUE(wasStopped);
}

/// A task that another one, which has not made it, runs while it waits for it.
class TaskInsideOfAnother : public testing::Test {
protected:
    void SetUp() override
    {
        Gate start;
        outer = KT::submit(pool, [this, &start](const KT::KTStopToken& stop) {
            start.pass();
            if (waitsForItsStop) {
                stop.waitFor(-1);
            }
            inner.wait();
        });
        inner = KT::submit(pool, [this](const KT::KTStopToken& stop) {
            gate.pass();
            return isToWait ? stop.waitFor(-1) : stop.stopRequested();
        });
        EXPECT_TRUE(untilArrived(pool, start));
        if (waitsForItsStop) {
            outer.cancel();
        }
        start.open();
        EXPECT_TRUE(untilArrived(pool, gate));
    }

    bool waitsForItsStop = false;
    bool isToWait = false;
    Gate gate;
    KT::KTFuture<void> outer;
    KT::KTFuture<bool> inner;
    KT::KTScopedPool pool{fixedSize(1)};
};

TEST_F(TaskInsideOfAnother, IsNotStoppedWithIt)
{
    outer.cancel();
    gate.open();
    outer.get();
    EXPECT_FALSE(inner.get());
}

TEST_F(TaskInsideOfAnother, IsStoppedByItsOwnCancel)
{
    isToWait = true;
    inner.cancel();
    gate.open();
    outer.get();
    EXPECT_TRUE(inner.get());
}

TEST_F(TaskInsideOfAnother, IsStoppedByAShutdownThoughTheOtherIsCancelled)
{
    isToWait = true;
    outer.cancel();
    pool.pool()->shutdown(false);
    gate.open();
    outer.get();
    EXPECT_TRUE(inner.get());
}

class TaskInsideOfAStoppedOne : public TaskInsideOfAnother {
protected:
    TaskInsideOfAStoppedOne() { waitsForItsStop = true; }
};

TEST_F(TaskInsideOfAStoppedOne, BeginsUnstopped)
{
    gate.open();
    outer.get();
    EXPECT_FALSE(inner.get());
}

TEST_F(TaskInsideOfAStoppedOne, IsStoppedByAShutdown)
{
    isToWait = true;
    pool.pool()->shutdown(false);
    gate.open();
    outer.get();
    EXPECT_TRUE(inner.get());
}

/// Also where the memory of the task that made it was used again for the one that waits.
TEST(WaitingInATask, PassesNoStopRequestOnToATaskThatAnEndedOneMade)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate queued;
    Gate held;
    Gate gate;
    auto maker = std::make_unique<KT::KTFuture<KT::KTFuture<bool>>>(KT::submit(pool, [&] {
        queued.pass();
        return KT::submit(pool, [&gate](const KT::KTStopToken& stop) {
            gate.pass();
            return stop.stopRequested();
        });
    }));
    KT::KTFuture<void> holding = KT::submit(pool, [&held] { held.pass(); });
    queued.open();
    ASSERT_TRUE(untilArrived(pool, held));
    KT::KTFuture<bool> made = maker->get();
    maker.reset();
    // It begins before what is queued, and where the maker was.
    KT::KTFuture<void> waiting = holding.then([&made] { made.wait(); });
    held.open();
    ASSERT_TRUE(untilArrived(pool, gate));
    EXPECT_FALSE(waiting.cancel());
    gate.open();
    waiting.get();
    EXPECT_FALSE(made.get());
}

int depthOf(const KT::KTScopedPool& pool, int depth)
{
    return depth == 0 ? 0 : 1 + KT::submit(pool, depthOf, std::cref(pool), depth - 1).get();
}

TEST(WaitingInATask, GoesAsDeepAsItTakes)
{
    KT::KTScopedPool pool(fixedSize(1));
    EXPECT_EQ(KT::submit(pool, depthOf, std::cref(pool), deepNesting).get(), deepNesting);
}

TEST(WaitingForAnotherPool, LeavesATaskToTheWorkersOfItsPool)
{
    HeldPool serial;
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTFuture<bool> outer = KT::submit(pool, [&serial] {
        KT::KTFuture<std::thread::id> inner = KT::submit(serial.pool, std::this_thread::get_id);
        EXPECT_FALSE(inner.waitFor(1));
        serial.gate.open();
        return inner.get() != std::this_thread::get_id();
    });
    EXPECT_TRUE(outer.get());
}

TEST(WaitingForAnotherPool, LeavesAChainToTheWorkersOfItsPool)
{
    HeldPool serial;
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTFuture<bool> outer = KT::submit(pool, [&serial] {
        KT::KTFuture<std::thread::id> inner =
            KT::submit(serial.pool, [] {}).then(std::this_thread::get_id);
        EXPECT_FALSE(inner.waitFor(1));
        serial.gate.open();
        return inner.get() != std::this_thread::get_id();
    });
    EXPECT_TRUE(outer.get());
}

/// The waiting task blocks its worker, so an adaptive pool starts another one.
TEST(WaitingForAnotherPool, MakesAnAdaptivePoolGrow)
{
    KT::KTPoolOptions options;
    options.threads = 1;
    options.maxThreads = 4;
    KT::KTScopedPool there(options);
    KT::KTScopedPool here(options);
    std::function<int(int)> backAndForth = [&](int depth) {
        const KT::KTScopedPool& next = depth % 2 == 0 ? there : here;
        return depth == 0 ? 0 : 1 + KT::submit(next, backAndForth, depth - 1).get();
    };
    EXPECT_EQ(KT::submit(here, backAndForth, 6).get(), 6);
}

}  // namespace
