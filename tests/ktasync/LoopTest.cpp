#include <atomic>
#include <climits>
#include <cstdint>
#include <forward_list>
#include <list>
#include <mutex>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Async.h"

namespace {

using testing::HasSubstr;

/// The passes of a loop, each counted.
std::vector<int> countsOf(KT::KTScopedPool& pool, int passes, std::ptrdiff_t grain)
{
    std::vector<std::atomic<int>> counts(static_cast<std::size_t>(passes));
    KT::parallelFor(
        pool, 0, passes, [&](int i) { ++counts[static_cast<std::size_t>(i)]; }, grain);
    return {counts.begin(), counts.end()};
}

TEST(ParallelFor, CallsEachPassOnce)
{
    KT::KTScopedPool pool(fixedSize(3));
    for (const int passes : {0, 1, 2, 255, 256, 257, 1000, 100003}) {
        for (const std::ptrdiff_t grain : {0, 1, 7, 1000000}) {
            EXPECT_EQ(countsOf(pool, passes, grain),
                      std::vector<int>(static_cast<std::size_t>(passes), 1))
                << passes << " passes, grain " << grain;
        }
    }
}

TEST(ParallelFor, GoesOverAnyIntegers)
{
    KT::KTScopedPool pool;
    const auto passes = [&pool](auto first, auto last) {
        std::atomic<std::uint64_t> count(0);
        std::atomic<std::int64_t> sum(0);
        KT::parallelFor(
            pool, first, last,
            [&](auto i) {
                ++count;
                sum += static_cast<std::int64_t>(i);
            },
            16);
        return std::make_pair(count.load(), sum.load());
    };
    using Result = std::pair<std::uint64_t, std::int64_t>;
    EXPECT_EQ(passes(-5, 5), Result(10, -5));
    EXPECT_EQ(passes(5, -5), Result(0, 0));
    EXPECT_EQ(passes(static_cast<signed char>(-128), static_cast<signed char>(127)),
              Result(255, -255));
    EXPECT_EQ(passes(static_cast<unsigned char>(0), static_cast<unsigned char>(255)),
              Result(255, 32385));
    EXPECT_EQ(passes(0, 10L), Result(10, 45));
    EXPECT_EQ(passes(INT_MAX - 3, INT_MAX), Result(3, 3LL * INT_MAX - 6));
    EXPECT_EQ(passes(UINT64_MAX - 2, UINT64_MAX).first, 2U);
    EXPECT_EQ(passes(INT64_MIN, INT64_MIN + 3).first, 3U);
}

TEST(ParallelFor, IsSharedByTheWorkersAndTheCaller)
{
    KT::KTScopedPool pool(fixedSize(2));
    Gate gate;
    std::thread opener([&] {
        EXPECT_TRUE(untilArrived(pool, gate, 3));
        gate.open();
    });
    KT::parallelFor(pool, 0, 3, [&gate](int) { gate.pass(); });
    opener.join();
}

TEST(ParallelFor, IsDoneByTheCallerAloneIfNoWorkerIsFree)
{
    HeldPool held;
    std::set<std::thread::id> threads;
    KT::parallelFor(held.pool, 0, 1000,
                    [&threads](int) { threads.insert(std::this_thread::get_id()); });
    EXPECT_EQ(threads, std::set<std::thread::id>{std::this_thread::get_id()});
}

TEST(ParallelFor, IsDoneByTheCallerAloneWithAStoppedPool)
{
    KT::KTScopedPool pool;
    pool.close();
    int passes = 0;
    KT::parallelFor(pool, 0, 1000, [&passes](int) { ++passes; });
    EXPECT_EQ(passes, 1000);
}

TEST(ParallelFor, MayBeNestedWithOneWorker)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<int> passes(0);
    const auto loops = [&] {
        KT::parallelFor(pool, 0, 10, [&](int) {
            KT::parallelFor(pool, 0, 10,
                            [&](int) { KT::parallelFor(pool, 0, 10, [&](int) { ++passes; }); });
        });
    };
    loops();
    EXPECT_EQ(passes, 1000);
    KT::submit(pool, loops).get();
    EXPECT_EQ(passes, 2000);
}

