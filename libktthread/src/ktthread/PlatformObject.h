#pragma once

#include <cstddef>
#include <new>

#include "CacheLine.h"

namespace KT::core {

constexpr std::align_val_t platformObjectAlignment{cacheLineSize};

/// A zero-filled object of the platform, in cache lines of its own. KTPlatformObjectDeleter frees
/// it. Throws std::bad_alloc.
template <typename T>
T* newPlatformObject()
{
    const std::size_t lines = (sizeof(T) + cacheLineSize - 1) / cacheLineSize;
    void* const memory = ::operator new(lines* cacheLineSize, platformObjectAlignment);
    return new (memory) T();
}

}  // namespace KT::core
