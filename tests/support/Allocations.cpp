#include "Allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace allocations {

thread_local long made = 0;
thread_local long alive = 0;
thread_local long untilFailure = -1;

namespace {

void* allocate(std::size_t size, std::size_t alignment = alignof(std::max_align_t))
{
    const bool fails = untilFailure >= 0 && untilFailure-- == 0;
    void* memory = nullptr;
    if (!fails && posix_memalign(&memory, alignment, size) != 0) {
        memory = nullptr;
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++made;
    ++alive;
    return memory;
}

void release(void* memory)
{
    alive -= memory != nullptr;
    std::free(memory);
}

}  // namespace
}  // namespace allocations

void* operator new(std::size_t size)
{
    return allocations::allocate(size);
}

void* operator new[](std::size_t size)
{
    return allocations::allocate(size);
}

void operator delete(void* memory) noexcept
{
    allocations::release(memory);
}

void operator delete[](void* memory) noexcept
{
    allocations::release(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    allocations::release(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    allocations::release(memory);
}

// For types that are aligned to cache lines.

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return allocations::allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    allocations::release(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    allocations::release(memory);
}
