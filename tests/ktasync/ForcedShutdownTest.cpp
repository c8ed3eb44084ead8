/// Forced shutdowns: the cancelled threads unwind through this library, and waiters get an
/// exception. The tasks block in waits of conditions.
#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Async.h"

namespace {

/// Never returns, also when it is asked to stop.
void hang()
{
    KT::KTStopToken().waitFor(-1);
}

/// Counts itself while it lives: it is gone when its task has been unwound.
class Guard {
public:
    explicit Guard(std::atomic<int>& counter) : count(counter) { ++count; }
    ~Guard() { --count; }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    std::atomic<int>& count;
};

/// Must run in a process of its own, which must not be ended by it.
void cutOffBeforeARecorderEnds()
{
    const KT::KTScopedPool watched(fixedSize(1));
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<bool> begun(false);
    std::atomic<bool> cancelled(false);
    const KT::KTFuture<void> task = KT::submit(pool, [&] {
        auto trace = std::make_unique<KT::KTTraceRecorder>(watched, "/dev/null");
        begun = true;
        while (!cancelled) {  // reaches no cancellation point
        }
        trace.reset();
        hang();
    });
    while (!begun) {
        pool.pool()->wake();
        std::this_thread::yield();
    }
    pool.pool()->shutdown(true);
    cancelled = true;
    task.wait();
}

TEST(ForcedShutdownDeathTest, OfATaskWithARecorderDoesNotEndTheProcess)
{
    EXPECT_EXIT(
        {
            cutOffBeforeARecorderEnds();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

class ForcedShutdown : public testing::Test {
protected:
    /// Waits until `count` guards live, and cuts the pool off.
    void cutOff(int count)
    {
        ASSERT_TRUE(eventually(pool, [&] { return alive == count; }));
        ASSERT_TRUE(pool.pool()->close(true, 60000));
        EXPECT_EQ(alive, 0);
    }

    /// For tasks: blocks as `hang` does.
    void untilTwoAreAlive()
    {
        while (alive != 2) {
            pool.pool()->wake();
            KT::KTStopToken().waitFor(1);
        }
    }

    std::atomic<int> alive{0};
    KT::KTScopedPool pool{fixedSize(2)};
};

TEST_F(ForcedShutdown, CancelsTheFutureOfATaskThatItCutsOff)
{
    const auto captured = std::make_shared<int>(0);
    KT::KTFuture<int> future = KT::submit(pool, [this, captured] {
        const Guard guard(alive);
        hang();
        return 1;
    });
    KT::KTFuture<int> after = future.then([](int n) { return n; });
    cutOff(1);
    EXPECT_THROW(after.get(), KT::KTCancelled);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ForcedShutdown, ReleasesWaitersOnOtherThreads)
{
    std::vector<KT::KTFuture<void>> futures;
    for (int i = 0; i < 4; ++i) {
        futures.push_back(KT::submit(pool, [this] {
            const Guard guard(alive);
            hang();
        }));
    }
    std::atomic<int> cancelled(0);
    Threads waiting;
    for (KT::KTFuture<void>& future : futures) {
        waiting.start([&] {
            cancelled += thrownBy<KT::KTCancelled>([&future] { future.get(); }).has_value();
        });
    }
    cutOff(2);
    waiting.joinAll();
    EXPECT_EQ(cancelled, 4);
}

TEST_F(ForcedShutdown, UnwindsAWaitForAFuture)
{
    KT::KTFuture<void> outer = KT::submit(pool, [this] {
        const Guard guard(alive);
        KT::KTFuture<void> inner = KT::submit(pool, [this] {
            const Guard innerGuard(alive);
            hang();
        });
        untilTwoAreAlive();
        inner.get();
        ADD_FAILURE();
    });
    cutOff(2);
    EXPECT_THROW(outer.get(), KT::KTCancelled);
}

TEST_F(ForcedShutdown, UnwindsATaskThatAWaitingOneRuns)
{
    KT::KTFuture<void> outer = KT::submit(pool, [this] {
        const Guard guard(alive);
        KT::submit(pool, [this] {
            KT::submit(pool, [this] {
                const Guard innerGuard(alive);
                hang();
            }).get();
            ADD_FAILURE();
        }).get();
        ADD_FAILURE();
    });
    cutOff(2);
    EXPECT_THROW(outer.get(), KT::KTCancelled);
}

TEST_F(ForcedShutdown, UnwindsAGroupWithItsTasks)
{
    KT::KTFuture<void> outer = KT::submit(pool, [this] {
        const Guard guard(alive);
        KT::KTTaskGroup group(pool);
        for (int i = 0; i < 5; ++i) {
            group.run([this] {
                const Guard innerGuard(alive);
                hang();
            });
        }
        group.wait();
        ADD_FAILURE();
    });
    // One on the other worker, one that the waiting task runs itself.
    cutOff(3);
    EXPECT_THROW(outer.get(), KT::KTCancelled);
}

TEST_F(ForcedShutdown, MakesAGroupOnAnotherThreadThrow)
{
    KT::KTTaskGroup group(pool);
    for (int i = 0; i < 2; ++i) {
        group.run([this] {
            const Guard guard(alive);
            hang();
        });
    }
    cutOff(2);
    EXPECT_THROW(group.wait(), KT::KTCancelled);
    EXPECT_EQ(group.cancellations(), 2);
}

TEST_F(ForcedShutdown, UnwindsALoopThatATaskRuns)
{
    KT::KTFuture<void> outer = KT::submit(pool, [this] {
        KT::parallelFor(pool, 0, 100, [this](int) {
            const Guard guard(alive);
            hang();
        });
        ADD_FAILURE();
    });
    cutOff(2);
    EXPECT_THROW(outer.get(), KT::KTCancelled);
}

TEST_F(ForcedShutdown, OfALoopsWorkersReachesTheCaller)
{
    std::atomic<bool> isCutOff(false);
    const std::thread::id caller = std::this_thread::get_id();
    std::thread killer([&] {
        cutOff(2);
        isCutOff = true;
    });
    const auto loop = [&] {
        KT::parallelFor(
            pool, 0, 100,
            [&](int) {
                if (std::this_thread::get_id() == caller) {
                    EXPECT_TRUE(eventually([&isCutOff] { return isCutOff.load(); }));
                } else {
                    const Guard guard(alive);
                    hang();
                }
            },
            1);
    };
    EXPECT_THROW(loop(), KT::KTCancelled);
    killer.join();
}

TEST_F(ForcedShutdown, UnwindsThreadsMadeForDeepNesting)
{
    std::function<void(int)> nested = [&](int depth) {
        const Guard guard(alive);
        if (depth == 0) {
            hang();
        }
        KT::KTTaskGroup group(pool);
        group.run(nested, depth - 1);
        group.wait();
    };
    KT::KTFuture<void> outer = KT::submit(pool, nested, deepNesting / 5);
    cutOff(deepNesting / 5 + 1);
    EXPECT_THROW(outer.get(), KT::KTCancelled);
}

TEST_F(ForcedShutdown, UnwindsAProducerThatAFullGroupBlocks)
{
    KT::KTFuture<void> producer = KT::submit(pool, [this] {
        const Guard guard(alive);
        KT::KTTaskGroup group(pool, 1);
        group.run([this] {
            const Guard innerGuard(alive);
            hang();
        });
        untilTwoAreAlive();
        group.run([] { ADD_FAILURE(); });
        hang();  // the other task may be cut off first, and leave its place
    });
    cutOff(2);
    EXPECT_THROW(producer.get(), KT::KTCancelled);
}

}  // namespace
