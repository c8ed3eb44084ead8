#include "Allocations.h"

#include <cstdlib>
#include <new>

namespace allocations {

thread_local long made = 0;
thread_local long alive = 0;
thread_local long untilFailure = -1;

namespace {

void* allocate(std::size_t size)
{
    void* const memory = untilFailure >= 0 && untilFailure-- == 0 ? nullptr : std::malloc(size);
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
