#include <atomic>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "Async.h"

namespace {

using testing::HasSubstr;

TEST(Promise, KeptMakesItsFutureReady)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    EXPECT_FALSE(future.isReady());
    EXPECT_TRUE(promise.setValue(1));
    EXPECT_TRUE(future.isReady());
    EXPECT_EQ(future.get(), 1);
}

TEST(Promise, KeptBeforeItsFutureIsAskedFor)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    promise.setValue(1);
    EXPECT_EQ(promise.future().get(), 1);
}

TEST(Promise, PassesVoidReferencesAndMoveOnlyResults)
{
    KT::KTScopedPool pool;
    KT::KTPromise<void> nothing(pool);
    KT::KTPromise<int&> reference(pool);
    KT::KTPromise<std::unique_ptr<int>> moved(pool);
    KT::KTPromise<std::string> converted(pool);
    int target = 3;
    nothing.setValue();
    reference.setValue(target);
    moved.setValue(std::make_unique<int>(5));
    converted.setValue("text");
    EXPECT_NO_THROW(nothing.future().get());
    EXPECT_EQ(&reference.future().get(), &target);
    EXPECT_EQ(*moved.future().get(), 5);
    EXPECT_EQ(converted.future().get(), "text");
}

TEST(Promise, IsKeptByAnyThreadAndFollowedOnAWorker)
{
    KT::KTScopedPool pool(fixedSize(1));
    const auto worker = KT::submit(pool, std::this_thread::get_id).get();
    KT::KTPromise<int> promise(pool, "reply");
    KT::KTFuture<std::string> name = promise.future().then([worker](int n) {
        EXPECT_EQ(n, 1);
        EXPECT_EQ(std::this_thread::get_id(), worker);
        return threadName();
    });
    std::thread([kept = std::move(promise)]() mutable { kept.setValue(1); }).join();
    EXPECT_EQ(name.get(), "KTTask: reply [");
}

TEST(Promise, MayBeKeptWithAnException)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    EXPECT_THROW(promise.setException(nullptr), KT::KTError);
    EXPECT_TRUE(promise.setException(std::make_exception_ptr(std::runtime_error("no reply"))));
    const auto error = thrownBy<std::runtime_error>([&future] { future.get(); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "no reply");
}

TEST(Promise, HasTheExceptionOfAValueThatCannotBeCopied)
{
    struct Bad {
        Bad() = default;
        Bad(const Bad&) { throw std::logic_error("no copy"); }
        Bad(Bad&&) = default;
        ~Bad() = default;
        Bad& operator=(const Bad&) = delete;
        Bad& operator=(Bad&&) = delete;
    };
    KT::KTScopedPool pool;
    KT::KTPromise<Bad> promise(pool);
    const Bad bad;
    EXPECT_TRUE(promise.setValue(bad));
    EXPECT_THROW(promise.future().get(), std::logic_error);
}

TEST(Promise, RefusesWhatComesTwiceOrTooLate)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    EXPECT_THROW(promise.future(), KT::KTError);
    promise.setValue(1);
    EXPECT_THROW(promise.setValue(2), KT::KTError);
    EXPECT_THROW(promise.setException(std::make_exception_ptr(2)), KT::KTError);
    EXPECT_THROW(static_cast<void>(promise.stopToken()), KT::KTError);
    EXPECT_EQ(future.get(), 1);
    KT::KTPromise<int> first(pool);
    const KT::KTPromise<int> second(std::move(first));
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-*)
    EXPECT_THROW(first.future(), KT::KTError);
    EXPECT_THROW(first.setValue(1), KT::KTError);
}

TEST(BrokenPromise, IsAnErrorThatNamesIt)
{
    KT::KTScopedPool pool;
    std::optional<KT::KTPromise<int>> promise(std::in_place, pool, "reply");
    KT::KTFuture<int> future = promise->future();
    promise.reset();
    const auto error = thrownBy<KT::KTError>([&future] { future.get(); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->toString(), HasSubstr("the promise 'reply' was destroyed before"));
}

TEST(BrokenPromise, ByAssignmentOrByATaskThatNeverRan)
{
    HeldPool held;
    KT::KTPromise<int> promise(held.pool);
    KT::KTFuture<int> assigned = promise.future();
    promise = KT::KTPromise<int>(held.pool);
    EXPECT_THROW(assigned.get(), KT::KTError);
    KT::KTFuture<int> dropped = promise.future();
    KT::post(held.pool, [kept = std::move(promise)]() mutable { kept.setValue(1); });
    held.pool.pool()->shutdown(false);
    EXPECT_THROW(dropped.get(), KT::KTError);
}

TEST(BrokenPromise, IsNoMatterIfNobodyCanAsk)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool;
    KT::KTPromise<int> unused(pool);
    unused = KT::KTPromise<int>(pool);
    static_cast<void>(unused.future());
    unused = KT::KTPromise<int>(pool);
    EXPECT_TRUE(log.records().empty());
}

