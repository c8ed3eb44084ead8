#include <algorithm>
#include <atomic>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <spdlog/common.h>

#include "Async.h"
#include "Platform.h"

namespace {

using testing::HasSubstr;

int lengthOf(const std::string& text)
{
    return static_cast<int>(text.size());
}

TEST(Submit, GivesTheResultOfTheCall)
{
    KT::KTScopedPool pool;
    KT::KTFuture<int> length = KT::submit(pool, "length", lengthOf, "four");
    EXPECT_EQ(length.get(), 4);
    EXPECT_EQ(KT::submit(pool, [] { return std::string("text"); }).get(), "text");
}

TEST(Submit, TakesAPoolOfTheCoreToo)
{
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    EXPECT_EQ(KT::submit(pool, [] { return 3; }).get(), 3);
    EXPECT_TRUE(pool->close());
}

TEST(Submit, RunsOnAWorker)
{
    KT::KTScopedPool pool;
    EXPECT_NE(KT::submit(pool, [] { return std::this_thread::get_id(); }).get(),
              std::this_thread::get_id());
}

TEST(Submit, OneWorkerCallsInArrivalOrder)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::vector<int> called;
    std::vector<int> expected;
    KT::KTFuture<void> last;
    for (int i = 0; i < 500; ++i) {
        expected.push_back(i);
        last = KT::submit(pool, [&called, i] { called.push_back(i); });
    }
    last.get();
    EXPECT_EQ(called, expected);
}

TEST(Submit, VoidReferencesAndMoveOnlyTypesPass)
{
    KT::KTScopedPool pool;
    bool called = false;
    KT::submit(pool, [&called] { called = true; }).get();
    EXPECT_TRUE(called);

    int target = 1;
    KT::KTFuture<int&> reference = KT::submit(pool, [&target]() -> int& { return target; });
    EXPECT_EQ(&reference.get(), &target);

    std::string text;
    KT::KTFuture<std::string&&> movable =
        KT::submit(pool, [&text]() -> std::string&& { return std::move(text); });
    std::string&& moved = movable.get();
    EXPECT_EQ(&moved, &text);

    auto owner = std::make_unique<int>(7);
    const int* const address = owner.get();
    auto passed = KT::submit(
        pool,
        [more = std::make_unique<int>(1)](std::unique_ptr<int> value) {
            *value += *more;
            return value;
        },
        std::move(owner));
    const std::unique_ptr<int> back = passed.get();
    EXPECT_EQ(back.get(), address);
    EXPECT_EQ(*back, 8);
}

TEST(Submit, CopiesArgumentsUnlessTheyAreWrapped)
{
    KT::KTScopedPool pool;
    std::string text = "a";
    KT::submit(
        pool, [](std::string& mine) { mine += "b"; }, std::ref(text))
        .get();
    EXPECT_EQ(text, "ab");
    KT::submit(
        pool, [](std::string mine) { mine += "c"; }, text)
        .get();
    EXPECT_EQ(text, "ab");
}

struct Counter {
    int value = 0;
    int add(int n) { return value += n; }
};

TEST(Submit, CallsMemberFunctions)
{
    KT::KTScopedPool pool;
    Counter counter;
    EXPECT_EQ(KT::submit(pool, &Counter::add, &counter, 5).get(), 5);
    EXPECT_EQ(counter.value, 5);
}

TEST(Submit, DestroysTheCallableBeforeTheFutureIsReady)
{
    KT::KTScopedPool pool;
    for (int i = 0; i < 200; ++i) {
        const auto held = std::make_shared<int>(i);
        KT::submit(pool, [held] {}).get();
        ASSERT_EQ(held.use_count(), 1);
    }
}

