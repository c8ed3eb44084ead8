/// How much a long test does.
#pragma once

#include <algorithm>
#include <cstdlib>

/// `base` times KT_SCALE of the environment, which ./check soak sets.
inline int scaled(int base)
{
    const char* const scale = std::getenv("KT_SCALE");
    return base * (scale != nullptr ? std::max(std::atoi(scale), 1) : 1);
}
