#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/BriefMutex.h"

namespace {

TEST(BriefMutex, LetsOneThreadInAtATime)
{
    KT::detail::BriefMutex mutex;
    const int threads = 4;
    const int rounds = 50000;
    int count = 0;
    std::vector<std::thread> counters;
    for (int i = 0; i < threads; ++i) {
        counters.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                const std::lock_guard<KT::detail::BriefMutex> hold(mutex);
                ++count;
                if (round % 1000 == 0) {
                    std::this_thread::yield();  // others come, spin and sleep
                }
            }
        });
    }
    for (std::thread& counter : counters) {
        counter.join();
    }
    EXPECT_EQ(count, threads * rounds);
}

}  // namespace
