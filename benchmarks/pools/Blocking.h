/// W3: tasks that block, and tasks that compute.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "Countdown.h"
#include "Spin.h"

struct Blocking {
    int tasks;
    int sleepMs;
    double computeUs = 0;
};

/// Milliseconds from the first submission to the end of the last task.
struct TimeOfBlocking {
    template <typename Pool, typename... Sizes>
    static double of(const Blocking& work, Sizes... sizes)
    {
        Pool pool(sizes...);
        Countdown countdown(work.tasks);
        const Spin compute(work.computeUs);
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < work.tasks; ++i) {
            pool.submit([&countdown, &work, &compute] {
                compute();
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

/// The most tasks that were at work at once.
struct MostAtOnce {
    template <typename Pool, typename... Sizes>
    static double of(const Blocking& work, Sizes... sizes)
    {
        std::atomic<int> now(0);
        std::atomic<int> most(0);
        {
            Pool pool(sizes...);
            Countdown countdown(work.tasks);
            const Spin compute(work.computeUs);
            for (int i = 0; i < work.tasks; ++i) {
                pool.submit([&] {
                    const int together = ++now;
                    int before = most;
                    while (before < together && !most.compare_exchange_weak(before, together)) {
                    }
                    compute();
                    --now;
                    countdown.count();
                });
            }
            countdown.wait(pool);
        }
        return most;
    }
};
