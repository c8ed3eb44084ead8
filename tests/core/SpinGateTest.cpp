#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <ktthread/SpinGate.h>
#include <ktthread/ktthread.h>

#include "Waiting.h"

namespace {

using KT::core::SpinGate;
using KT::core::SpinThenLock;

TEST(SpinGate, IsTakenForAScope)
{
    std::atomic<bool> taken(false);
    {
        const SpinGate gate(taken);
        EXPECT_TRUE(gate.isEntered());
        EXPECT_TRUE(taken);
    }
    EXPECT_FALSE(taken);
}

TEST(SpinGate, GivesUpOnAnOwnerThatStaysAndLeavesItTheGate)
{
    std::atomic<bool> taken(false);
    const SpinGate owner(taken);
    {
        const SpinGate other(taken);
        EXPECT_FALSE(other.isEntered());
    }
    EXPECT_TRUE(taken);
}

TEST(SpinGate, IsEnteredByASpinningThreadOnceItsOwnerLeaves)
{
    for (int round = 0; round < 200; ++round) {
        std::atomic<bool> taken(true);
        std::atomic<bool> begun(false);
        bool isEntered = false;
        Threads threads;
        threads.start([&] {
            begun = true;
            const SpinGate gate(taken, std::chrono::minutes(1));
            isEntered = gate.isEntered();
        });
        while (!begun) {
            std::this_thread::yield();
        }
        std::this_thread::yield();
        taken = false;
        threads.joinAll();
        ASSERT_TRUE(isEntered);
    }
}

/// A guard that notes whether the gate is taken when it releases its lock.
class NotingGuard {
public:
    struct Lock {
        std::atomic<bool> gate{false};
        bool takenAtRelease = false;
    };

    explicit NotingGuard(boost::shared_ptr<Lock> guarded) : lock(std::move(guarded)) {}
    ~NotingGuard() { lock->takenAtRelease = lock->gate; }
    NotingGuard(const NotingGuard&) = delete;
    NotingGuard& operator=(const NotingGuard&) = delete;

private:
    boost::shared_ptr<Lock> lock;
};

TEST(SpinThenLock, ReleasesTheLockBeforeTheGate)
{
    const auto lock = boost::make_shared<NotingGuard::Lock>();
    {
        const SpinThenLock<NotingGuard> hold(lock->gate, lock);
        EXPECT_EQ(lock.use_count(), 1) << "it takes no share";
    }
    EXPECT_TRUE(lock->takenAtRelease);
    EXPECT_FALSE(lock->gate);
}

TEST(SpinThenLock, ExcludesWhetherOrNotAThreadGetsThroughTheGate)
{
    const int threadCount = 4;
    const int additions = 20000;
    const auto mutex = KT::KTMutex::createKTMutex();
    std::atomic<bool> taken(false);
    int sum = 0;
    Threads threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.start([&] {
            for (int i = 0; i < additions; ++i) {
                const SpinThenLock<KT::KTCriticalSection> hold(taken, mutex);
                ++sum;
            }
        });
    }
    threads.joinAll();
    EXPECT_EQ(sum, threadCount * additions);
    EXPECT_FALSE(taken);
}

}  // namespace
