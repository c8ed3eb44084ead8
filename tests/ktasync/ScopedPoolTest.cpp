#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sched.h>
#include <spdlog/spdlog.h>

#include <boost/make_shared.hpp>

#include "Async.h"
#include "Platform.h"

namespace {

using testing::HasSubstr;
using Queued = KT::KTPoolOptions::Queued;
using Stuck = KT::KTPoolOptions::Stuck;

/// The limit of a pool whose options say nothing.
int usualLimit()
{
    return std::max(64, 8 * KT::availableProcessors());
}

TEST(ScopedPool, StartsWithOneWorkerAProcessorAndMayGrowTo64)
{
    const KT::KTScopedPool pool;
    EXPECT_EQ(pool.status().threads, KT::availableProcessors());
    EXPECT_EQ(pool.status().maxThreads, usualLimit());
}

TEST(ScopedPool, SizesNotSetFollowThoseThatAre)
{
    KT::KTPoolOptions many;
    many.threads = usualLimit() + 1;
    EXPECT_EQ(KT::KTScopedPool(many).status().maxThreads, many.threads);
    KT::KTPoolOptions few;
    few.maxThreads = 1;
    EXPECT_EQ(KT::KTScopedPool(few).status().threads, 1);
}

struct Invalid {
    std::string option;
    void (*set)(KT::KTPoolOptions&);
};

class ScopedPoolOptions : public testing::TestWithParam<Invalid> {};

TEST_P(ScopedPoolOptions, InvalidOnesAreRefusedByName)
{
    KT::KTPoolOptions options;
    GetParam().set(options);
    const platform::Recorder recorder;
    const auto error = thrownBy<KT::KTError>([&] { KT::KTScopedPool pool(options); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->toString(), HasSubstr(GetParam().option + " is "));
    EXPECT_EQ(recorder.count(platform::Call::create), 0U);
}

using Options = KT::KTPoolOptions;
INSTANTIATE_TEST_SUITE_P(
    Each, ScopedPoolOptions,
    testing::Values(Invalid{"threads", [](Options& o) { o.threads = 0; }},
                    Invalid{"threads", [](Options& o) { o.threads = -3; }},
                    Invalid{"threads", [](Options& o) { o.threads = 65537; }},
                    Invalid{"maxThreads", [](Options& o) { o.maxThreads = 65537; }},
                    Invalid{"maxThreads",
                            [](Options& o) {
                                o.threads = 3;
                                o.maxThreads = 2;
                            }},
                    Invalid{"monitorPeriod", [](Options& o) { o.monitorPeriod = -1; }},
                    Invalid{"idleTimeoutMs", [](Options& o) { o.idleTimeoutMs = 0; }},
                    Invalid{"spinUs", [](Options& o) { o.spinUs = -1; }},
                    Invalid{"stopTimeoutMs", [](Options& o) { o.stopTimeoutMs = -1; }},
                    Invalid{"maxQueued", [](Options& o) { o.maxQueued = -1; }},
                    Invalid{"name", [](Options& o) { o.name = std::string(32, 'x'); }},
                    Invalid{"name", [](Options& o) { o.name = "two\nlines"; }},
                    Invalid{"stackSize", [](Options& o) { o.stackSize = 0; }},
                    Invalid{"stackSize", [](Options& o) { o.stackSize = 131071; }},
                    Invalid{"stackSize", [](Options& o) { o.stackSize = (1U << 30) + 1; }}));

TEST(ScopedPool, ThrowsAndLeavesNothingIfThreadsCannotBeMade)
{
    const LogCapture log("core.thread");
    const platform::Failure failing(platform::Call::create, EAGAIN, [](int n) { return n == 2; });
    EXPECT_THROW(KT::KTScopedPool pool(fixedSize(3)), KT::KTError);
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

/// The stack of a thread that nothing is said about.
std::size_t systemsStack()
{
    pthread_attr_t attributes;
    std::size_t size = 0;
    pthread_attr_init(&attributes);
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

/// The stack that the calling thread has.
std::size_t stackOfThisThread()
{
    pthread_attr_t attributes;
    std::size_t size = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

/// Calls itself until it has used so much of the stack; returns how many times.
int useStack(std::size_t bytes)  // NOLINT(misc-no-recursion): that is what it is for
{
    std::array<volatile char, 1024> piece{};
    piece[0] = 1;
    return bytes < piece.size() ? 0 : useStack(bytes - piece.size()) + piece[0];
}

TEST(ScopedPoolStack, OfATaskIsTheSystems)
{
    KT::KTScopedPool pool(fixedSize(1));
    const std::size_t bytes = systemsStack() / 2;
    EXPECT_EQ(KT::submit(pool, useStack, bytes).get(), static_cast<int>(bytes / 1024));
}

TEST(ScopedPoolStack, OfATaskIsWhatTheOptionsSay)
{
    for (const std::size_t size :
         {std::size_t(131072), std::size_t(1) << 20, std::size_t(1) << 30}) {
        KT::KTPoolOptions options = fixedSize(1);
        options.stackSize = size;
        KT::KTScopedPool pool(options);
        EXPECT_GE(KT::submit(pool, stackOfThisThread).get(), size);
    }
}

/// Waits in tasks, one in the other, until one of them runs on another thread than the first; then
/// calls `atEnd` there.
void nestUntilOnAnotherThread(const KT::KTPoolRef& pool, pthread_t first,
                              const std::function<void()>& atEnd)
{
    if (pthread_equal(pthread_self(), first) == 0) {
        atEnd();
        return;
    }
    KT::KTTaskGroup group(pool);
    group.run("nested", [&] { nestUntilOnAnotherThread(pool, first, atEnd); });
    group.wait();
}

TEST(ScopedPoolStack, OfATaskThatATaskWaitsForIsTheSame)
{
    KT::KTPoolOptions options = fixedSize(1);
    options.stackSize = std::size_t(256) << 10;
    KT::KTScopedPool pool(options);
    std::size_t nested = 0;
    KT::submit(pool, [&] {
        nestUntilOnAnotherThread(pool, pthread_self(), [&] { nested = stackOfThisThread(); });
    }).get();
    EXPECT_GE(nested, *options.stackSize);
    EXPECT_LT(nested, systemsStack());
}

TEST(ScopedPoolStack, OfItsOwnIsStillThatOfAWorker)
{
    const auto core = boost::make_shared<KT::KTThreadPool>(1, 1, 0, 0, 0);
    core->init(1, 1, 0, 0, 0);
    bool isWorker = false;
    bool isClosed = true;
    KT::submit(core, [&] {
        nestUntilOnAnotherThread(core, pthread_self(), [&] {
            isWorker = core->runningInThisThread();
            isClosed = isWorker && core->close();
        });
    }).wait();
    EXPECT_TRUE(isWorker);
    EXPECT_FALSE(isClosed);
    EXPECT_TRUE(core->close());
}

TEST(ScopedPoolStack, OfItsOwnForAClientIsNoWorkers)
{
    HeldPool held;  // so that the client runs what it waits for
    bool isWorker = true;
    nestUntilOnAnotherThread(held.pool, pthread_self(),
                             [&] { isWorker = held.pool.pool()->runningInThisThread(); });
    EXPECT_FALSE(isWorker);
}

/// The options of a pool with one worker and a name that no short string holds.
KT::KTPoolOptions named()
{
    KT::KTPoolOptions options = fixedSize(1);
    options.name = "the pool that renders the rest.";
    return options;
}

TEST(ScopedPoolName, IsThatOfTheCoresPool)
{
    KT::KTScopedPool pool(named());
    EXPECT_EQ(pool.status().name, named().name);
    KT::KTScopedPool moved(std::move(pool));
    EXPECT_EQ(moved.pool()->name(), named().name);
    EXPECT_STREQ(KT::KTScopedPool().status().name, "");
}

TEST(ScopedPoolName, BeginsTheRecordsOfThePool)
{
    const LogCapture log("ktasync");
    const auto failing = [] { throw std::runtime_error("why"); };
    {
        KT::KTScopedPool pool(named());
        KT::post(pool, "post", failing);
        KT::submit(pool, "submit", failing);
        KT::KTTaskGroup(pool).run(failing);
    }
    auto last = std::make_unique<KT::KTScopedPool>(named());
    KT::KTScopedPool& pool = *last;
    KT::submit(pool, [last = std::move(last)]() mutable { last.reset(); }).get();
    const std::string label = "pool 'the pool that renders the rest.': ";
    const std::string why = "failed, and nobody asked for its result: why";
    std::vector<std::string> texts;
    for (const LogRecord& record : log.records()) {
        texts.push_back(record.text);
    }
    EXPECT_THAT(texts, testing::UnorderedElementsAre(
                           label + "task 'post' " + why, label + "task 'submit' " + why,
                           label + "task 'TestBody' " + why,
                           label + "destroyed by a task of its own: leaving them"));
}

TEST(ScopedPoolName, BeginsTheRecordOfAnEndWithWorkLeft)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = named();
    options.finishTimeoutMs = 20;
    options.stopTimeoutMs = 20;
    options.stuck = Stuck::keepWaiting;
    Gate gate;
    KT::KTScopedPool pool(options);
    KT::submit(pool, [&gate] { gate.pass(); });
    ASSERT_TRUE(untilArrived(pool, gate));
    std::thread opener([&] {
        EXPECT_TRUE(eventually([&log] { return log.records().size() == 1; }));
        gate.open();
    });
    EXPECT_TRUE(pool.close());
    opener.join();
    EXPECT_THAT(log.records()[0].text,
                testing::StartsWith("pool '" + options.name + "': tasks unfinished after 20 ms"));
}

TEST(ScopedPoolMessages, GoToTheLogAndNotToTheConsole)
{
    const LogCapture log("KTThread");
    spdlog::get("KTThread")->set_level(spdlog::level::debug);
    const ConsoleCapture console;
    KT::KTScopedPool pool(fixedSize(20));
    EXPECT_FALSE(pool.pool()->xIncreaseThread());
    EXPECT_TRUE(pool.pool()->adjustThread(-1));
    EXPECT_TRUE(eventually(pool, [&] {
        KT::submit(pool, [] {}).get();
        return log.records().size() == 2;
    }));
    EXPECT_EQ(console.text(), "");
    EXPECT_EQ(log.records()[0].text, "Threadpool limit reached.");
    EXPECT_EQ(log.records()[1].text, "KTThreadPool::decrease");
    EXPECT_EQ(log.records()[1].level, spdlog::level::debug);
}

TEST(ScopedPoolEnd, LetsQueuedWorkFinish)
{
    std::atomic<int> ran(0);
    {
        KT::KTScopedPool pool(fixedSize(2));
        for (int i = 0; i < 1000; ++i) {
            KT::submit(pool, [&ran] { ++ran; });
        }
    }
    EXPECT_EQ(ran, 1000);
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

TEST(ScopedPoolEnd, WaitsForTasksThatTasksSubmit)
{
    std::atomic<int> depth(0);
    std::function<void(KT::KTScopedPool&, int)> more = [&](KT::KTScopedPool& pool, int left) {
        ++depth;
        if (left > 0) {
            KT::submit(pool, more, std::ref(pool), left - 1);
        }
    };
    {
        KT::KTScopedPool pool(fixedSize(1));
        KT::submit(pool, more, std::ref(pool), 100).wait();
    }
    EXPECT_EQ(depth, 101);
}

TEST(ScopedPoolEnd, LetsTheCoresTasksBegin)
{
    std::atomic<int> ran(0);
    {
        HeldPool held;
        for (int i = 0; i < 100; ++i) {
            held.pool.pool()->enqueue(boost::make_shared<CoreTask>(ran));
        }
    }
    EXPECT_EQ(ran, 100);
}

TEST(ScopedPoolEnd, DropsQueuedWorkIfToldTo)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = fixedSize(1);
    options.queued = Queued::drop;
    KT::KTFuture<void> dropped;
    bool asked = false;
    {
        KT::KTScopedPool pool(options);
        Gate gate;
        KT::submit(pool, [&](const KT::KTStopToken& stop) {
            gate.pass();
            asked = stop.waitFor(-1);
        });
        EXPECT_TRUE(untilArrived(pool, gate));
        gate.open();
        dropped = KT::submit(pool, [] { ADD_FAILURE(); });
    }
    EXPECT_TRUE(asked);
    EXPECT_THROW(dropped.get(), KT::KTCancelled);
    EXPECT_TRUE(log.records().empty());
}

TEST(ScopedPoolEnd, AsksWhatDoesNotFinishInTime)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = fixedSize(1);
    options.finishTimeoutMs = 20;
    bool asked = false;
    KT::KTFuture<void> dropped;
    {
        KT::KTScopedPool pool(options);
        KT::submit(pool, [&](const KT::KTStopToken& stop) { asked = stop.waitFor(-1); });
        EXPECT_TRUE(eventually(pool, [&] { return pool.status().busyThreads == 1; }));
        dropped = KT::submit(pool, [] { ADD_FAILURE(); });
    }
    EXPECT_TRUE(asked);
    EXPECT_THROW(dropped.get(), KT::KTCancelled);
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].text,
              "tasks unfinished after 20 ms: 2, those not begun dropped, the others asked to stop");
    EXPECT_EQ(log.records()[0].level, spdlog::level::warn);
}

TEST(ScopedPoolEnd, SaysWhatItWaitsForAndWaitsOn)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = fixedSize(1);
    options.queued = Queued::drop;
    options.stopTimeoutMs = 20;
    Gate gate;
    KT::KTScopedPool pool(options);
    KT::submit(pool, "passing", [&gate] { gate.pass(); });
    ASSERT_TRUE(untilArrived(pool, gate));
    std::thread opener([&] {
        EXPECT_TRUE(eventually([&log] { return log.records().size() == 1; }));
        gate.open();
    });
    EXPECT_TRUE(pool.close());
    opener.join();
    EXPECT_EQ(log.records()[0].text,
              "tasks go on 20 ms after they were asked to stop (passing): waiting for them");
}

