/// Whether a process survives a forced shutdown that cuts a task off in the client's own code: the
/// table in docs/compilers.md, for the C++ library that this is compiled with.
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Pools.h"

namespace {

void catchTypes()
{
    try {
        pause();
    } catch (const std::exception&) {
        std::fputs("caught\n", stderr);
    }
}

void rethrow()
{
    try {
        pause();
    } catch (...) {
        throw;
    }
}

void swallow()
{
    try {
        pause();
    } catch (...) {
    }
}

void inNoexcept() noexcept
{
    pause();
}

void inDestructor()
{
    struct Pausing {
        ~Pausing() { pause(); }
    };
    const Pausing pausing;
}

void waitOnCondition()
{
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock<std::mutex> hold(mutex);
    never.wait(hold);
}

void joinThread()
{
    std::thread([] { pause(); }).join();
}

void writeToStream()
{
    struct Pausing : std::streambuf {
        int_type overflow(int_type character) override
        {
            pause();
            return character;
        }
    };
    Pausing pausing;
    std::ostream(&pausing) << "text";
}

void sleepLong()
{
    std::this_thread::sleep_for(std::chrono::hours(1));
}

struct Case {
    const char* name;
    void (*body)();
    bool goesOn;        ///< with libstdc++
    bool libcxxGoesOn;  ///< with libc++
};

void PrintTo(const Case& tried, std::ostream* out)
{
    *out << tried.name;
}

class ForcedUnwinding : public testing::TestWithParam<Case> {};

/// Cuts off a task that runs `body`. If it is unwound, it prints "unwound" on standard error, and
/// the process exits with 0.
[[noreturn]] void cutOff(void (*body)())
{
    const Pool pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    Gate gate;
    gate.open();
    pool->enqueue(makeTask([&] {
        const std::shared_ptr<void> atEnd(nullptr, [](void*) { std::fputs("unwound\n", stderr); });
        gate.pass();
        body();
    }));
    std::_Exit(untilArrived(pool, gate) && pool->close(true, 60000) ? 0 : 1);
}

TEST_P(ForcedUnwinding, GoesOnOrEndsTheProcess)
{
#ifdef _LIBCPP_VERSION
    const bool goesOn = GetParam().libcxxGoesOn;
#else
    const bool goesOn = GetParam().goesOn;
#endif
    if (goesOn) {
        EXPECT_EXIT(cutOff(GetParam().body), testing::ExitedWithCode(0), "^unwound\n$");
    } else {
        EXPECT_EXIT(cutOff(GetParam().body), testing::KilledBySignal(SIGABRT),
                    "terminat|not rethrown");
    }
}

INSTANTIATE_TEST_SUITE_P(Of, ForcedUnwinding,
                         testing::Values(Case{"CatchOfTypes", catchTypes, true, true},
                                         Case{"Rethrow", rethrow, true, false},
                                         Case{"CatchWithoutRethrow", swallow, false, false},
                                         Case{"Noexcept", inNoexcept, false, false},
                                         Case{"Destructor", inDestructor, false, false},
                                         Case{"WaitOnCondition", waitOnCondition, true, false},
                                         Case{"Join", joinThread, false, false},
                                         Case{"Stream", writeToStream, true, false},
                                         Case{"Sleep", sleepLong, true, true}),
                         [](const auto& named) { return std::string(named.param.name); });

}  // namespace
