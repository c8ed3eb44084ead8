#include "Blocks.h"

#include <array>
#include <atomic>
#include <new>
#include <utility>

#include <pthread.h>

namespace KT {
namespace detail {

namespace {

const std::size_t blockSize = 128;

#if defined(__SANITIZE_ADDRESS__)
/// A job that is used after its end must be found.
const bool areUsedAgain = false;
#else
const bool areUsedAgain = true;
#endif

/// A free block.
struct Free {
    Free* next;
};

/// A list of free blocks, full or not.
struct Magazine {
    static const int capacity = 16;
    Free* first = nullptr;
    int count = 0;

    void push(void* block)
    {
        first = new (block) Free{first};
        ++count;
    }
    void* pop()
    {
        --count;
        return std::exchange(first, first->next);
    }
    void freeAll()
    {
        while (first != nullptr) {
            ::operator delete(pop());
        }
    }
};

/// Full magazines on their way from one thread to another. Without locks, so that a child that was
/// forked in the middle of it all can go on.
class Rack {
public:
    /// False if there is no room.
    bool put(const Magazine& full)
    {
        for (std::atomic<Free*>& place : places) {
            Free* none = nullptr;
            if (place.load(std::memory_order_relaxed) == nullptr &&
                place.compare_exchange_strong(none, full.first, std::memory_order_release,
                                              std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

    /// An empty one if there is none.
    Magazine take()
    {
        for (std::atomic<Free*>& place : places) {
            if (place.load(std::memory_order_relaxed) != nullptr) {
                if (Free* const first = place.exchange(nullptr, std::memory_order_acquire)) {
                    return {first, Magazine::capacity};
                }
            }
        }
        return {};
    }

private:
    std::array<std::atomic<Free*>, 64> places{};
};

Rack rack;

/// What a thread has: a magazine in use, and a full one or none, so that taking and giving in turn
/// doesn't go to the rack each time.
struct Supply {
    Magazine inUse;
    Magazine full;
    bool isReturned = false;  ///< at the end of the thread
};

thread_local Supply supply;

void returnAll(void* /*unused*/)
{
    supply.inUse.freeAll();
    supply.full.freeAll();
    supply.isReturned = false;
}

/// False if the thread can't give back at its end what it has: it must have nothing then.
bool returnsAtItsEnd()
{
    if (!supply.isReturned) {
        // A key rather than a thread-local object with a destructor: registering that ends the
        // process where the memory has run out.
        static const std::pair<pthread_key_t, bool> key = [] {
            pthread_key_t made = 0;
            const bool isMade = pthread_key_create(&made, returnAll) == 0;
            return std::make_pair(made, isMade);
        }();
        supply.isReturned = key.second && pthread_setspecific(key.first, &supply) == 0;
    }
    return supply.isReturned;
}

}  // namespace

void* takeBlock(std::size_t size)
{
    if (!areUsedAgain || size > blockSize) {
        return ::operator new(size);
    }
    if (supply.inUse.count == 0) {
        std::swap(supply.inUse, supply.full);
    }
    if (supply.inUse.count == 0 && returnsAtItsEnd()) {
        supply.inUse = rack.take();
    }
    return supply.inUse.count == 0 ? ::operator new(blockSize) : supply.inUse.pop();
}

void giveBlock(void* block, std::size_t size)
{
    if (!areUsedAgain || size > blockSize || !returnsAtItsEnd()) {
        ::operator delete(block);
        return;
    }
    if (supply.inUse.count == Magazine::capacity) {
        if (supply.full.count != 0 && !rack.put(supply.full)) {
            supply.full.freeAll();
        }
        supply.full = std::exchange(supply.inUse, Magazine());
    }
    supply.inUse.push(block);
}

}  // namespace detail
}  // namespace KT