TEST(PromiseCancel, IsSeenByWhoKeepsIt)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    const KT::KTStopToken stop = promise.stopToken();
    EXPECT_FALSE(stop.stopRequested());
    std::thread canceller([&future] { EXPECT_TRUE(future.cancel()); });
    EXPECT_TRUE(stop.waitFor(-1));
    canceller.join();
    EXPECT_FALSE(promise.setValue(1));
    EXPECT_THROW(future.get(), KT::KTCancelled);
}

TEST(PromiseCancel, OfAKeptOneChangesNothing)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    promise.setValue(1);
    EXPECT_FALSE(future.cancel());
    EXPECT_EQ(future.get(), 1);
}

TEST(PromiseCancel, ReachesWhatFollows)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    future.cancel();
    KT::KTFuture<void> next = future.then([](int) { ADD_FAILURE(); });
    EXPECT_THROW(next.get(), KT::KTCancelled);
}

TEST(PromiseInATask, IsWaitedForAndNeverRun)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    Gate gate;
    KT::KTFuture<int> waiting = KT::submit(pool, [&] {
        EXPECT_FALSE(future.waitFor(1));
        gate.pass();
        return future.then([](int n) { return n + 1; }).get();
    });
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    EXPECT_TRUE(promise.setValue(1));
    EXPECT_EQ(waiting.get(), 2);
}

TEST(PromiseInATask, IsNotWaitedForWhenWhatFollowsItIsCancelled)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> next = promise.future().then([](int n) { return n; });
    Gate gate;
    KT::KTFuture<void> waiting = KT::submit(pool, [&] {
        gate.pass();
        next.wait();
    });
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    // The wait has begun by then, as a rule.
    EXPECT_FALSE(waiting.waitFor(1));
    EXPECT_TRUE(next.cancel());
    EXPECT_TRUE(eventually([&waiting] { return waiting.isReady(); }));
    promise.setValue(1);
    waiting.get();
}

TEST(PromiseInATask, OfAGroup)
{
    KT::KTScopedPool pool(fixedSize(2));
    KT::KTPromise<int> promise(pool);
    KT::KTFuture<int> future = promise.future();
    std::atomic<int> sum(0);
    KT::KTTaskGroup group(pool);
    group.run([&] { sum += future.get(); });
    group.run([&promise] { promise.setValue(1); });
    group.wait();
    EXPECT_EQ(sum, 1);
}

TEST(PromiseShutdown, LeavesItAloneAndDropsWhatFollows)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    KT::KTPromise<int> followed(pool);
    KT::KTFuture<int> future = promise.future();
    KT::KTFuture<int> next = followed.future().then([](int n) { return n; });
    EXPECT_TRUE(pool.close());
    EXPECT_FALSE(future.isReady());
    EXPECT_TRUE(promise.setValue(1));
    EXPECT_TRUE(followed.setValue(1));
    EXPECT_EQ(future.get(), 1);
    EXPECT_THROW(next.get(), KT::KTCancelled);
}

TEST(StdFuture, HasTheResultOfTheTask)
{
    KT::KTScopedPool pool;
    int target = 0;
    EXPECT_EQ(KT::toStdFuture(KT::submit(pool, [] { return 1; })).get(), 1);
    EXPECT_NO_THROW(KT::toStdFuture(KT::submit(pool, [] {})).get());
    EXPECT_EQ(&KT::toStdFuture(KT::submit(pool, [&]() -> int& { return target; })).get(), &target);
    KT::KTFuture<std::unique_ptr<int>> ready =
        KT::submit(pool, [] { return std::make_unique<int>(5); });
    ready.wait();
    EXPECT_EQ(*KT::toStdFuture(std::move(ready)).get(), 5);
    EXPECT_FALSE(ready.valid());  // NOLINT(bugprone-use-after-move,clang-analyzer-*)
    EXPECT_THROW(KT::toStdFuture(std::move(ready)), KT::KTError);
}

TEST(StdFuture, HasTheExceptionOfTheTask)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool;
    std::future<void> future = KT::toStdFuture(KT::submit(pool, [] { throw 7; }));
    EXPECT_THROW(future.get(), int);
    EXPECT_TRUE(log.records().empty());
}

TEST(StdFuture, OfATaskThatAShutdownDropsThrows)
{
    HeldPool held;
    std::future<int> future =
        KT::toStdFuture(KT::submit(held.pool, [] { return 1; }).then([](int n) { return n; }));
    held.pool.pool()->shutdown(false);
    EXPECT_THROW(future.get(), KT::KTCancelled);
}

/// The result is there as soon as the task has ended, though the only worker goes on.
TEST(StdFuture, NeedsNoWorker)
{
    KT::KTScopedPool pool(fixedSize(1));
    Gate gate;
    std::future<int> future = KT::toStdFuture(KT::submit(pool, [] { return 1; }));
    KT::KTFuture<void> holding = KT::submit(pool, [&gate] { gate.pass(); });
    EXPECT_EQ(future.get(), 1);
    gate.open();
    holding.get();
}

TEST(StdFuture, OfAPromise)
{
    KT::KTScopedPool pool;
    KT::KTPromise<int> promise(pool);
    std::future<int> future = KT::toStdFuture(promise.future());
    promise.setValue(1);
    EXPECT_EQ(future.get(), 1);
}

}  // namespace
