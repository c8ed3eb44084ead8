#include <atomic>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ktthread/KTThread.h>

#include "Waiting.h"
#include "clock/ThreadStates.h"

namespace {

TEST(ThreadStates, TellComputingFromBlocked)
{
    KT::detail::ThreadStates states;
    std::atomic<pid_t> number(0);
    std::atomic<bool> isToCompute(true);
    Gate gate;
    std::thread thread([&] {
        KT::KTThread::setThreadName("a) S (b");  // no part of the state
        number = static_cast<pid_t>(syscall(SYS_gettid));
        while (isToCompute) {
        }
        gate.pass();
    });
    EXPECT_TRUE(eventually([&] { return number != 0; }));
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(states.isRunnable(number));
    }
    isToCompute = false;
    EXPECT_TRUE(eventually([&] { return gate.arrived() == 1 && !states.isRunnable(number); }));
    gate.open();
    thread.join();
    EXPECT_TRUE(eventually([&] { return !states.isRunnable(number); }));
    states.closeAll();
}

TEST(ThreadStates, OfAThreadThatIsNoneOfTheProcessIsBlocked)
{
    KT::detail::ThreadStates states;
    EXPECT_FALSE(states.isRunnable(1));
    EXPECT_FALSE(states.isRunnable(2147483647));
}

}  // namespace
