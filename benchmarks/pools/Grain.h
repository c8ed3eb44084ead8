/// W1 and W2: many equal tasks.
#pragma once

#include <chrono>
#include <thread>
#include <vector>

#include "Countdown.h"
#include "Service.h"
#include "Spin.h"

struct Grain {
    double microseconds;
    int tasks;
    int workers;
    int producers;
    bool withService;
};

/// Nanoseconds a task, from the first submission to the end of the last task.
struct TimeOfGrain {
    template <typename Pool>
    static double of(const Grain& grain);
};

template <typename Pool>
double TimeOfGrain::of(const Grain& grain)
{
    Pool pool(grain.workers);
    const Spin spin(grain.microseconds);
    const auto produce = [&](int tasks, Countdown& countdown) {
        for (int i = 0; i < tasks; ++i) {
            const auto body = [&spin, &countdown] {
                spin();
                countdown.count();
            };
            if (grain.withService) {
                submitServiced(pool, body);
            } else {
                pool.submit(body);
            }
        }
    };
    Countdown warmUp(100);
    produce(100, warmUp);
    warmUp.wait(pool);

    Countdown countdown(grain.tasks);
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> others;
    const int share = grain.tasks / grain.producers;
    for (int i = 1; i < grain.producers; ++i) {
        others.emplace_back([&] { produce(share, countdown); });
    }
    produce(grain.tasks - share * (grain.producers - 1), countdown);
    countdown.wait(pool);
    const auto end = std::chrono::steady_clock::now();
    for (std::thread& other : others) {
        other.join();
    }
    return std::chrono::duration<double, std::nano>(end - start).count() / grain.tasks;
}
