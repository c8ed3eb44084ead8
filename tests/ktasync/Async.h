/// Pools for the tests of libktasync.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

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

/// A pool whose only worker is held up in a task, so that whatever is submitted stays queued.
class HeldPool {
public:
    explicit HeldPool(KT::KTPoolOptions options = fixedSize(1)) : pool(options)
    {
        holding = KT::submit(pool, "hold", [this] { gate.pass(); });
        EXPECT_TRUE(gate.untilArrived(1));
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
