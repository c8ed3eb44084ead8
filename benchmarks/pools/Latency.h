/// W4: how soon an idle pool begins a task.
#pragma once

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "Countdown.h"

struct Latency {
    int rounds;
    bool roundTrip;     ///< to the client's next instruction; otherwise to the task's first
    double percentile;  ///< 0.5: the median
};

/// Microseconds from the submission, of many single ones to a pool that has fallen asleep.
struct TimeOfLatency {
    template <typename Pool>
    static double of(const Latency& what)
    {
        using Clock = std::chrono::steady_clock;
        Pool pool(2);
        std::vector<double> samples;
        for (int i = 0; i < what.rounds; ++i) {
            std::this_thread::sleep_for(std::chrono::microseconds(500));
            Countdown countdown(1);
            Clock::time_point end;
            const Clock::time_point start = Clock::now();
            pool.submit([&] {
                end = Clock::now();
                countdown.count();
            });
            countdown.wait(pool);
            if (what.roundTrip) {
                end = Clock::now();
            }
            samples.push_back(std::chrono::duration<double, std::micro>(end - start).count());
        }
        const auto nth =
            samples.begin() +
            static_cast<std::ptrdiff_t>(what.percentile * static_cast<double>(samples.size() - 1));
        std::nth_element(samples.begin(), nth, samples.end());
        return *nth;
    }
};
