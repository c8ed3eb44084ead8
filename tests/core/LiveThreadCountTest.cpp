/// Which threads join waits for, and for how long.
#include <atomic>
#include <cstdlib>
#include <thread>

#include <pthread.h>

#include <gtest/gtest.h>

#include "Capture.h"
#include "Pools.h"

namespace {

class LiveThreadCount : public PoolFixture {};

TEST_F(LiveThreadCount, IncludesAThreadWhoseThreadLocalObjectsAreDestroyed)
{
    struct Slow {
        ~Slow()
        {
            ro::os::msleep(100);
            *ended = true;
        }
        std::atomic<bool>* ended = nullptr;
    };
    std::atomic<bool> ended(false);
    const Pool pool = fixed(1);
    const auto task = makeTask([&] {
        static thread_local Slow slow;
        slow.ended = &ended;
    });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    pool->shutdown(false);
    EXPECT_TRUE(pool->join());
    EXPECT_TRUE(ended);
}

TEST_F(LiveThreadCount, IncludesRetiredWorkers)
{
    const ConsoleCapture console;
    const Pool pool = fixed(20);
    ASSERT_TRUE(untilAsleep(pool, 20));
    ASSERT_TRUE(pool->adjustThread(-3));
    const auto task = makeTask();
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilFinished(pool, task));
    pool->shutdown(false);
    EXPECT_TRUE(pool->join());
    EXPECT_TRUE(eventually([] { return threadsNamed("KTThread").empty(); }));
}

/// Must run in a process of its own, in which no pool has run yet.
void closesWithoutThreadKeys()
{
    pthread_key_t key = 0;
    while (pthread_key_create(&key, nullptr) == 0) {
    }
    bool closed = false;
    {
        const auto pool = boost::make_shared<KT::KTThreadPool>(2, 2, 0, 0, 0);
        pool->init(2, 2, 0, 0, 0);
        const auto task = makeTask();
        closed = pool->enqueue(task) && untilFinished(pool, task) && pool->close(false, 60000);
    }
    std::exit(closed ? 0 : 1);
}

TEST_F(LiveThreadCount, WorksInAProcessThatHasNoThreadKeysLeft)
{
    EXPECT_EXIT(closesWithoutThreadKeys(), testing::ExitedWithCode(0), "");
}

// The pool has not started the thread that makes the call, and does not wait for it.
TEST_F(LiveThreadCount, DoesNotDropWhenAStartRoutineIsCalledByHand)
{
    const Pool pool = fixed(1);
    int cancellation = -1;
    std::thread([&] {
        KT::KTThread unowned(pool, 0, inside::wakeMutex(pool), inside::wakeCondition(pool));
        KT::_KT_Thread_Pool_Atom(&unowned);
        EXPECT_FALSE(pool->runningInThisThread());
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancellation);
    }).join();
    EXPECT_EQ(cancellation, PTHREAD_CANCEL_ENABLE);
    Gate gate;
    const auto task = makeTask([&] { gate.pass(); });
    ASSERT_TRUE(pool->enqueue(task));
    ASSERT_TRUE(untilArrived(pool, gate));
    EXPECT_FALSE(pool->close(false, 1)) << "its worker is at work";
    gate.open();
    EXPECT_TRUE(pool->close(false, 60000));
}

}  // namespace