TEST(ScopedPoolEnd, SaysWhatItWaitsForWithoutALimit)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = fixedSize(10);
    options.reportAfterMs = 20;
    Gate gate;
    std::atomic<int> ran(0);
    KT::KTScopedPool pool(options);
    for (int i = 0; i < 11; ++i) {
        KT::post(pool, "passing", [&] {
            gate.pass();
            ++ran;
        });
    }
    ASSERT_TRUE(untilArrived(pool, gate, 10));
    std::thread opener([&] {
        EXPECT_TRUE(eventually([&log] { return log.records().size() == 1; }));
        gate.open();
    });
    EXPECT_TRUE(pool.close());
    opener.join();
    EXPECT_EQ(ran, 11);
    EXPECT_EQ(log.records()[0].text,
              "not finished after 20 ms (passing, passing, passing, passing, passing, passing, "
              "passing, passing, and 2 more): waiting on");
}

TEST(ScopedPoolEnd, LeavesStuckTasksIfThatIsThePolicy)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = fixedSize(1);
    options.queued = Queued::drop;
    options.stopTimeoutMs = 20;
    options.stuck = Stuck::leave;
    Gate gate;
    boost::weak_ptr<KT::KTThreadPool> left;
    {
        KT::KTScopedPool pool(options);
        left = pool.pool();
        KT::submit(pool, "passing", [&gate] { gate.pass(); });
        ASSERT_TRUE(untilArrived(pool, gate));
        EXPECT_FALSE(pool.close());
    }
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].text,
              "tasks go on 20 ms after they were asked to stop (passing): leaving them");
    EXPECT_FALSE(left.expired());
    gate.open();
    // The pool frees itself.
    EXPECT_TRUE(eventually([&left] { return left.expired(); }));
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

