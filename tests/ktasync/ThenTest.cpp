#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "Async.h"

namespace {

TEST(Then, IsCalledWithTheResult)
{
    KT::KTScopedPool pool;
    EXPECT_EQ(KT::submit(pool, [] { return 20; })
                  .then([](int n) { return n + 1; })
                  .then([](int n) { return std::to_string(n); })
                  .get(),
              "21");
}

TEST(Then, OfADestructorIsNotPutOffWhileAChainIsDropped)
{
    struct Writer {
        explicit Writer(KT::KTScopedPool& pool) : io(pool) {}
        ~Writer()
        {
            KT::KTFuture<void> flushed = KT::submit(io, [] {});
            flushed.wait();
            wasClosed = flushed.then([] {}).waitFor(20000);
        }
        KT::KTScopedPool& io;
        static bool& wasClosedOf()
        {
            static bool closed = false;
            return closed;
        }
        bool& wasClosed = wasClosedOf();
    };
    KT::KTScopedPool io(fixedSize(1));
    HeldPool held;
    auto writer = std::make_shared<Writer>(io);
    const KT::KTFuture<void> chain = KT::submit(held.pool, [] {}).then([writer] {});
    writer.reset();
    held.pool.pool()->shutdown(false);
    EXPECT_TRUE(Writer::wasClosedOf());
}

TEST(Then, LongChainsAreWaitedForInATask)
{
    KT::KTScopedPool pool(fixedSize(1));
    const auto sum = [&pool] {
        KT::KTFuture<int> links = KT::submit(pool, [] { return 0; });
        for (int i = 0; i < 20000; ++i) {
            links = links.then([](int n) { return n + 1; });
        }
        return links.get();
    };
    EXPECT_EQ(KT::submit(pool, sum).get(), 20000);
}

TEST(Then, TakesTheFutureAlong)
{
    KT::KTScopedPool pool;
    KT::KTFuture<int> first = KT::submit(pool, [] { return 1; });
    const KT::KTFuture<void> second = first.then([](int) {});
    EXPECT_FALSE(first.valid());
    EXPECT_TRUE(second.valid());
}

TEST(Then, PassesVoidReferencesAndMoveOnlyResults)
{
    KT::KTScopedPool pool;
    int target = 3;
    EXPECT_EQ(KT::submit(pool, [] {}).then([] { return 1; }).get(), 1);
    EXPECT_EQ(&KT::submit(pool, [&]() -> int& { return target; })
                   .then([](int& n) -> int& { return n; })
                   .get(),
              &target);
    EXPECT_EQ(KT::submit(pool, [] { return std::make_unique<int>(5); })
                  .then([](std::unique_ptr<int> n) { return *n; })
                  .get(),
              5);
}

TEST(Then, OfAReadyFutureIsCalledToo)
{
    KT::KTScopedPool pool;
    KT::KTFuture<int> ready = KT::submit(pool, [] { return 1; });
    ready.wait();
    EXPECT_EQ(ready.then([](int n) { return n + 1; }).get(), 2);
}

TEST(Then, IsGivenAStopToken)
{
    KT::KTScopedPool pool;
    EXPECT_EQ(KT::submit(pool, [] { return 1; })
                  .then([](const KT::KTStopToken& stop, int n) { return stop.stopRequested() + n; })
                  .then([](const KT::KTStopToken& stop, int n) { return stop.waitFor(1) + n; })
                  .get(),
              1);
}

TEST(Then, IsPassedByAFailure)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool;
    auto future = KT::submit(pool, []() -> int { throw std::runtime_error("front"); })
                      .then([](int) {
                          ADD_FAILURE();
                          return 1;
                      })
                      .then([](int) { ADD_FAILURE(); });
    const auto error = thrownBy<std::runtime_error>([&] { future.get(); });
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "front");
    EXPECT_TRUE(pool.close());
    EXPECT_TRUE(log.records().empty());
}

TEST(Then, SeesAFailureIfItTakesTheFuture)
{
    KT::KTScopedPool pool;
    const auto recover = [](KT::KTFuture<int> front) {
        return thrownBy<int>([&front] { front.get(); }).value_or(-1);
    };
    EXPECT_EQ(KT::submit(pool, []() -> int { throw 7; }).then(recover).get(), 7);
}

TEST(Then, IsNamedAfterTheTaskInFrontUnlessItIsGivenAName)
{
    KT::KTScopedPool pool(fixedSize(1));
    EXPECT_EQ(KT::submit(pool, "front", [] {}).then(threadName).get(), "KTTask: front [");
    EXPECT_EQ(KT::submit(pool, "front", [] {}).then("back", threadName).get(), "KTTask: back [r");
}

TEST(Then, CancelledLeavesTheTaskInFrontAlone)
{
    HeldPool held;
    std::atomic<bool> front(false);
    KT::KTFuture<void> back =
        KT::submit(held.pool, [&front] { front = true; }).then([] { ADD_FAILURE(); });
    EXPECT_TRUE(back.cancel());
    EXPECT_THROW(back.get(), KT::KTCancelled);
    held.release();
    EXPECT_TRUE(held.pool.close());
    EXPECT_TRUE(front);
}

TEST(Then, OfACancelledFutureIsCancelled)
{
    HeldPool held;
    KT::KTFuture<int> front = KT::submit(held.pool, [] { return 1; });
    front.cancel();
    KT::KTFuture<void> back = front.then([](int) { ADD_FAILURE(); });
    held.release();
    EXPECT_THROW(back.get(), KT::KTCancelled);
}

TEST(Then, IsDroppedByAShutdownWithAllThatFollows)
{
    HeldPool held;
    const auto captured = std::make_shared<int>(0);
    KT::KTFuture<void> last = KT::submit(held.pool, [] {});
    // Long enough to overflow a stack if one led to the next.
    for (int i = 0; i < 100000; ++i) {
        last = last.then([captured] { ADD_FAILURE(); });
    }
    held.pool.pool()->shutdown(false);
    EXPECT_TRUE(last.isReady());
    EXPECT_THROW(last.get(), KT::KTCancelled);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(Then, GoesOnForAsLongAsItTakes)
{
    KT::KTScopedPool pool;
    KT::KTFuture<int> last = KT::submit(pool, [] { return 0; });
    for (int i = 0; i < 20000; ++i) {
        last = last.then([](int n) { return n + 1; });
    }
    EXPECT_EQ(last.get(), 20000);
}

TEST(Then, AwaitedInATaskRunsTheWholeChainThere)
{
    KT::KTScopedPool pool(fixedSize(1));
    EXPECT_EQ(KT::submit(pool,
                         [&pool] {
                             KT::KTFuture<int> last = KT::submit(pool, [] { return 0; });
                             for (int i = 0; i < 1000; ++i) {
                                 last = last.then([](int n) { return n + 1; });
                             }
                             return last.get();
                         })
                  .get(),
              1000);
}

TEST(Then, IsAwaitedByAScopeThatEnds)
{
    std::atomic<bool> called(false);
    {
        KT::KTScopedPool pool;
        KT::submit(pool, [] { return 1; }).then([](int n) { return n; }).then([&called](int) {
            called = true;
        });
    }
    EXPECT_TRUE(called);
}

}  // namespace