TEST(ParallelFor, StopsEarlyWhenAPassThrows)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool(fixedSize(2));
    for (const int thrower : {0, 500, 99999}) {
        std::atomic<int> passes(0);
        const auto loop = [&] {
            KT::parallelFor(
                pool, 0, 100000,
                [&](int i) {
                    if (i == thrower) {
                        throw std::runtime_error(std::to_string(i));
                    }
                    ++passes;
                },
                1);
        };
        const auto error = thrownBy<std::runtime_error>(loop);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->what(), std::to_string(thrower));
        EXPECT_LT(passes, 100000);
    }
    EXPECT_TRUE(log.records().empty());
}

TEST(ParallelFor, ThrowsWhatWasThrownFirst)
{
    KT::KTScopedPool pool(fixedSize(1));
    const std::thread::id caller = std::this_thread::get_id();
    std::atomic<bool> hasThrown(false);
    const auto loop = [&] {
        KT::parallelFor(
            pool, 0, 2,
            [&](int) {
                if (std::this_thread::get_id() != caller) {
                    hasThrown = true;
                    throw std::runtime_error("helper");
                }
                EXPECT_TRUE(eventually(pool, [&hasThrown] { return hasThrown.load(); }));
                // The helper has left the piece, and is about to keep what it threw.
                EXPECT_TRUE(eventually([&pool] { return pool.status().busyThreads == 0; }));
                throw std::logic_error("caller");
            },
            1);
    };
    EXPECT_THROW(loop(), std::runtime_error);
}

TEST(ParallelFor, DoesNoMorePassesOnceOneHasThrown)
{
    KT::KTScopedPool pool;
    pool.close();
    int passes = 0;
    const auto loop = [&] {
        KT::parallelFor(
            pool, 0, 1000,
            [&passes](int) {
                ++passes;
                throw 1;
            },
            1);
    };
    EXPECT_THROW(loop(), int);
    EXPECT_EQ(passes, 1);
}

TEST(ParallelFor, LeavesStopMarksOfItsPassesAlone)
{
    KT::KTScopedPool pool(fixedSize(4));
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> ran(0);
        KT::parallelFor(pool, 0, 8, [&](int) {
            KT::KTTaskGroup group(pool);
            group.run([&ran] { ++ran; });
        });
        ASSERT_EQ(ran, 8);
    }
}

TEST(ParallelFor, RefusesANegativeGrain)
{
    KT::KTScopedPool pool;
    const auto error = thrownBy<KT::KTError>([&] {
        KT::parallelFor(
            pool, 0, 10, [](int) {}, -1);
    });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->toString(), HasSubstr("grain is -1"));
}

// The sum of the indices from `first` to `last`.
template <typename First, typename Last>
std::int64_t sumOf(First first, Last last)
{
    KT::KTScopedPool pool;
    const auto itself = [](auto i) { return static_cast<std::int64_t>(i); };
    return KT::parallelReduce(pool, first, last, std::int64_t(0), itself);
}

TEST(ParallelFor, GoesFromANegativeBoundToAnUnsignedOne)
{
    EXPECT_EQ(sumOf(-5, 5U), -5);
    EXPECT_EQ(sumOf(-5, std::uint64_t(5)), -5);
    EXPECT_EQ(sumOf(-5, std::uint8_t(5)), -5);
    EXPECT_EQ(sumOf(0UL, -1), 0);
    EXPECT_EQ(sumOf(0, 10U), 45);
    std::atomic<int> passes(0);
    KT::KTScopedPool pool;
    KT::parallelFor(pool, INT64_MAX, UINT64_MAX / 2 + 3, [&passes](std::uint64_t) { ++passes; });
    EXPECT_EQ(passes, 3);
}

