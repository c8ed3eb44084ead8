/// What submitting costs in memory, and what happens when it runs out.
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Allocations.h"
#include "Async.h"

namespace {

using allocations::failEach;
using allocations::made;

/// Allocations in one call of `submitOne`, the mean of many calls whose tasks stay queued.
template <typename Submit>
double allocationsEach(HeldPool& held, const Submit& submitOne)
{
    const int calls = 512;
    // The thread's supply of used blocks, and that of the process, is empty by then.
    for (int i = 0; i < 1200; ++i) {
        submitOne(held.pool);
    }
    const long before = made;
    for (int i = 0; i < calls; ++i) {
        submitOne(held.pool);
    }
    return static_cast<double>(made - before) / calls;
}

/// What makes a job too large for a block that was used before: an allocation is made each time.
using Ballast = std::array<char, 256>;

/// A callable of 16 bytes with this result.
template <typename Result>
struct Sixteen {
    Result operator()() { return Result(); }
    std::array<void*, 2> captured;
};
template <typename Result>
using BoundSixteen = KT::detail::BoundOf<Sixteen<Result>>;

// Larger ones would not fit into the blocks of memory that are used again.
static_assert(sizeof(KT::detail::PostCall<BoundSixteen<void>>) <= 96, "a posted task");
static_assert(sizeof(KT::detail::GroupCall<BoundSixteen<void>>) <= 128, "a group's task");
static_assert(sizeof(KT::detail::FutureCall<BoundSixteen<void>>) <= 128, "a submitted task");
static_assert(sizeof(KT::detail::FutureCall<BoundSixteen<int>>) <= 128, "one with a result");

TEST(SubmitAllocations, AreOne)
{
    HeldPool held;
    const auto count = [&held](const auto& submitOne) { return allocationsEach(held, submitOne); };
    EXPECT_EQ(count([](auto& pool) { KT::submit(pool, [] {}); }), 1);
    EXPECT_EQ(count([](auto& pool) { KT::submit(pool, "named", [] {}); }), 1);
    EXPECT_EQ(count([](auto& pool) { KT::post(pool, [] {}); }), 1);
    EXPECT_EQ(count([](auto& pool) {
                  KT::submit(
                      pool, [](int a, int b) { return a + b; }, 1, 2);
              }),
              1);
    EXPECT_EQ(count([](auto& pool) { KT::submit(pool, "a name of twenty-six letters", [] {}); }),
              1);
}

TEST(SubmitAllocations, OfThenAreOne)
{
    HeldPool held;
    const long before = made;
    KT::KTFuture<void> last = KT::submit(held.pool, [] {});
    for (int i = 0; i < 100; ++i) {
        last = last.then([] {});
    }
    EXPECT_LE(made - before, 1 + 100);
}

TEST(SubmitAllocations, OfAGroupsTaskAreOne)
{
    HeldPool held;
    KT::KTTaskGroup group(held.pool);
    EXPECT_EQ(allocationsEach(held, [&group](auto&) { group.run([] {}); }), 1);
    group.wait();
}

TEST(SubmitOutOfMemory, ThrowsAndTheTaskNeverRuns)
{
    HeldPool held;
    int ran = 0;
    EXPECT_EQ(failEach([&] {
                  KT::submit(
                      held.pool, [&ran](const Ballast&) { ++ran; }, Ballast());
              }),
              1);
    held.release();
    EXPECT_TRUE(held.pool.close());
    EXPECT_EQ(ran, 1);
}

TEST(SubmitOutOfMemory, OfThePostedThrowsAndTheTaskNeverRuns)
{
    HeldPool held;
    int ran = 0;
    EXPECT_EQ(failEach([&] {
                  KT::post(
                      held.pool, [&ran](const Ballast&) { ++ran; }, Ballast());
              }),
              1);
    held.release();
    EXPECT_TRUE(held.pool.close());
    EXPECT_EQ(ran, 1);
}

TEST(SubmitOutOfMemory, OfTheCarrierDelaysTheTask)
{
    // More often than the pool has places for carriers.
    const int rounds = 3;
    std::atomic<int> ran(0);
    int submitted = 0;
    KT::KTScopedPool pool(fixedSize(2));
    for (int round = 0; round < rounds; ++round) {
        const int failures = failEach([&] {
            // No carrier is left from the time before.
            ASSERT_TRUE(eventually([&pool] { return pool.pool()->status().busyThreads == 0; }));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            EXPECT_TRUE(KT::post(
                pool, [&ran](const Ballast&) { ++ran; }, Ballast()));
            ++submitted;
        });
        EXPECT_GE(failures, 2);
        EXPECT_TRUE(eventually([&] { return ran == submitted; }));
    }
}

TEST(SubmitOutOfMemory, BatchThrowsAndNoneEverRuns)
{
    HeldPool held;
    int ran = 0;
    auto call = [&ran, ballast = Ballast()] { ran += ballast[0] + 1; };
    const std::vector<decltype(call)> calls(50, call);
    EXPECT_GT(failEach([&] { KT::submitAll(held.pool, calls); }), 50);
    held.release();
    EXPECT_TRUE(held.pool.close());
    EXPECT_EQ(ran, 50);
}

TEST(SubmitOutOfMemory, ToStdFutureLeavesTheFutureAsItWas)
{
    HeldPool held;
    KT::KTFuture<int> future = KT::submit(held.pool, [] { return 1; });
    std::future<int> result;
    EXPECT_GT(failEach([&] { result = KT::toStdFuture(std::move(future)); }), 0);
    held.release();
    EXPECT_EQ(result.get(), 1);
}

TEST(SubmitOutOfMemory, ThenLeavesTheCallableAsItWas)
{
    HeldPool held;
    KT::KTFuture<int> front = KT::submit(held.pool, [] { return 1; });
    KT::KTFuture<int> back;
    auto add = [one = std::make_shared<int>(1), ballast = Ballast()](int n) {
        return n + *one + ballast[0];
    };
    EXPECT_EQ(failEach([&] { back = front.then(std::move(add)); }), 1);
    held.release();
    EXPECT_EQ(back.get(), 2);
}

TEST(SubmitOutOfMemory, ThenThrowsAndLeavesTheFutureAsItWas)
{
    HeldPool held;
    KT::KTFuture<int> front = KT::submit(held.pool, [] { return 1; });
    KT::KTFuture<int> back;
    const auto addOne = [ballast = Ballast()](int n) { return n + 1 + ballast[0]; };
    EXPECT_EQ(failEach([&] { back = front.then(addOne); }), 1);
    held.release();
    EXPECT_EQ(back.get(), 2);
}

TEST(SubmitOutOfMemory, GroupGivesThePlaceBack)
{
    HeldPool held;
    int ran = 0;
    KT::KTTaskGroup group(held.pool, 1);
    EXPECT_EQ(failEach([&] { group.run([&ran](const Ballast&) { ++ran; }, Ballast()); }), 1);
    group.wait();
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
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

}  // namespace
