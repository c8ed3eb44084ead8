#include <atomic>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <kterror/KTError.h>
#include <ro/log.h>

#include "Capture.h"
#include "Pools.h"

namespace {

bool canBeCancelled()
{
    int state = PTHREAD_CANCEL_DISABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    pthread_setcancelstate(state, nullptr);
    return state == PTHREAD_CANCEL_ENABLE;
}

/// Blocks at a cancellation point. A wait on a condition, because ThreadSanitizer loses track of a
/// thread that is cancelled in any other blocking call.
void blockFor(int milliseconds)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto condition = KT::KTCondition::createKTCondition();
    const KT::KTCriticalSection hold(mutex);
    condition->waitFor(mutex, milliseconds);
}

class ForcedShutdown : public PoolFixture {};

/// Notes in which of its operations the worker could be cancelled.
struct Probe : KT::KTTask {
    ~Probe() override { destructor = canBeCancelled(); }
    void run() override { body = canBeCancelled(); }
    const std::string& getTaskName() const override
    {
        naming = canBeCancelled();
        return KT::KTTask::getTaskName();
    }

    static inline std::atomic<int> body{-1};
    static inline std::atomic<int> naming{-1};
    static inline std::atomic<int> destructor{-1};
};

TEST_F(ForcedShutdown, CutsATaskOffInItsBodyOnly)
{
    Probe::body = Probe::naming = Probe::destructor = -1;
    const Pool pool = fixed(1);
    ASSERT_TRUE(pool->enqueue(boost::make_shared<Probe>()));
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return Probe::destructor != -1;
    }));
    EXPECT_EQ(Probe::body, 1);
    EXPECT_EQ(Probe::naming, 0);
    EXPECT_EQ(Probe::destructor, 0);
}

TEST_F(ForcedShutdown, CutsABlockingTaskOffAndUnwindsIt)
{
    const Pool pool = fixed(1);
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto token = std::make_shared<int>(0);
    std::atomic<bool> started(false);
    auto task = makeTask([&, token] {
        const std::shared_ptr<int> local = token;
        const KT::KTCriticalSection hold(mutex);
        started = true;
        for (;;) {
            blockFor(60000);
        }
    });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return started.load();
    }));
    EXPECT_TRUE(pool->close(true));
    EXPECT_EQ(inside::state(*task), 1) << "it never got to its end";
    EXPECT_EQ(token.use_count(), 2) << "what the body had on its stack is gone";
    bool busy = true;
    const KT::KTCriticalTrueIfLocked attempt(mutex, busy);
    EXPECT_FALSE(busy);
    EXPECT_EQ(pool->status().busyThreads, 1) << "the worker stays counted";
    EXPECT_EQ(task.use_count(), 1);
}

TEST_F(ForcedShutdown, LetsATaskWithoutACancellationPointFinish)
{
    const Pool pool = fixed(1);
    std::atomic<bool> started(false);
    std::atomic<bool> stop(false);
    const auto task = makeTask([&] {
        started = true;
        while (!stop) {
        }
    });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return started.load();
    }));
    pool->shutdown(true);
    EXPECT_FALSE(pool->join(50));
    stop = true;
    EXPECT_TRUE(pool->join());
    EXPECT_EQ(inside::state(*task), 2);
    EXPECT_EQ(pool->status().busyThreads, 0);
}

TEST_F(ForcedShutdown, DoesNotCutLogAndConsoleLines)
{
    struct Watching : std::streambuf {
        std::streamsize xsputn(const char*, std::streamsize size) override
        {
            ++writes;
            cancellable += canBeCancelled();
            pthread_testcancel();
            return size;
        }
        int overflow(int character) override { return character; }
        int sync() override
        {
            cancellable += canBeCancelled();
            pthread_testcancel();
            return 0;
        }
        std::atomic<int> writes{0};
        std::atomic<int> cancellable{0};
    } console;
    std::streambuf* const previous = std::cout.rdbuf(&console);
    {
        const LogCapture log("storm");
        const Pool full = made(2, 2);
        const Pool pool = fixed(1);
        ASSERT_TRUE(pool->enqueue(makeTask([&] {
            for (;;) {
                full->xIncreaseThread();
                ro::log::log(2, "storm", "", "", 0, "line");
                pthread_testcancel();
            }
        })));
        EXPECT_TRUE(eventually([&] {
            pool->wake();
            return console.writes > 10;
        }));
        EXPECT_TRUE(pool->close(true));
        EXPECT_FALSE(log.records().empty());
    }
    std::cout.rdbuf(previous);
    EXPECT_EQ(console.cancellable, 0);
    EXPECT_TRUE(std::cout.good());
}

