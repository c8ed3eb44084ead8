/// How much a long test does.
#pragma once

#include <algorithm>
#include <cstdlib>

/// `base`, or as many times as much as the environment's KT_SCALE says, as ./check soak has it.
inline int scaled(int base)
{
    const char* const scale = std::getenv("KT_SCALE");
    return base * (scale != nullptr ? std::max(std::atoi(scale), 1) : 1);
}
