#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include "Async.h"

namespace {

using testing::HasSubstr;

TEST(Post, CallsWithCopiesOfTheArguments)
{
    std::atomic<int> sum(0);
    {
        KT::KTScopedPool pool;
        int one = 1;
        EXPECT_TRUE(KT::post(
            pool, [&sum](int a, std::unique_ptr<int> b) { sum += a + *b; }, one,
            std::make_unique<int>(2)));
        EXPECT_TRUE(KT::post(pool, "named", [&sum] { sum += 4; }));
        one = 100;
    }
    EXPECT_EQ(sum, 7);
}

TEST(Post, OfABarePoolRuns)
{
    const auto pool = boost::make_shared<KT::KTThreadPool>(2, 2, 0, 0, 0);
    pool->init(2, 2, 0, 0, 0);
    std::atomic<int> ran(0);
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(KT::post(pool, [&ran] { ++ran; }));
    }
    EXPECT_TRUE(eventually([&ran] { return ran == 100; }));
    pool->close();
}

TEST(Post, LogsAnException)
{
    const LogCapture log("ktasync");
    {
        KT::KTScopedPool pool;
        KT::post(pool, "careless", [] { throw std::runtime_error("dropped it"); });
        KT::post(pool, "given up", [] { throw KT::KTCancelled("given up"); });
    }
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_THAT(log.records()[0].text, HasSubstr("careless"));
    EXPECT_THAT(log.records()[0].text, HasSubstr("dropped it"));
}

TEST(Post, GivesAStopTokenToACallableThatTakesOne)
{
    KT::KTPoolOptions options = fixedSize(1);
    options.queued = KT::KTPoolOptions::Queued::drop;
    std::atomic<bool> wasAsked(false);
    {
        Gate gate;
        KT::KTScopedPool pool(options);
        KT::post(pool, [&](const KT::KTStopToken& stop) {
            gate.pass();
            wasAsked = stop.waitFor(-1);
        });
        ASSERT_TRUE(untilArrived(pool, gate));
        gate.open();
    }
    EXPECT_TRUE(wasAsked);
}

TEST(Post, ToAClosedPoolSaysSoAndDestroysTheCallable)
{
    KT::KTScopedPool pool;
    pool.close();
    const auto captured = std::make_shared<int>(0);
    EXPECT_FALSE(KT::post(pool, [captured] { ADD_FAILURE(); }));
    const std::vector<std::function<void()>> batch(3, [captured] { ADD_FAILURE(); });
    EXPECT_FALSE(KT::postAll(pool, batch));
    EXPECT_EQ(captured.use_count(), 4);  // the batch has its three
}

TEST(Post, IsDroppedByAShutdown)
{
    const auto captured = std::make_shared<int>(0);
    HeldPool held;
    KT::post(held.pool, [captured] { ADD_FAILURE(); });
    held.pool.pool()->shutdown(false);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(PostAll, RunsInOrder)
{
    std::vector<int> order;
    {
        HeldPool held;
        std::vector<std::function<void()>> batch;
        for (int i = 0; i < 100; ++i) {
            batch.emplace_back([&order, i] { order.push_back(i); });
        }
        EXPECT_TRUE(KT::postAll(held.pool, "part", batch));
        EXPECT_EQ(held.pool.status().queuedTasks, 100);
    }
    ASSERT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(Post, ShowsTheNameOfEachTask)
{
    std::string names[3];
    KT::KTScopedPool pool(fixedSize(1));
    KT::post(pool, "first", [&names] { names[0] = threadName(); });
    KT::post(pool, "first", [&names] { names[1] = threadName(); });
    KT::post(pool, "second", [&names] { names[2] = threadName(); });
    pool.close();
    EXPECT_EQ(names[0], "KTTask: first [");
    EXPECT_EQ(names[1], "KTTask: first [");
    EXPECT_EQ(names[2], "KTTask: second ");
}

TEST(Post, LeavesAWorkerThatWaitsNamedAsSleeping)
{
    KT::KTScopedPool pool(fixedSize(1));
    KT::submit(pool, "task", [] {}).get();
    EXPECT_TRUE(eventually([] {
        const auto sleeping = threadsNamed("KTThread [sleep");
        return sleeping.size() == 1;
    }));
}

}  // namespace