TEST_F(ForcedShutdown, OfSleepersReleasesTheWakeMutex)
{
    const Pool pool = fixed(3);
    ASSERT_TRUE(untilAsleep(pool, 3));
    pool->shutdown(true);
    EXPECT_TRUE(pool->join());
    bool busy = true;
    const KT::KTCriticalTrueIfLocked attempt(inside::wakeMutex(pool), busy);
    EXPECT_FALSE(busy);
}

TEST_F(ForcedShutdown, EndsASleeperByItsCancellationAlone)
{
    const Pool pool = fixed(1);
    ASSERT_TRUE(untilAsleep(pool, 1));
    const auto worker = inside::threads(pool)[0];
    ASSERT_EQ(pthread_cancel(inside::threadHandle(*worker)), 0);
    EXPECT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
    EXPECT_FALSE(inside::killed(*worker));
}

TEST_F(ForcedShutdown, ReleasesTheMutexOfATaskThatWaitsOnACondition)
{
    const Pool pool = fixed(2);
    const auto mutex = KT::KTMutex::createKTMutex();
    const auto condition = KT::KTCondition::createKTCondition();
    std::atomic<int> started(0);
    ASSERT_TRUE(pool->enqueue(makeTask([&] {
        const KT::KTCriticalSection hold(mutex);
        ++started;
        condition->wait(mutex);
    })));
    ASSERT_TRUE(pool->enqueue(makeTask([&] {
        const KT::KTCriticalSection hold(mutex);
        ++started;
        condition->waitFor(mutex, 100000);
    })));
    ASSERT_TRUE(eventually([&] {
        pool->wake();
        return started == 2;
    }));
    EXPECT_TRUE(pool->close(true));
    bool busy = true;
    const KT::KTCriticalTrueIfLocked attempt(mutex, busy);
    EXPECT_FALSE(busy);
}

/// Shuts pools down by force at different moments, while tasks of all kinds run.
TEST_F(ForcedShutdown, AtAnyMomentEndsNothingButItsPool)
{
    const LogCapture log("KTThread");
    const LogCapture storm("storm");
    const auto mutex = KT::KTMutex::createKTMutex();
    std::atomic<int> alive(0);
    struct Counted {
        explicit Counted(std::atomic<int>& number) : count(number) { ++count; }
        ~Counted() { --count; }
        std::atomic<int>& count;
    };
    for (int round = 0; round < 100; ++round) {
        const Pool pool(new KT::KTThreadPool(3, 6, 5, 0, 0));
        pool->init(3, 6, 5, 0, 0);
        KT::KTThreadPool* const raw = pool.get();
        for (int i = 0; i < 30; ++i) {
            pool->enqueue(makeTask([&, i, raw] {
                const Counted counted(alive);
                switch (i % 6) {
                    case 0: blockFor(1000); break;
                    case 1: ro::log::log(2, "storm", "", "", 0, std::string(100, 'x')); break;
                    case 2: throw KT::KTError("m", "f", "d", "", 0);
                    case 3: {
                        const KT::KTCriticalSection hold(mutex);
                        blockFor(1);
                        break;
                    }
                    case 4: raw->enqueue(makeTask()); break;
                    default: raw->adjustThread(1); break;
                }
            }));
        }
        for (int i = 0; i < round * 50; ++i) {
            pthread_testcancel();
        }
        ASSERT_TRUE(pool->close(true, 60000));
        EXPECT_EQ(alive, 0);
        bool busy = true;
        const KT::KTCriticalTrueIfLocked attempt(mutex, busy);
        EXPECT_FALSE(busy);
    }
    EXPECT_TRUE(std::cout.good());
}

}  // namespace
