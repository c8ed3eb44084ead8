/// How the end of many tasks is waited for.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

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
