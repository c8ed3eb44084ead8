/// What the pools are given to do, and how long it takes them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "Service.h"

using Clock = std::chrono::steady_clock;

/// Keeps a processor busy for a set time, by counting: the time that a thread is kept waiting for
/// its processor is not taken off, as it would be by a look at the clock.
class Spin {
public:
    explicit Spin(double microseconds) : steps(static_cast<long>(microseconds * stepsPerUs())) {}

    void operator()() const
    {
        for (long i = 0; i < steps; ++i) {
            asm volatile("" ::: "memory");
        }
    }

private:
    static double stepsPerUs()
    {
        static const double measured = [] {
            const long count = 50000000;
            const auto start = Clock::now();
            for (long i = 0; i < count; ++i) {
                asm volatile("" ::: "memory");
            }
            return static_cast<double>(count) /
                   std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        }();
        return measured;
    }

    long steps;
};

/// Waits until a number of tasks have ended.
class Countdown {
public:
    explicit Countdown(int tasks) : left(tasks) {}

    void count()
    {
        if (left.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            const std::lock_guard<std::mutex> hold(mutex);
            isOver = true;
            over.notify_one();
        }
    }

    /// A pool that may lose a wake-up is woken now and then, as its clients do.
    template <typename Pool>
    void wait(Pool& pool)
    {
        std::unique_lock<std::mutex> hold(mutex);
        while (!over.wait_for(hold, std::chrono::milliseconds(20), [this] { return isOver; })) {
            wake(pool, 0);
        }
    }

private:
    template <typename Pool>
    static auto wake(Pool& pool, int) -> decltype(pool.wake())
    {
        pool.wake();
    }
    template <typename Pool>
    static void wake(Pool&, long)
    {
    }

    std::atomic<int> left;
    std::mutex mutex;
    std::condition_variable over;
    bool isOver = false;
};

struct Grain {
    double microseconds;
    int tasks;
    int workers;
    int producers;
    bool withService;
};

/// Nanoseconds a task, from the first submission to the end of the last task.
template <typename Pool>
double timeOfGrain(const Grain& grain)
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
    const auto start = Clock::now();
    std::vector<std::thread> others;
    const int share = grain.tasks / grain.producers;
    for (int i = 1; i < grain.producers; ++i) {
        others.emplace_back([&] { produce(share, countdown); });
    }
    produce(grain.tasks - share * (grain.producers - 1), countdown);
    countdown.wait(pool);
    const auto end = Clock::now();
    for (std::thread& other : others) {
        other.join();
    }
    return std::chrono::duration<double, std::nano>(end - start).count() / grain.tasks;
}
