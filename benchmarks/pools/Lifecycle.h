/// W7: the whole life of a pool.
#pragma once

#include <chrono>

#include "Countdown.h"

/// Microseconds to make a pool of 2 workers, run one task in it and end it, of many in a row.
struct TimeOfLifecycle {
    template <typename Pool>
    static double of(int pools)
    {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < pools; ++i) {
            Countdown countdown(1);
            Pool pool(2);
            pool.submit([&countdown] { countdown.count(); });
            countdown.wait(pool);
        }
        const std::chrono::duration<double, std::micro> took =
            std::chrono::steady_clock::now() - start;
        return took.count() / pools;
    }
};
