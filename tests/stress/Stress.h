/// What the stress tests have in common.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <random>

#include <malloc.h>
#include <unistd.h>

#include "Pools.h"
#include "QuietConsole.h"
#include "Scaled.h"

/// Random numbers whose seed is printed, and taken from the environment's KT_SEED to repeat a run.
class Dice {
public:
    Dice() : Dice(chosenSeed()) { std::fprintf(stderr, "KT_SEED=%u\n", seed); }

    /// With a seed drawn from other dice.
    explicit Dice(unsigned given) : seed(given), engine(seed) {}

    /// From 0 to `below` - 1.
    int roll(int below) { return std::uniform_int_distribution<int>(0, below - 1)(engine); }

private:
    static unsigned chosenSeed()
    {
        const char* const given = std::getenv("KT_SEED");
        return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                : std::random_device()();
    }

    unsigned seed;
    std::mt19937 engine;
};

/// Bytes that are allocated now.
inline std::size_t bytesInUse()
{
    return mallinfo2().uordblks;
}

/// Memory mappings of this process; 0 under ThreadSanitizer, which maps memory as it likes.
inline int mappings()
{
    int lines = 0;
#if defined(__SANITIZE_THREAD__)
    return lines;
#endif
    if (std::FILE* const file = std::fopen("/proc/self/maps", "r")) {
        for (int character = 0; (character = std::fgetc(file)) != EOF;) {
            lines += character == '\n';
        }
        std::fclose(file);
    }
    return lines;
}

/// Threads of this process, including those that have been joined and that the kernel has not yet
/// removed.
inline int threadCount()
{
    return static_cast<int>(threadsNamed("").size()) + 1;
}

/// Calls wake() until `condition` holds, as a client that waits does; false after ten minutes.
template <typename Condition>
bool wakingUntil(const Pool& pool, const Condition& condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        pool->wake();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
