#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include <ktthread/KTCondition.h>
#include <ktthread/KTCriticalSection.h>

#include "Inside.h"
#include "Platform.h"
#include "Waiting.h"

namespace {

using platform::Call;

static_assert(!std::is_copy_constructible<KT::KTCondition>::value, "a condition has one owner");
static_assert(std::has_virtual_destructor<KT::KTCondition>::value, "destroyed by its pointer");

class Condition : public testing::Test {
protected:
    /// Starts a thread that waits once, and returns when it is in the wait.
    void startWaiter()
    {
        const std::size_t before = recorder.count(Call::wait, platformCondition());
        waiters.start([this] {
            const KT::KTCriticalSection hold(mutex);
            condition->wait(mutex);
            ++woken;
        });
        ASSERT_TRUE(eventually(
            [&] { return recorder.count(Call::wait, platformCondition()) == before + 1; }));
        const KT::KTCriticalSection inTheWaitNow(mutex);
    }

    const void* platformCondition() { return inside::condition(condition).get(); }

    platform::Recorder recorder;
    boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    boost::shared_ptr<KT::KTCondition> condition = KT::KTCondition::createKTCondition();
    std::atomic<int> woken{0};
    Threads waiters;
};

TEST_F(Condition, SignalWakesAWaiter)
{
    startWaiter();
    condition->signal();
    waiters.joinAll();
    EXPECT_EQ(woken, 1);
    EXPECT_EQ(recorder.count(Call::signal, platformCondition()), 1U);
}

TEST_F(Condition, BroadcastWakesAll)
{
    startWaiter();
    startWaiter();
    startWaiter();
    condition->broadcast();
    waiters.joinAll();
    EXPECT_EQ(woken, 3);
    EXPECT_EQ(recorder.count(Call::broadcast, platformCondition()), 1U);
}

TEST_F(Condition, WakeUpsWithoutAWaiterAreNotRemembered)
{
    condition->signal();
    condition->broadcast();
    startWaiter();
    EXPECT_EQ(woken, 0);
    condition->signal();
    waiters.joinAll();
    EXPECT_EQ(woken, 1);
}

TEST_F(Condition, WaitIsOnePlatformWaitAndHoldsTheMutexAgain)
{
    startWaiter();
    {
        const KT::KTCriticalSection hold(mutex);
        condition->signal();
        EXPECT_EQ(woken, 0) << "the waiter needs the mutex to return";
    }
    waiters.joinAll();
    EXPECT_EQ(recorder.count(Call::wait, platformCondition()), 1U);
}

TEST_F(Condition, DestructionWakesTheWaiters)
{
    startWaiter();
    startWaiter();
    condition.reset();
    waiters.joinAll();
    EXPECT_EQ(woken, 2);
    EXPECT_EQ(recorder.count(Call::destroy), 1U);
}

TEST_F(Condition, FailingPlatformCallsAreIgnored)
{
    for (const Call call : {Call::signal, Call::broadcast, Call::wait}) {
        const platform::Failure failure(call, EINVAL);
        const KT::KTCriticalSection hold(mutex);
        EXPECT_NO_THROW(condition->signal());
        EXPECT_NO_THROW(condition->broadcast());
        if (call == Call::wait) {
            EXPECT_NO_THROW(condition->wait(mutex));
        }
    }
    const platform::Failure failure(Call::destroy, EBUSY);
    EXPECT_NO_THROW(condition.reset());
}

TEST_F(Condition, WaitForReportsThatTheTimeRanOut)
{
    const KT::KTCriticalSection hold(mutex);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(condition->waitFor(mutex, 30));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST_F(Condition, WaitForZeroOrLessDoesNotBlock)
{
    const KT::KTCriticalSection hold(mutex);
    EXPECT_FALSE(condition->waitFor(mutex, 0));
    EXPECT_FALSE(condition->waitFor(mutex, -5));
}

TEST_F(Condition, WaitForReportsAWakeUpAndHoldsTheMutexAgain)
{
    bool ready = false;
    bool inTime = true;
    std::thread waiter([&] {
        const KT::KTCriticalSection hold(mutex);
        while (!ready && inTime) {
            inTime = condition->waitFor(mutex, 60000);
        }
    });
    {
        const KT::KTCriticalSection hold(mutex);
        ready = true;
    }
    condition->broadcast();
    waiter.join();
    EXPECT_TRUE(inTime);
}

}  // namespace
