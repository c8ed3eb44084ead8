/// What submitting costs in memory, and what happens when it runs out.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Allocations.h"
#include "Async.h"

namespace {

using allocations::failEach;
using allocations::made;

/// Allocations in one call of `submitOne`, the mean of many calls. Without the blocks of the pool's
/// queue, each of which holds many tasks.
template <typename Submit>
double allocationsEach(HeldPool& held, const Submit& submitOne)
{
    const int calls = 512;
    const int queueBlocks = calls / 256;
    const long before = made;
    for (int i = 0; i < calls; ++i) {
        submitOne(held.pool);
    }
    return static_cast<double>(made - before - queueBlocks) / calls;
}

TEST(SubmitAllocations, AreTwo)
{
    HeldPool held;
    const auto count = [&held](const auto& submitOne) { return allocationsEach(held, submitOne); };
    // The queue may allocate one block more or less, or its map.
    const double margin = 0.02;
    EXPECT_NEAR(count([](auto& pool) { KT::submit(pool, [] {}); }), 2, margin);
    EXPECT_NEAR(count([](auto& pool) { KT::submit(pool, "named", [] {}); }), 2, margin);
    EXPECT_NEAR(count([](auto& pool) {
                    KT::submit(
                        pool, [](int a, int b) { return a + b; }, 1, 2);
                }),
                2, margin);
    // Too long for a string without an allocation.
    EXPECT_NEAR(count([](auto& pool) { KT::submit(pool, "a name of twenty-six letters", [] {}); }),
                3, margin);
    const auto inALambdaWithAVeryLongFunctionAround = [](auto& pool) { KT::submit(pool, [] {}); };
    EXPECT_NEAR(count(inALambdaWithAVeryLongFunctionAround), 2, margin);
}

TEST(SubmitAllocations, OfThenAreTwo)
{
    HeldPool held;
    const long before = made;
    KT::KTFuture<void> last = KT::submit(held.pool, [] {});
    for (int i = 0; i < 100; ++i) {
        last = last.then([] {});
    }
    EXPECT_LE(made - before, 2 + 200 + 1);
}

TEST(SubmitAllocations, OfAGroupsTaskAreTwo)
{
    HeldPool held;
    KT::KTTaskGroup group(held.pool);
    EXPECT_NEAR(allocationsEach(held, [&group](auto&) { group.run([] {}); }), 2, 0.02);
    group.wait();
}

TEST(SubmitOutOfMemory, ThrowsAndTheTaskNeverRuns)
{
    HeldPool held;
    int ran = 0;
    EXPECT_GE(failEach([&] { KT::submit(held.pool, [&ran] { ++ran; }); }), 2);
    held.release();
    EXPECT_TRUE(held.pool.close());
    EXPECT_EQ(ran, 1);
}

TEST(SubmitOutOfMemory, BatchThrowsAndNoneEverRuns)
{
    HeldPool held;
    int ran = 0;
    const std::vector<std::function<void()>> calls(50, [&ran] { ++ran; });
    EXPECT_GT(failEach([&] { KT::submitAll(held.pool, calls); }), 100);
    held.release();
    EXPECT_TRUE(held.pool.close());
    EXPECT_EQ(ran, 50);
}

TEST(SubmitOutOfMemory, ThenThrowsAndLeavesTheFutureAsItWas)
{
    HeldPool held;
    KT::KTFuture<int> front = KT::submit(held.pool, [] { return 1; });
    KT::KTFuture<int> back;
    EXPECT_EQ(failEach([&] { back = front.then([](int n) { return n + 1; }); }), 2);
    held.release();
    EXPECT_EQ(back.get(), 2);
}

TEST(SubmitOutOfMemory, GroupGivesThePlaceBack)
{
    HeldPool held;
    int ran = 0;
    KT::KTTaskGroup group(held.pool, 1);
    EXPECT_GE(failEach([&] { group.run([&ran] { ++ran; }); }), 2);
    try {
        group.wait();
    } catch (const KT::KTCancelled&) {
        // For the tasks whose allocation failed.
    }
    EXPECT_EQ(ran, 1);
}

TEST(SubmitOutOfMemory, LoopThrowsOrIsDoneWhole)
{
    KT::KTScopedPool pool(fixedSize(2));
    std::atomic<int> passes(0);
    EXPECT_GT(failEach([&] {
                  passes = 0;
                  KT::parallelFor(pool, 0, 1000, [&passes](int) { ++passes; });
              }),
              2);
    EXPECT_EQ(passes, 1000);
}

TEST(SubmitOutOfMemory, PoolThrowsAndLeavesNoThread)
{
    EXPECT_GT(failEach([] { KT::KTScopedPool pool(fixedSize(3)); }), 20);
    EXPECT_TRUE(eventually([] { return threadsNamed("KT").empty(); }));
}

}  // namespace