TEST(ScopedPoolEnd, CutsStuckTasksOffIfThatIsThePolicy)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = fixedSize(1);
    options.finishTimeoutMs = 20;
    options.stopTimeoutMs = 20;
    options.stuck = Stuck::force;
    KT::KTFuture<void> cut;
    {
        KT::KTScopedPool pool(options);
        cut = KT::submit(pool, "deaf", [] { KT::KTStopToken().waitFor(-1); });
        EXPECT_TRUE(eventually(pool, [&] { return pool.status().busyThreads == 1; }));
    }
    // The limit holds for the cutting off too: on a busy machine that may take longer.
    EXPECT_TRUE(eventually([&cut] { return cut.isReady(); }));
    EXPECT_THROW(cut.get(), KT::KTCancelled);
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].text,
              "tasks unfinished after 20 ms: 1, those not begun dropped, the others asked to "
              "stop; tasks go on 20 ms after they were asked to stop (deaf): cutting them off");
}

TEST(ScopedPoolEnd, LeavesWhatCannotBeCutOff)
{
    const LogCapture log("ktasync");
    KT::KTPoolOptions options = fixedSize(1);
    options.queued = Queued::drop;
    options.stopTimeoutMs = 20;
    options.stuck = Stuck::force;
    std::atomic<bool> goOn(true);
    KT::KTFuture<void> busy;
    {
        KT::KTScopedPool pool(options);
        std::atomic<bool> begun(false);
        busy = KT::submit(pool, [&goOn, &begun] {
            begun = true;
            while (goOn) {
                std::this_thread::yield();
            }
        });
        ASSERT_TRUE(eventually(pool, [&begun] { return begun.load(); }));
    }
    goOn = false;
    busy.wait();
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

TEST(ScopedPoolEnd, InOneOfItsOwnTasksOnlyBegins)
{
    std::atomic<int> ran(0);
    {
        KT::KTScopedPool pool(fixedSize(1));
        Gate gate;
        KT::post(pool, [&] {
            gate.pass();
            EXPECT_FALSE(pool.close());
            ++ran;
        });
        KT::post(pool, [&] {
            EXPECT_FALSE(KT::post(pool, [&ran] { ran += 100; }));
            ++ran;
        });
        gate.open();
        EXPECT_TRUE(eventually([&ran] { return ran > 0; }));
        EXPECT_TRUE(pool.close());
        EXPECT_EQ(ran, 2);
    }
}

TEST(ScopedPoolEnd, BegunInATaskStillWaitsForAll)
{
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> closed(0);
        std::atomic<int> ended(0);
        {
            Gate gate;
            KT::KTScopedPool pool(fixedSize(2));
            for (int i = 0; i < 2; ++i) {
                KT::post(pool, [&] {
                    gate.pass();
                    pool.close();
                    ++closed;
                    KT::KTStopToken().waitFor(1);
                    ++ended;
                });
            }
            gate.open();
            ASSERT_TRUE(eventually([&closed] { return closed == 2; }));
        }
        ASSERT_EQ(ended, 2);
    }
}