TEST(Submit, RefusesAnEmptyPointer)
{
    const boost::shared_ptr<KT::KTThreadPool> none;
    const auto error = thrownBy<KT::KTError>([&] { KT::submit(none, [] {}); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->toString(), HasSubstr("there is no pool"));
}

TEST(Submit, StoppedPoolCancelsAtOnce)
{
    KT::KTScopedPool pool;
    ASSERT_TRUE(pool.close());
    std::atomic<bool> called(false);
    KT::KTFuture<void> future = KT::submit(pool, "late", [&called] { called = true; });
    EXPECT_TRUE(future.isReady());
    const auto error = thrownBy<KT::KTCancelled>([&] { future.get(); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->toString(), HasSubstr("late: cancelled"));
    EXPECT_FALSE(called);
}

TEST(SubmitErrors, ReachTheCallerOfGet)
{
    KT::KTScopedPool pool;
    auto failing = KT::submit(pool, []() -> int { throw KT::KTError("m", "f", "text", "", 1); });
    EXPECT_THROW(failing.get(), KT::KTError);
    EXPECT_THROW(KT::submit(pool, [] { throw std::runtime_error("no"); }).get(),
                 std::runtime_error);
    EXPECT_THROW(KT::submit(pool, [] { throw 5; }).get(), int);
    EXPECT_THROW(KT::submit(pool, [] { throw "text"; }).get(), const char*);
    // The worker goes on.
    EXPECT_EQ(KT::submit(pool, [] { return 1; }).get(), 1);
}

struct MoveOnlyError {
    explicit MoveOnlyError(int n) : number(std::make_unique<int>(n)) {}
    std::unique_ptr<int> number;
};

TEST(SubmitErrors, MayBeOfAnyType)
{
    KT::KTScopedPool pool;
    try {
        KT::submit(pool, [] { throw MoveOnlyError(9); }).get();
        FAIL();
    } catch (const MoveOnlyError& error) {
        EXPECT_EQ(*error.number, 9);
    }
}

TEST(SubmitErrors, ThrownByTheResultOrTheArgumentsReachTheFuture)
{
    struct Bad {
        Bad() = default;
        Bad(const Bad&) { throw std::logic_error("copy"); }
    };
    KT::KTScopedPool pool;
    static const Bad bad;
    EXPECT_THROW(KT::submit(pool, []() -> Bad { return bad; }).get(), std::logic_error);
    // Copied by the caller: thrown to it.
    std::atomic<bool> called(false);
    EXPECT_THROW(KT::submit(
                     pool, [&called](const Bad&) { called = true; }, bad),
                 std::logic_error);
    EXPECT_FALSE(called);
}

TEST(SubmitErrors, ThatNobodyCanSeeAreLogged)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool;
    KT::submit(pool, "worked", [] {});
    KT::submit(pool, "seen", [] { throw 1; }).wait();
    EXPECT_THROW(KT::submit(pool, "thrown", [] { throw 2; }).get(), int);
    KT::submit(pool, "unseen", [] { throw std::runtime_error("the reason"); });
    ASSERT_TRUE(pool.close());
    ASSERT_EQ(log.records().size(), 2U);
    EXPECT_EQ(log.records()[0].text,
              "task 'seen' failed, and nobody asked for its result: an exception that is no "
              "std::exception");
    EXPECT_EQ(log.records()[1].text,
              "task 'unseen' failed, and nobody asked for its result: the reason");
    EXPECT_EQ(log.records()[1].level, spdlog::level::warn);
}

KT::KTFuture<std::string> loadMap(const KT::KTScopedPool& pool)
{
    return KT::submit(pool, threadName);
}

TEST(TaskNames, ShowOnTheThread)
{
    KT::KTScopedPool pool;
    EXPECT_EQ(KT::submit(pool, "index", threadName).get(), "KTTask: index [");
    EXPECT_EQ(KT::submit(pool, std::string("abcdefghij"), threadName).get(), "KTTask: abcdefg");
}

TEST(TaskNames, ComeFromTheCallWhenNoneIsGiven)
{
    KT::KTScopedPool pool;
    EXPECT_EQ(loadMap(pool).get(), "KTTask: loadMap");
    const auto inLambda = [&pool] { return KT::submit(pool, threadName); };
    EXPECT_EQ(inLambda().get(), "KTTask: SubmitT");
}

TEST(TaskNames, OfAnyLengthAreKeptForReports)
{
    const LogCapture log("ktasync");
    KT::KTScopedPool pool;
    KT::submit(pool, "a rather long name of a task", [] { throw 1; });
    ASSERT_TRUE(pool.close());
    // As much as a thread name could hold.
    EXPECT_THAT(log.records().at(0).text, HasSubstr("'a rather long n'"));
}

TEST(StopToken, IsGivenToACallableThatTakesIt)
{
    KT::KTScopedPool pool;
    EXPECT_FALSE(
        KT::submit(pool, [](const KT::KTStopToken& stop) { return stop.stopRequested(); }).get());
    EXPECT_EQ(KT::submit(
                  pool, [](const KT::KTStopToken&, int n) { return n; }, 4)
                  .get(),
              4);
    EXPECT_EQ(KT::submit(
                  pool, [](auto... values) { return sizeof...(values); }, 1, 2)
                  .get(),
              2U);
}

TEST(StopToken, IsRaisedByAShutdownAndStaysRaised)
{
    KT::KTScopedPool pool;
    Gate gate;
    KT::KTStopToken kept;
    KT::KTFuture<bool> stopped = KT::submit(pool, [&](const KT::KTStopToken& stop) {
        kept = stop;
        gate.pass();
        return stop.waitFor(-1);
    });
    ASSERT_TRUE(untilArrived(pool, gate));
    gate.open();
    pool.pool()->shutdown(false);
    EXPECT_TRUE(stopped.get());
    ASSERT_TRUE(pool.close());
    EXPECT_TRUE(kept.stopRequested());
    EXPECT_TRUE(kept.waitFor(-1));
    EXPECT_THROW(kept.throwIfStopRequested(), KT::KTCancelled);
}

TEST(StopToken, WaitsForAsLongAsItIsTold)
{
    KT::KTScopedPool pool;
    EXPECT_FALSE(
        KT::submit(pool, [](const KT::KTStopToken& stop) { return stop.waitFor(5); }).get());
    EXPECT_FALSE(KT::KTStopToken().waitFor(5));
    EXPECT_FALSE(KT::KTStopToken().stopRequested());
    EXPECT_NO_THROW(KT::KTStopToken().throwIfStopRequested());
}

/// A result that keeps its own task, by the token.
struct WithToken {
    KT::KTStopToken token;
    std::shared_ptr<int> kept;
};

class TokenInAResult : public testing::Test {
protected:
    KT::KTFuture<WithToken> submit()
    {
        return KT::submit(held.pool, [kept = kept](const KT::KTStopToken& stop) {
            return WithToken{stop, kept};
        });
    }
    bool isDestroyed()
    {
        return eventually([this] { return kept.use_count() == 1; });
    }

    const std::shared_ptr<int> kept = std::make_shared<int>(0);
    HeldPool held;
};

TEST_F(TokenInAResult, IsDestroyedWithItWhenTheFutureGoes)
{
    KT::KTFuture<WithToken> future = submit();
    held.release();
    future.wait();
    future = KT::KTFuture<WithToken>();
    EXPECT_TRUE(isDestroyed());
}

TEST_F(TokenInAResult, IsDestroyedWithItWhenTheTaskEndsIfTheFutureWentBefore)
{
    submit();
    held.release();
    EXPECT_TRUE(isDestroyed());
}

TEST_F(TokenInAResult, IsDestroyedWithItWhenWhatFollowsIsCancelled)
{
    KT::KTFuture<void> next = submit().then([](const WithToken&) {});
    next.cancel();
    held.release();
    EXPECT_TRUE(isDestroyed());
}

TEST_F(TokenInAResult, LastsForAsLongAsTheResult)
{
    KT::KTFuture<WithToken> future = submit();
    held.release();
    {
        const WithToken result = future.get();
        EXPECT_FALSE(result.token.stopRequested());
    }
    EXPECT_TRUE(isDestroyed());
}

TEST_F(TokenInAResult, IsDestroyedWithAnExceptionThatHasItWhenTheFutureGoes)
{
    const LogCapture log("ktasync");
    KT::submit(held.pool, [kept = kept](const KT::KTStopToken& stop) {
        throw WithToken{stop, kept};
    });
    held.release();
    EXPECT_TRUE(isDestroyed());
}

TEST(SubmitAll, CallsAllInOrderAndGivesTheirFutures)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::vector<int> order;
    std::vector<std::function<int()>> calls;
    calls.reserve(100);
    for (int i = 0; i < 100; ++i) {
        calls.emplace_back([&order, i] {
            order.push_back(i);
            return i * i;
        });
    }
    std::vector<KT::KTFuture<int>> futures = KT::submitAll(pool, "square", calls);
    ASSERT_EQ(futures.size(), 100U);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(futures[static_cast<std::size_t>(i)].get(), i * i);
    }
    // Read only now: calls not yet made would still write to it.
    EXPECT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_TRUE(calls[0]);
}

