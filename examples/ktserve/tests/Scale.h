/// How much a long test does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

/// `base` times KT_SCALE of the environment.
inline int scaled(int base)
{
    const char* const scale = std::getenv("KT_SCALE");
    return base * (scale != nullptr ? std::max(std::atoi(scale), 1) : 1);
}

/// Calls `action` with 0 to `count` - 1, each in a thread of its own, and waits for them.
inline void onThreads(int count, const std::function<void(int)>& action)
{
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(action, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
