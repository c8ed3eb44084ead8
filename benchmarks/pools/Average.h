/// Times of what is too short to be measured once.
#pragma once

#include <chrono>

/// Seconds that one call of `run` takes: the mean of as many as a tenth of a second has room for,
/// and of one at least.
template <typename Run>
double averageSeconds(Run run)
{
    using Clock = std::chrono::steady_clock;
    const std::chrono::milliseconds enough(100);
    const Clock::time_point start = Clock::now();
    int runs = 0;
    Clock::duration took{};
    do {
        run();
        ++runs;
        took = Clock::now() - start;
    } while (took < enough);
    return std::chrono::duration<double>(took).count() / runs;
}