TEST(ParallelFor, RefusesBoundsThatNo64BitsHold)
{
    KT::KTScopedPool pool;
    const auto pass = [](auto) { ADD_FAILURE(); };
    EXPECT_THROW(KT::parallelFor(pool, -1, UINT64_MAX, pass), KT::KTError);
    EXPECT_THROW(KT::parallelFor(pool, UINT64_MAX, -1, pass), KT::KTError);
}

TEST(ParallelForEach, CallsForEachElement)
{
    KT::KTScopedPool pool;
    std::vector<int> numbers(1000);
    std::iota(numbers.begin(), numbers.end(), 0);
    KT::parallelForEach(pool, numbers, [](int& n) { n *= 2; });
    EXPECT_EQ(std::accumulate(numbers.begin(), numbers.end(), 0), 999000);

    std::list<int> list(numbers.begin(), numbers.end());
    KT::parallelForEach(
        pool, list, [](int& n) { n += 1; }, 3);
    EXPECT_EQ(std::accumulate(list.begin(), list.end(), 0), 1000000);

    const std::forward_list<int> constant(list.begin(), list.end());
    std::atomic<int> sum(0);
    KT::parallelForEach(pool, constant, [&sum](const int& n) { sum += n; });
    EXPECT_EQ(sum, 1000000);

    int array[] = {1, 2, 3};
    KT::parallelForEach(pool, array, [](int& n) { n = -n; });
    EXPECT_EQ(array[2], -3);
    KT::parallelForEach(pool, std::vector<int>(), [](int) { ADD_FAILURE(); });
}

TEST(ParallelReduce, CombinesAllInOrder)
{
    KT::KTScopedPool pool(fixedSize(3));
    EXPECT_EQ(KT::parallelReduce(pool, 0, 100000, 0LL, [](int i) { return i; }), 4999950000LL);
    EXPECT_EQ(KT::parallelReduce(pool, 0, 0, 7, [](int i) { return i; }), 7);
    EXPECT_EQ(KT::parallelReduce(
                  pool, 1, 11, 1, [](int i) { return i; }, std::multiplies<>()),
              3628800);
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        expected += std::to_string(i);
    }
    for (const std::ptrdiff_t grain : {0, 1, 9, 5000}) {
        EXPECT_EQ(KT::parallelReduce(
                      pool, 0, 1000, std::string(), [](int i) { return std::to_string(i); },
                      std::plus<>(), grain),
                  expected);
    }
}

TEST(ParallelReduce, RoundsTheSameHoweverManyThreadsThereAre)
{
    const auto sum = [](KT::KTScopedPool& pool, std::ptrdiff_t grain) {
        return KT::parallelReduce(
            pool, 1, 100000, 0.0F, [](int i) { return 1.0F / static_cast<float>(i); },
            std::plus<>(), grain);
    };
    KT::KTScopedPool alone(fixedSize(1));
    alone.close();
    KT::KTScopedPool many(fixedSize(5));
    for (const std::ptrdiff_t grain : {0, 10, 1000}) {
        const float expected = sum(alone, grain);
        for (int round = 0; round < 20; ++round) {
            ASSERT_EQ(sum(many, grain), expected) << "grain " << grain;
        }
    }
    // Grains do make a difference, or the above would show nothing.
    EXPECT_NE(sum(alone, 10), sum(alone, 100000));
}

TEST(ParallelReduce, ExceptionsOfMapAndCombineReachTheCaller)
{
    KT::KTScopedPool pool;
    EXPECT_THROW(KT::parallelReduce(pool, 0, 1000, 0, [](int i) -> int { throw i; }), int);
    EXPECT_THROW(KT::parallelReduce(
                     pool, 0, 1000, 0, [](int i) { return i; },
                     [](int, int) -> int { throw std::logic_error("combine"); }),
                 std::logic_error);
}

}  // namespace