TEST(ScopedPoolEnd, MayComeFromManyThreads)
{
    std::atomic<int> ran(0);
    KT::KTScopedPool pool(fixedSize(2));
    for (int i = 0; i < 100; ++i) {
        KT::post(pool, [&ran] { ++ran; });
    }
    std::vector<std::thread> closers(4);
    for (std::thread& closer : closers) {
        closer = std::thread([&] {
            EXPECT_TRUE(pool.close());
            EXPECT_EQ(ran, 100);
        });
    }
    for (std::thread& closer : closers) {
        closer.join();
    }
}

TEST(ScopedPoolEnd, InTheLastOfItsOwnTasksLeaves)
{
    const LogCapture log("ktasync");
    auto pool = std::make_unique<KT::KTScopedPool>(fixedSize(1));
    const boost::weak_ptr<KT::KTThreadPool> left = pool->pool();
    Gate gate;
    KT::KTScopedPool& stillThere = *pool;
    KT::post(stillThere, [last = std::move(pool), &gate]() mutable {
        gate.pass();
        last.reset();
    });
    gate.open();
    EXPECT_TRUE(eventually([&left] { return left.expired(); }));
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_THAT(log.records()[0].text, HasSubstr("destroyed by a task of its own: leaving them"));
    EXPECT_TRUE(eventually([] { return threadsNamed("KTT").empty(); }));
}

