/// Work for a processor.
#pragma once

#include <algorithm>
#include <chrono>

/// Keeps a processor busy for a set time, by counting: the time that a thread is kept waiting for
/// its processor is not taken off, as it would be by a look at the clock.
class Spin {
public:
    explicit Spin(double microseconds)
        : steps(microseconds > 0 ? static_cast<long>(microseconds * stepsPerUs()) : 0)
    {
    }

    void operator()() const { count(steps); }

private:
    [[gnu::noinline]] static void count(long steps)
    {
        for (long i = 0; i < steps; ++i) {
            asm volatile("" ::: "memory");
        }
    }

    /// The fastest of many short trials: the others were disturbed, or ran before the processor had
    /// come up to its speed.
    static double stepsPerUs()
    {
        static const double measured = [] {
            const long trial = 100000;
            double best = 0;
            for (int i = 0; i < 2000; ++i) {
                const auto start = std::chrono::steady_clock::now();
                count(trial);
                const std::chrono::duration<double, std::micro> took =
                    std::chrono::steady_clock::now() - start;
                best = std::max(best, static_cast<double>(trial) / took.count());
            }
            return best;
        }();
        return measured;
    }

    long steps;
};
