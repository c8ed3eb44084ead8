/// Pools for the tests of libktasync.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <pthread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ktasync/ktasync.h>

#include "Capture.h"
#include "Waiting.h"

/// Options of a pool that never grows.
inline KT::KTPoolOptions fixedSize(int threads)
{
    KT::KTPoolOptions options;
    options.threads = threads;
    options.maxThreads = threads;
    return options;
}

/// As `eventually`, and wakes the pool each time, as a client that waits for a worker must.
inline bool eventually(const KT::KTScopedPool& pool, const std::function<bool()>& condition)
{
    return eventually([&] {
        pool.pool()->wake();
        return condition();
    });
}

/// Waits until `count` tasks of `pool` have come to `gate`.
inline bool untilArrived(const KT::KTScopedPool& pool, const Gate& gate, int count = 1)
{
    return eventually(pool, [&] { return gate.arrived() >= count; });
}

/// A pool whose only worker is blocked in a task, so that what is submitted stays queued.
class HeldPool {
public:
    explicit HeldPool(KT::KTPoolOptions options = fixedSize(1)) : pool(options)
    {
        holding = KT::submit(pool, "hold", [this] { gate.pass(); });
        EXPECT_TRUE(untilArrived(pool, gate));
    }
    ~HeldPool() { release(); }

    void release()
    {
        gate.open();
        if (holding.valid()) {
            holding.get();
        }
    }

    Gate gate;
    KT::KTScopedPool pool;
    KT::KTFuture<void> holding;
};

/// A task of the core.
struct CoreTask : KT::KTTask {
    explicit CoreTask(std::atomic<int>& counter) : ran(counter) {}
    void run() override { ++ran; }
    std::atomic<int>& ran;
};

/// The kernel's name of the calling thread.
inline std::string threadName()
{
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return name.data();
}

/// The depth in tests that nest tasks deeply. ThreadSanitizer takes milliseconds a level.
#ifdef __SANITIZE_THREAD__
const int deepNesting = 2000;
#else
const int deepNesting = 10000;
#endif

/// What `call` throws; empty if it throws nothing of that type.
template <typename Error, typename Call>
std::optional<Error> thrownBy(const Call& call)
{
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}