TEST(SubmitAll, HasNothingInBetween)
{
    HeldPool held;
    std::vector<int> order;
    const int batches = 20;
    const int ofEach = 50;
    std::vector<std::thread> submitters;
    for (int number = 0; number < 4; ++number) {
        submitters.emplace_back([&, number] {
            const std::vector<std::function<void()>> batch(
                ofEach, [&order, number] { order.push_back(number); });
            for (int i = 0; i < batches; ++i) {
                KT::submitAll(held.pool, batch);
            }
        });
    }
    for (std::thread& submitter : submitters) {
        submitter.join();
    }
    held.release();
    held.pool.close();
    ASSERT_EQ(order.size(), 4U * batches * ofEach);
    for (std::size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(order[i], order[i / ofEach * ofEach]);
    }
}

TEST(SubmitAll, MovesOutOfARangeThatIsMoved)
{
    KT::KTScopedPool pool;
    struct MoveOnly {
        std::unique_ptr<int> value;
        int operator()() const { return *value; }
    };
    std::vector<MoveOnly> calls;
    calls.push_back({std::make_unique<int>(1)});
    calls.push_back({std::make_unique<int>(2)});
    auto futures = KT::submitAll(pool, std::move(calls));
    EXPECT_EQ(futures.at(0).get() + futures.at(1).get(), 3);
    EXPECT_TRUE(KT::submitAll(pool, std::vector<std::function<void()>>()).empty());
}