TEST(ScopedPoolEnd, InATaskDerivedByHandLeavesAtOnce)
{
    struct Closing : KT::KTTask {
        explicit Closing(KT::KTScopedPool& toClose) : pool(toClose) {}
        void run() override { closed = pool.close(); }
        KT::KTScopedPool& pool;
        std::atomic<int> closed{-1};
    };
    KT::KTPoolOptions options = fixedSize(1);
    options.finishTimeoutMs = -1;
    KT::KTScopedPool pool(options);
    const boost::shared_ptr<KT::KTThreadPool> core = pool.pool();
    const auto closing = boost::make_shared<Closing>(pool);
    ASSERT_TRUE(core->enqueue(closing));
    EXPECT_TRUE(eventually([&] {
        core->wake();
        return closing->closed != -1;
    }));
    EXPECT_EQ(closing->closed, 0);
}

TEST(ScopedPoolEnd, WithTheLastResultOfItsOwnLeavesAtOnce)
{
    KT::KTPoolOptions options = fixedSize(1);
    options.finishTimeoutMs = -1;
    auto pool = std::make_shared<KT::KTScopedPool>(options);
    const std::weak_ptr<KT::KTScopedPool> last = pool;
    const boost::shared_ptr<KT::KTThreadPool> core = pool->pool();
    Gate gate;
    KT::submit(*pool, [pool, &gate] {
        gate.pass();
        return pool;
    });
    ASSERT_TRUE(untilArrived(*pool, gate));
    pool.reset();
    gate.open();
    EXPECT_TRUE(eventually([&last] { return last.expired(); }));
    EXPECT_TRUE(eventually([&core] { return core->join(0); }));
}

