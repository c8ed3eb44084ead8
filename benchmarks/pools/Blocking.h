/// W3: tasks that block.
#pragma once

#include <chrono>
#include <thread>

#include "Countdown.h"

struct Blocking {
    int tasks;
    int sleepMs;
};

/// Milliseconds from the first submission to the end of the last task.
struct TimeOfBlocking {
    template <typename Pool, typename... Sizes>
    static double of(const Blocking& work, Sizes... sizes)
    {
        Pool pool(sizes...);
        Countdown countdown(work.tasks);
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < work.tasks; ++i) {
            pool.submit([&countdown, &work] {
                std::this_thread::sleep_for(std::chrono::milliseconds(work.sleepMs));
                countdown.count();
            });
        }
        countdown.wait(pool);
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - start;
        return took.count();
    }
};
