/// The least that a pool can be: a mutex, a condition and a queue of functions.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

class FloorPool {
public:
    static const char* name() { return "mutex+condition"; }
    static constexpr bool givesService = false;

    explicit FloorPool(int workers)
    {
        for (int i = 0; i < workers; ++i) {
            threads.emplace_back([this] { work(); });
        }
    }

    ~FloorPool()
    {
        {
            const std::lock_guard<std::mutex> hold(mutex);
            ending = true;
        }
        changed.notify_all();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    FloorPool(const FloorPool&) = delete;
    FloorPool& operator=(const FloorPool&) = delete;

    template <typename Task>
    void submit(Task task)
    {
        {
            const std::lock_guard<std::mutex> hold(mutex);
            queue.emplace_back(std::move(task));
        }
        changed.notify_one();
    }

private:
    void work()
    {
        std::unique_lock<std::mutex> hold(mutex);
        for (;;) {
            changed.wait(hold, [this] { return ending || !queue.empty(); });
            if (queue.empty()) {
                return;
            }
            const std::function<void()> task = std::move(queue.front());
            queue.pop_front();
            hold.unlock();
            task();
            hold.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> queue;
    bool ending = false;
    std::vector<std::thread> threads;
};
