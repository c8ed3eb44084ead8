/// KTPoolOptions::maxQueued.
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <pthread.h>

#include "Async.h"

namespace {

using WhenFull = KT::KTPoolOptions::WhenFull;

/// Of one worker, for whom `most` tasks may wait.
KT::KTPoolOptions limitedTo(int most, WhenFull whenFull)
{
    KT::KTPoolOptions options = fixedSize(1);
    options.maxQueued = most;
    options.whenFull = whenFull;
    return options;
}

/// Its worker is held, and as many tasks wait as may.
struct FullPool : HeldPool {
    explicit FullPool(WhenFull whenFull, int most = 3) : HeldPool(limitedTo(most, whenFull))
    {
        for (int i = 0; i < most; ++i) {
            EXPECT_TRUE(KT::post(pool, "waits", [this] { ++ran; }));
        }
    }
    std::atomic<int> ran{0};
};

TEST(QueueLimit, RefusesWhatThereIsNoRoomFor)
{
    FullPool full(WhenFull::refuse);
    EXPECT_FALSE(KT::post(full.pool, [] { ADD_FAILURE(); }));
    EXPECT_THROW(KT::submit(full.pool, [] { ADD_FAILURE(); }).get(), KT::KTCancelled);
    const std::vector<std::function<void()>> batch(2, [] { ADD_FAILURE(); });
    EXPECT_FALSE(KT::postAll(full.pool, batch));
    EXPECT_EQ(full.pool.status().queuedTasks, 3);
    full.release();
    EXPECT_TRUE(eventually([&full] { return full.ran == 3; }));
    EXPECT_EQ(KT::submit(full.pool, [] { return 1; }).get(), 1);
}

TEST(QueueLimit, HasTheSubmitterRunIt)
{
    FullPool full(WhenFull::runHere);
    std::optional<std::thread::id> runner;
    EXPECT_TRUE(KT::post(full.pool, [&runner] { runner = std::this_thread::get_id(); }));
    EXPECT_EQ(runner, std::this_thread::get_id());
    EXPECT_EQ(KT::submit(full.pool, [] { return 5; }).get(), 5);
    EXPECT_EQ(full.ran, 0);
}

TEST(QueueLimit, BlocksUntilThereIsRoom)
{
    FullPool full(WhenFull::block);
    std::atomic<bool> isIn(false);
    std::thread submitter([&] {
        EXPECT_TRUE(KT::post(full.pool, [&full] { ++full.ran; }));
        isIn = true;
    });
    EXPECT_FALSE(isIn);
    full.release();
    submitter.join();
    EXPECT_TRUE(eventually([&full] { return full.ran == 4; }));
}

TEST(QueueLimit, CancelledTaskMakesRoom)
{
    HeldPool held(limitedTo(1, WhenFull::block));
    KT::KTFuture<void> waits = KT::submit(held.pool, [] { ADD_FAILURE(); });
    std::atomic<bool> ran(false);
    std::thread submitter([&] { KT::post(held.pool, [&ran] { ran = true; }); });
    waits.cancel();
    submitter.join();
    held.release();
    EXPECT_TRUE(eventually([&ran] { return ran.load(); }));
}

TEST(QueueLimit, IsNeverPassedByManySubmitters)
{
    KT::KTPoolOptions options = limitedTo(2, WhenFull::block);
    options.threads = options.maxThreads = 2;
    std::atomic<int> ran(0);
    std::atomic<int> most(0);
    {
        KT::KTScopedPool pool(options);
        std::vector<std::thread> submitters(4);
        for (std::thread& submitter : submitters) {
            submitter = std::thread([&] {
                for (int i = 0; i < 500; ++i) {
                    KT::post(pool, [&ran] { ++ran; });
                    most = std::max(most.load(), pool.status().queuedTasks);
                }
            });
        }
        for (std::thread& submitter : submitters) {
            submitter.join();
        }
    }
    EXPECT_EQ(ran, 2000);
    // And a carrier for each worker, counted as a task if it begins while the status is taken.
    EXPECT_LE(most, 2 + 2);
}

TEST(QueueLimit, TaskOfThePoolRunsWhatItSubmitsInsteadOfBlocking)
{
    KT::KTScopedPool pool(limitedTo(1, WhenFull::block));
    const int sum = KT::submit(pool, [&pool] {
                        KT::KTFuture<int> waits = KT::submit(pool, [] { return 1; });
                        KT::KTFuture<int> here = KT::submit(pool, [] { return 2; });
                        EXPECT_TRUE(here.isReady());
                        return waits.get() + here.get();
                    }).get();
    EXPECT_EQ(sum, 3);
}

TEST(QueueLimit, LeavesGroupsAndLoopsAlone)
{
    FullPool full(WhenFull::refuse);
    std::atomic<int> ran(0);
    KT::KTTaskGroup group(full.pool);
    group.run([&ran] { ++ran; });
    group.wait();
    KT::parallelFor(full.pool, 0, 3, [&ran](int) { ++ran; });
    EXPECT_EQ(ran, 4);
}

TEST(QueueLimit, BlockedSubmitterGoesOnWhenThePoolIsShutDown)
{
    FullPool full(WhenFull::block);
    const auto captured = std::make_shared<int>(0);
    std::thread submitter([&] { KT::post(full.pool, [captured] { ADD_FAILURE(); }); });
    full.pool.pool()->shutdown(false);
    submitter.join();
    // A submission that overlaps the shutdown may come in after it has emptied the queue: then
    // the clock drops the task.
    EXPECT_TRUE(eventually([&captured] { return captured.use_count() == 1; }));
}

TEST(QueueLimit, BlockedSubmitterMayBeCancelled)
{
    FullPool full(WhenFull::block);
    const auto captured = std::make_shared<int>(0);
    std::thread submitter([&] { KT::post(full.pool, [captured] { ADD_FAILURE(); }); });
    EXPECT_TRUE(eventually([&captured] { return captured.use_count() > 2; }));
    pthread_cancel(submitter.native_handle());
    submitter.join();
    EXPECT_TRUE(eventually([&captured] { return captured.use_count() == 1; }));
}

/// Submits to the pool when it is destroyed.
struct LastWord {
    explicit LastWord(KT::KTScopedPool& toTell) : pool(&toTell) {}
    ~LastWord()
    {
        KT::post(*pool, [] { ADD_FAILURE(); });
    }
    LastWord(const LastWord&) = delete;
    LastWord& operator=(const LastWord&) = delete;
    KT::KTScopedPool* pool;
};

TEST(QueueLimit, OfAClosedPoolLetsDestructorsSubmit)
{
    for (const WhenFull whenFull : {WhenFull::block, WhenFull::runHere, WhenFull::refuse}) {
        KT::KTScopedPool pool(limitedTo(1, whenFull));
        pool.close();
        EXPECT_FALSE(KT::post(pool, [last = std::make_unique<LastWord>(pool)] { ADD_FAILURE(); }));
    }
}

}  // namespace