TEST(ScopedPoolEnd, InOneOfItsOwnTasksDropsWhatIsSubmittedAfterwards)
{
    std::atomic<int> ran(0);
    for (int i = 0; i < 20; ++i) {
        KT::KTScopedPool pool(fixedSize(2));
        KT::submit(pool, [&] {
            pool.close();
            EXPECT_THROW(KT::submit(pool, [&ran] { ++ran; }).get(), KT::KTCancelled);
        }).get();
    }
    EXPECT_EQ(ran, 0);
}

TEST(ScopedPoolEnd, MayComeWhenTheProcessExits)
{
    const auto body = [] {
        static KT::KTScopedPool pool(fixedSize(1));
        static KT::KTFuture<void> last;
        last = KT::submit(pool, [] { KT::KTStopToken().waitFor(5); }).then([] {
            std::fputs("finished at exit", stderr);
        });
        std::exit(0);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "finished at exit");
}

TEST(ScopedPoolEnd, ComesOnceAndLeavesThePoolReadable)
{
    KT::KTScopedPool pool;
    EXPECT_TRUE(pool.close());
    EXPECT_TRUE(pool.close());
    EXPECT_EQ(pool.status().threads, 0);
}

TEST(ScopedPoolEnd, AfterAShutdownByHandDoesNotWait)
{
    const LogCapture log("ktasync");
    HeldPool held;
    KT::KTFuture<void> dropped = KT::submit(held.pool, [] { ADD_FAILURE(); });
    held.pool.pool()->shutdown(false);
    held.gate.open();
    EXPECT_TRUE(held.pool.close());
    EXPECT_THROW(dropped.get(), KT::KTCancelled);
    EXPECT_TRUE(log.records().empty());
}

TEST(ScopedPoolMove, HandsThePoolOver)
{
    std::atomic<int> ran(0);
    {
        KT::KTScopedPool first(fixedSize(1));
        KT::KTScopedPool second(std::move(first));
        EXPECT_FALSE(first.pool());  // NOLINT(bugprone-use-after-move,clang-analyzer-*)
        EXPECT_THROW(KT::submit(first, [] {}), KT::KTError);
        EXPECT_THROW(static_cast<void>(first.status()), KT::KTError);
        EXPECT_FALSE(first.close());
        KT::submit(second, [&ran] { ++ran; });
        std::vector<KT::KTScopedPool> pools;
        pools.push_back(std::move(second));
    }
    EXPECT_EQ(ran, 1);
}

TEST(ScopedPoolMove, AssignmentClosesThePoolThatWas)
{
    KT::KTScopedPool pool(fixedSize(1));
    std::atomic<int> ran(0);
    for (int i = 0; i < 100; ++i) {
        KT::submit(pool, [&ran] { ++ran; });
    }
    const boost::weak_ptr<KT::KTThreadPool> old = pool.pool();
    pool = KT::KTScopedPool(fixedSize(2));
    EXPECT_EQ(ran, 100);
    // The clock may look at it at this moment.
    EXPECT_TRUE(eventually([&old] { return old.expired(); }));
    EXPECT_EQ(KT::submit(pool, [] { return 1; }).get(), 1);
}

TEST(AvailableProcessors, AreThoseOfTheAffinityMask)
{
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    cpu_set_t one;
    CPU_ZERO(&one);
    for (std::size_t i = 0; i < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++i) {
        if (CPU_ISSET(i, &before)) {
            CPU_SET(i, &one);
        }
    }
    EXPECT_LE(KT::availableProcessors(), CPU_COUNT(&before));
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(KT::availableProcessors(), 1);
    EXPECT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
}

}  // namespace