/// As std::span and std::ranges::subrange are.
template <typename Iterator>
struct View {
    Iterator begin() const { return first; }
    Iterator end() const { return last; }
    Iterator first;
    Iterator last;
};
template <typename Iterator>
View(Iterator, Iterator) -> View<Iterator>;

TEST(SubmitAll, CopiesOutOfAViewOfSomebodyElsesContainer)
{
    KT::KTScopedPool pool;
    std::vector<std::function<int()>> calls(3, [] { return 1; });
    for (KT::KTFuture<int>& future : KT::submitAll(pool, View{calls.begin(), calls.end()})) {
        EXPECT_EQ(future.get(), 1);
    }
    KT::postAll(pool, View{calls.begin(), calls.end()});
    for (const std::function<int()>& call : calls) {
        EXPECT_TRUE(call);
    }
}

TEST(SubmitAll, MovesOutOfAViewThatAsksForIt)
{
    struct Call {
        int operator()() const { return *result; }
        std::unique_ptr<int> result = std::make_unique<int>(1);
    };
    KT::KTScopedPool pool;
    std::vector<Call> calls(3);
    for (KT::KTFuture<int>& future : KT::submitAll(
             pool,
             View{std::make_move_iterator(calls.begin()), std::make_move_iterator(calls.end())})) {
        EXPECT_EQ(future.get(), 1);
    }
    EXPECT_FALSE(calls.front().result);
}

TEST(SubmitAll, StoppedPoolCancelsAll)
{
    KT::KTScopedPool pool;
    pool.close();
    std::vector<std::function<void()>> calls(3, [] {});
    for (KT::KTFuture<void>& future : KT::submitAll(pool, calls)) {
        EXPECT_TRUE(future.isReady());
        EXPECT_THROW(future.get(), KT::KTCancelled);
    }
}

}  // namespace
